#include "cgisupport/config_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/config_line.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"

namespace storegen {
namespace {

struct FileCloser {
  void operator()(FILE* fp) const { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

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

}  // namespace

int GetConfigItem(const char* file, const char* key, char* value_buf, int buf_size,
                  int must_exist) {
  if (file == nullptr || key == nullptr) return -1;
  FilePtr fp(std::fopen(file, "r"));
  if (!fp) return -1;
  std::vector<char> line(kConfigLineSize);
  while (std::fgets(line.data(), kConfigLineSize, fp.get()) != nullptr) {
    ConfigLineTokens tokens = SplitConfigLine(line.data());
    if (tokens.value.empty() || !KeysEqual(key, tokens.key)) continue;
    if (value_buf != nullptr && buf_size > 0) {
      CopyTruncated(value_buf, static_cast<std::size_t>(buf_size), tokens.value);
      value_buf[buf_size - 1] = '\0';
    }
    return 1;
  }
  return must_exist == 1 ? -2 : 0;
}

int BackupFile(const char* path, char* backup_name_out) {
  if (path == nullptr || !Exists(path)) return 0;
  std::string backup = BackupNameOf(path);
  std::remove(backup.c_str());
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
    old.reset(std::fopen(file, "r"));
    if (!old) return -1;
  }

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
