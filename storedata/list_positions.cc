#include "storedata/list_positions.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
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

// True when |path| is a SQLite database: every change to its products
// changes the file or its write-ahead log. A product library's other
// databases (the connection file of a database server, say) stay the same
// file while their products change.
bool IsSqliteFile(const std::string& path) {
  static constexpr char kMagic[] = "SQLite format 3";  // with its NUL: 16 bytes
  char head[sizeof kMagic] = {};
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  const bool sqlite = std::fread(head, 1, sizeof head, f) == sizeof head &&
                      std::memcmp(head, kMagic, sizeof head) == 0;
  std::fclose(f);
  return sqlite;
}

}  // namespace

bool CurrentListSource(const char* db, FILE* db_file, const char* lib, const char* api_cfg,
                       const std::string& set_file, ListSource* source) {
  source->db = db != nullptr ? db : "";
  source->lib = lib != nullptr ? lib : "";
  source->api_cfg = api_cfg != nullptr ? api_cfg : "";
  source->set_file = set_file;
  struct stat st;
  if (db_file != nullptr ? fstat(fileno(db_file), &st) != 0 : stat(source->db.c_str(), &st) != 0)
    return false;
  if (!S_ISREG(st.st_mode) || (db_file == nullptr && !IsSqliteFile(source->db))) return false;
  source->db_id = FileIdentity(st);
  if (ChangedRecently(source->db_id)) return false;
  // A SQLite database in write-ahead mode takes its changes in a file beside
  // it before they reach the database itself.
  return Identity(db_file != nullptr ? "" : source->db + "-wal", &source->wal_id) &&
         Identity(source->lib, &source->lib_id) && Identity(source->api_cfg, &source->api_id) &&
         Identity(source->set_file, &source->set_id);
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
