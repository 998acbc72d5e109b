#include "cgisupport/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/config_line.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"
#include "cgisupport/str_util.h"

namespace storegen {

// Adds |file| to the files of the watches recording.
void NoteConfigLookup(const char* file);

namespace {

// Lookups are answered from a copy of each file's values, kept while the
// file is unchanged. Every lookup still stats the file, so an edit is seen
// by the next lookup: a file whose device, inode, size, modification or
// status-change time differ is read again. A file changed very recently may
// change again without its times moving, so such a file is read and its
// bytes compared on every lookup until its change is old enough.
// Larger files are scanned line by line on each lookup, as without a cache.
constexpr off_t kMaxCachedSize = 1 << 20;
// More distinct paths than this empty the cache (a run reads a handful).
constexpr std::size_t kMaxCachedFiles = 64;

// Paths and keys are looked up without making a string of them first.
struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const {
    return std::hash<std::string_view>()(text);
  }
};

struct CachedConfig {
  FileIdentity identity;
  uint64_t checked = 0;  // the snapshot under which the file was last looked at
  bool settled = false;  // not changed recently when read
  bool parsed = false;   // |values| belong to |content|
  std::string content;   // the file's bytes while not settled
  // ASCII-lower-case key -> value of the first line with that key and a value.
  std::unordered_map<std::string, std::string, TextHash, std::equal_to<>> values;
};

using ConfigCacheMap = std::unordered_map<std::string, CachedConfig, TextHash, std::equal_to<>>;

// The configuration cache: every file's kept values, the snapshots open and
// the watches recording. There is one, g_config_cache below; it is built
// before main and freed after the exit handlers (which still look values up,
// for the search index's shut-down). Clear puts it back in its start state.
class ConfigCache {
 public:
  // |file|'s entry, brought up to date (under an open snapshot, looked at
  // once per snapshot). Null when the file is not a regular file of at most
  // kMaxCachedSize bytes, or cannot be read whole: the caller then scans it
  // as it stands.
  const CachedConfig* Values(const char* file);
  void Forget(const char* file) {
    if (auto it = files_.find(std::string_view(file)); it != files_.end()) files_.erase(it);
    ++version_;
  }
  void Clear() {
    files_ = ConfigCacheMap();
    version_ = 1;
    watch_ = nullptr;
    snapshot_depth_ = 0;
    snapshot_ = 0;
    last_ = LastFile();
    folded_ = std::string();
  }

  void OpenSnapshot() {
    ++snapshot_depth_;
    ++snapshot_;
  }
  void CloseSnapshot() { --snapshot_depth_; }

  // Moves whenever what a lookup answers may have changed: a file's values
  // read anew or dropped, or a lookup that could not be answered from kept
  // values.
  uint64_t version() const { return version_; }

  // The innermost watch recording, or null.
  ConfigWatch*& watch() { return watch_; }
  // One buffer folds every key looked up: no allocation once it is large
  // enough.
  std::string& folded_key() { return folded_; }

 private:
  const CachedConfig* Read(const char* file);
  // The number of the innermost open snapshot; 0 when none is open.
  uint64_t snapshot() const { return snapshot_depth_ > 0 ? snapshot_ : 0; }

  // A page looks values up in one file after another: the last file's entry
  // is at hand while the snapshot and every kept value stay the same.
  struct LastFile {
    std::string file;
    const CachedConfig* entry = nullptr;
    uint64_t snapshot = 0;
    uint64_t version = 0;
  };

