#include "storedata/list_positions.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "cgisupport/str_util.h"

namespace storegen {
namespace {

constexpr std::size_t kMaxSources = 4;

struct Kept {
  ListSource source;
  std::shared_ptr<ListPositions> positions;
};

struct KeptPositions {
  bool kept = false;
  std::vector<Kept> sources;  // the most recently used last
};

KeptPositions& State() {
  static auto* state = new KeptPositions();
  return *state;
}

// The identity of the file at |path| ("" and a missing file: none). False
// when the file changed too recently to be vouched for.
bool Identity(const std::string& path, FileIdentity* id) {
  *id = FileIdentity();
  struct stat st;
  if (path.empty()) return true;
  if (stat(path.c_str(), &st) != 0) return errno == ENOENT || errno == ENOTDIR;
  *id = FileIdentity(st);
  return !ChangedRecently(*id);
}

// True when |path| names a SQLite database file.
bool IsSqliteFile(const std::string& path) {
  static constexpr char kHeader[] = "SQLite format 3";  // and its NUL: 16 bytes
  if (path.empty()) return false;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char head[sizeof kHeader];
  const bool sqlite = pread(fd, head, sizeof head, 0) == static_cast<ssize_t>(sizeof head) &&
                      std::memcmp(head, kHeader, sizeof head) == 0;
  close(fd);
  return sqlite;
}

}  // namespace

bool CurrentListSource(const char* db, FILE* db_file, const char* lib, const char* api_cfg,
                       const std::string& set_file, ListSource* source) {
  source->db = db != nullptr ? db : "";
  source->lib = lib != nullptr ? lib : "";
  source->api_cfg = api_cfg != nullptr ? api_cfg : "";
  source->set_file = set_file;
  if (!Identity(source->lib, &source->lib_id) || !Identity(source->set_file, &source->set_id))
    return false;
  if (db_file != nullptr) {
    struct stat st;
    if (fstat(fileno(db_file), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    source->db_id = FileIdentity(st);
    return !ChangedRecently(source->db_id) && Identity(source->api_cfg, &source->api_id);
  }
  // A product library's products are vouched for by file identities only
  // when they are in a SQLite file (the database or the library's
  // configuration): a server's tables change while every file stays the
  // same. In write-ahead mode, changes go to a file beside it first.
  if (!IsSqliteFile(source->db) && !IsSqliteFile(source->api_cfg)) return false;
  auto wal = [](const std::string& path) { return path.empty() ? path : path + "-wal"; };
  return Identity(source->db, &source->db_id) && Identity(wal(source->db), &source->wal_id) &&
         Identity(source->api_cfg, &source->api_id) &&
         Identity(wal(source->api_cfg), &source->api_wal_id);
}

void ListPositions::Add(int32_t before, const char* category) {
  before_.push_back(before);
  int32_t id = -1;
  if (category != nullptr) {
    auto [it, added] =
        ids_.try_emplace(AsciiLowered(category), static_cast<int32_t>(names_.size()));
    if (added) names_.push_back(it->first);
    id = it->second;
  }
  category_.push_back(id);
}

const std::vector<int32_t>& ListPositions::Of(const char* category) {
  if (category == nullptr || category[0] == '\0') return before_;
  std::string key = AsciiLowered(category);
  auto [it, added] = lists_.try_emplace(key);
  if (!added) return it->second;
  auto id = ids_.find(key);
  const int32_t wanted = id != ids_.end() ? id->second : -2;
  for (std::size_t i = 0; i < before_.size(); ++i) {
    if (category_[i] == -1 || category_[i] == wanted) it->second.push_back(before_[i]);
  }
  return it->second;
}

void SetListPositionsKept(bool kept) {
  State().kept = kept;
}

bool ListPositionsKept() {
  return State().kept;
}

std::shared_ptr<ListPositions> KeptListPositions(const ListSource& source) {
  auto& sources = State().sources;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    if (!(sources[i].source == source)) continue;
    std::rotate(sources.begin() + i, sources.begin() + i + 1, sources.end());
    return sources.back().positions;
  }
  return nullptr;
}

std::shared_ptr<ListPositions> KeepListPositions(const ListSource& source,
                                                 ListPositions positions) {
  auto& sources = State().sources;
  // A source whose files changed is replaced, not kept beside its old self.
  std::erase_if(sources, [&](const Kept& k) {
    return k.source.db == source.db && k.source.set_file == source.set_file;
  });
  if (sources.size() >= kMaxSources) sources.erase(sources.begin());
  sources.push_back({source, std::make_shared<ListPositions>(std::move(positions))});
  return sources.back().positions;
}

void ForgetListPositions() {
  State().sources.clear();
}

}  // namespace storegen