  ConfigCacheMap files_;
  uint64_t version_ = 1;
  ConfigWatch* watch_ = nullptr;
  int snapshot_depth_ = 0;
  uint64_t snapshot_ = 0;  // the number of the latest snapshot opened
  LastFile last_;
  std::string folded_;
};

ConfigCache g_config_cache;

// The values of |content| as a line-by-line scan finds them: the content is
// cut into the lines the line reader takes (through a LF, or
// kConfigLineSize - 1 bytes of a longer line), and for each key the first
// line with a value wins.
void ParseConfig(std::string_view content, CachedConfig* entry) {
  entry->values.clear();
  std::size_t pos = 0;
  while (pos < content.size()) {
    std::string_view piece =
        content.substr(pos, std::min(content.size() - pos, std::size_t{kConfigLineSize - 1}));
    if (std::size_t lf = piece.find('\n'); lf != std::string_view::npos)
      piece = piece.substr(0, lf + 1);
    pos += piece.size();
    ConfigLineTokens tokens = SplitConfigLine(piece);
    if (!tokens.value.empty()) entry->values.try_emplace(AsciiLowered(tokens.key), tokens.value);
  }
  entry->parsed = true;
}

const CachedConfig* ConfigCache::Read(const char* file) {
  auto it = files_.find(std::string_view(file));
  const uint64_t current = snapshot();
  if (current != 0 && it != files_.end() && it->second.checked == current) return &it->second;

  struct stat st;
  if (stat(file, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxCachedSize) return nullptr;
  if (it != files_.end() && it->second.settled && it->second.identity == FileIdentity(st)) {
    it->second.checked = current;
    return &it->second;
  }

  int fd = OpenForReading(file);
  if (fd < 0) return nullptr;
  // The identity of what is read is taken from the open file itself.
  std::string content;
  bool ok = fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size <= kMaxCachedSize &&
            ReadWholeFile(fd, st.st_size, &content);
  close(fd);
  if (!ok) return nullptr;

  if (it == files_.end()) {
    if (files_.size() >= kMaxCachedFiles) files_.clear();
    it = files_.try_emplace(file).first;
    ++version_;
  }
  CachedConfig& entry = it->second;
  // A recently changed file read again with the same bytes keeps its values.
  const bool same = !entry.settled && entry.parsed && content == entry.content;
  entry.identity = FileIdentity(st);
  entry.settled = !ChangedRecently(entry.identity);
  if (!same) {
    ParseConfig(content, &entry);
    ++version_;
  }
  entry.content = entry.settled ? std::string() : std::move(content);
  entry.checked = current;
  return &entry;
}

const CachedConfig* ConfigCache::Values(const char* file) {
  const uint64_t current = snapshot();
  if (current != 0 && last_.entry != nullptr && last_.snapshot == current &&
      last_.version == version_ && last_.file == file) {
    return last_.entry;
  }
  const CachedConfig* entry = Read(file);
  if (entry == nullptr) {
    ++version_;  // the file is scanned as it stands
    last_.entry = nullptr;
  } else {
    last_.file = file;
    last_.entry = entry;
    last_.snapshot = current;
    last_.version = version_;
  }
  return entry;
}

// Scans |file| line by line for |key|, as every lookup did before the cache:
// for files the cache does not hold.
int ScanForValue(const char* file, std::string_view key, std::string* value);

// The value of |key| in |file|. Returns 1 (|value| set), 0 when no line has
// a value, -1 when the file cannot be opened.
int LookUpValue(const char* file, std::string_view key, std::string* value) {
  NoteConfigLookup(file);
  if (const CachedConfig* entry = g_config_cache.Values(file)) {
    std::string& folded = g_config_cache.folded_key();
    folded.assign(key);
    for (char& c : folded)
      c = AsciiLower(c);
    auto found = entry->values.find(folded);
    if (found == entry->values.end()) return 0;
    *value = found->second;
    return 1;
  }
  return ScanForValue(file, key, value);
}

// The backup name of |path|: the extension of its last component replaced by
// ".bak", or ".bak" appended when that component has no ".".
std::string BackupNameOf(std::string_view path) {
  std::size_t slash = path.find_last_of("/\\");
  std::size_t base = slash == std::string_view::npos ? 0 : slash + 1;
  std::size_t dot = path.rfind('.');
  std::string name(path);
  if (dot != std::string_view::npos && dot >= base) name.resize(dot);
  return name + ".bak";
}

bool Exists(const char* path) {
  return access(path, F_OK) == 0;
}

// Keeps the current content of |file| as its backup while |file| itself stays
// in place, so that readers never find the file missing: a hard link, or a
// copy where links are not possible. Returns false when no backup could be made.
bool KeepBackupCopy(const char* file, const std::string& backup) {
  std::remove(backup.c_str());
  if (link(file, backup.c_str()) == 0) return true;
  return tb_CopyFile(file, backup.c_str()) == 0;
}

// Reads the next line of |fp| as the line reader splits it (through its LF,
// or kConfigLineSize - 1 bytes of a longer line) into |line|, NUL bytes
// included, so that a line copied unchanged is copied whole. False at end of
// file.
bool ReadRawLine(FILE* fp, std::string* line) {
  line->clear();
  int c;
  while (line->size() < kConfigLineSize - 1 && (c = std::getc(fp)) != EOF) {
    line->push_back(static_cast<char>(c));
    if (c == '\n') break;
  }
  return !line->empty();
}

// Writes the new content of the configuration file: the lines of |old| (may be
// null) with the listed keys replaced or dropped, then the unlisted pairs.
bool WriteRewrittenConfig(FILE* old, FILE* out, ConfigItemList* list) {
  bool last_had_lf = false;
  if (old != nullptr) {
    std::string line;
    while (ReadRawLine(old, &line)) {
      std::string_view text(line);
      last_had_lf = text.back() == '\n';
      ConfigLineTokens tokens = SplitConfigLine(text);
      ConfigItem* match = nullptr;
      if (!tokens.key.empty()) {
        for (ConfigItem* it = list->first; it != nullptr; it = it->next) {
          if (it->name != nullptr && KeysEqual(it->name, tokens.key)) {
            match = it;
            break;
          }
        }
      }
      if (match == nullptr) {
        if (std::fwrite(text.data(), 1, text.size(), out) != text.size()) return false;
        continue;
      }
      match->written = 1;
      if (match->value != nullptr && match->value[0] != '\0') {
        if (std::fprintf(out, "%s\t%s\n", match->name, match->value) < 0) return false;
      }
    }
    if (std::ferror(old)) return false;
  }
  bool separated = false;
  for (ConfigItem* it = list->first; it != nullptr; it = it->next) {
    if (it->written || it->value == nullptr || it->value[0] == '\0') continue;
    if (!separated && !last_had_lf && std::fputc('\n', out) == EOF) return false;
    separated = true;
    if (std::fprintf(out, "%s\t%s\n", it->name != nullptr ? it->name : "", it->value) < 0)
      return false;
  }
  return true;
}

void ClearWrittenFlags(ConfigItemList* list) {
  for (ConfigItem* it = list->first; it != nullptr; it = it->next)
    it->written = 0;
}

int ScanForValue(const char* file, std::string_view key, std::string* value) {
  FilePtr fp(FopenForReading(file));
  if (!fp) return -1;
  std::vector<char> line(kConfigLineSize);
  while (std::fgets(line.data(), kConfigLineSize, fp.get()) != nullptr) {
    ConfigLineTokens tokens = SplitConfigLine(line.data());
    if (tokens.value.empty() || !KeysEqual(key, tokens.key)) continue;
    value->assign(tokens.value);
    return 1;
  }
  return 0;
}

}  // namespace

int GetConfigItem(const char* file, const char* key, char* value_buf, int buf_size,
                  int must_exist) {
  if (file == nullptr || key == nullptr) return -1;
  std::string value;
  int rc = LookUpValue(file, key, &value);
  if (rc < 0) return -1;
  if (rc == 0) return must_exist == 1 ? -2 : 0;
  if (value_buf != nullptr && buf_size > 0) {
    CopyTruncated(value_buf, static_cast<std::size_t>(buf_size), value);
    value_buf[buf_size - 1] = '\0';
  }
  return 1;
}

int GetConfigValue(const char* file, std::string_view key, std::string* value, int must_exist) {
  if (file == nullptr || value == nullptr) return -1;
  int rc = LookUpValue(file, key, value);
  if (rc == 0 && must_exist == 1) return -2;
  return rc;
}

ConfigSnapshot::ConfigSnapshot() {
  g_config_cache.OpenSnapshot();
}

ConfigSnapshot::~ConfigSnapshot() {
  g_config_cache.CloseSnapshot();
}

void ForgetConfigFile(const char* file) {
  if (file != nullptr) g_config_cache.Forget(file);
}

void ResetConfigCache() {
  g_config_cache.Clear();
}

void NoteConfigLookup(const char* file) {
  for (ConfigWatch* w = g_config_cache.watch(); w != nullptr; w = w->outer_) {
    if (std::find(w->files_.begin(), w->files_.end(), file) == w->files_.end())
      w->files_.emplace_back(file);
  }
}

ConfigWatch::ConfigWatch() : outer_(g_config_cache.watch()), start_(g_config_cache.version()) {
  g_config_cache.watch() = this;
}

ConfigWatch::~ConfigWatch() {
  Stop();
}

void ConfigWatch::Stop() {
  if (!recording_) return;
  recording_ = false;
  stop_ = g_config_cache.version();
  for (ConfigWatch** link = &g_config_cache.watch(); *link != nullptr; link = &(*link)->outer_) {
    if (*link == this) {
      *link = outer_;
      break;
    }
  }
}

bool ConfigWatch::Recording() {
  return g_config_cache.watch() != nullptr;
}

bool ConfigWatch::Unchanged() const {
  if (recording_ || start_ != stop_) return false;
  for (const std::string& file : files_) {
    if (g_config_cache.Values(file.c_str()) == nullptr) return false;
  }
  return g_config_cache.version() == stop_;
}

int BackupFile(const char* path, char* backup_name_out) {
  if (path == nullptr || !Exists(path)) return 0;
  std::string backup = BackupNameOf(path);
  std::remove(backup.c_str());
  ForgetConfigFile(path);
  ForgetConfigFile(backup.c_str());
  if (std::rename(path, backup.c_str()) != 0) return -1;
  if (backup_name_out != nullptr) CopyTruncated(backup_name_out, 256, backup);
  return 1;
}

int SetConfigItems(const char* file, ConfigItemList* list) {
  if (list == nullptr) return -5;
  if (file == nullptr) return -2;

  // The new content goes to a temporary file beside |file| and replaces it
  // by a rename, so a failed or interrupted write never loses the old file.
  FilePtr old;
  if (Exists(file)) {
    if (!KeepBackupCopy(file, BackupNameOf(file))) return -3;
    old.reset(FopenForReading(file));
    if (!old) return -1;
  }

  // Whatever the outcome, the next lookup reads the file again.
  ForgetConfigFile(file);
  ForgetConfigFile(BackupNameOf(file).c_str());
  AtomicFile out;
  if (!out.Open(file)) return -2;
  bool ok = WriteRewrittenConfig(old.get(), out.fp(), list);
  ClearWrittenFlags(list);
  if (!ok) return -2;  // the temporary file is removed, |file| stays as it was
  if (!out.Commit()) return -2;
  return 0;
}

int EnsurePGPDir(const char* file_path) {
  if (file_path == nullptr) return 0;
  std::string_view path(file_path);
  std::size_t slash = path.find_last_of("/\\");
  if (slash == std::string_view::npos) return 0;
  std::string dir(path.substr(0, slash));
  return tb_mkdir(dir.c_str(), 0755);
}

}  // namespace storegen
