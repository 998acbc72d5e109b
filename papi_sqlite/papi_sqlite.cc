// The SQLite product library: the six product-API entry points over one
// table of a read-only SQLite file. Only the entry points are exported.
#pragma GCC visibility push(default)
#include "papi_sqlite/papi_sqlite.h"
#pragma GCC visibility pop

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

#include "papi_sqlite/sqlite_util.h"

namespace storegen {
namespace {

constexpr int kMaxAttribs = 99;
constexpr char kNA[] = "NA";
// How long a reader waits for an import to commit.
constexpr int kBusyTimeoutMs = 10000;
constexpr sqlite3_int64 kBeforeFirstRow = std::numeric_limits<sqlite3_int64>::min();

bool KeyOk(const char* key) {
  return key != nullptr && std::strcmp(key, PAPI_ACCESS_KEY) == 0;
}

// The category database is the product database's path with ".cdb" in place
// of its extension; everything else is the product database.
const char* TableFor(const char* db) {
  std::string_view name = db != nullptr ? db : "";
  if (name.size() >= 4 && SameIgnoringAsciiCase(name.substr(name.size() - 4), ".cdb"))
    return kCategoriesTable;
  return kProductsTable;
}

char* CopyOf(const char* text) {
  std::size_t len = std::strlen(text);
  char* copy = static_cast<char*>(std::malloc(len + 1));
  if (copy != nullptr) std::memcpy(copy, text, len + 1);
  return copy;
}

void FreeRecord(PAPI_Pair* record) {
  if (record == nullptr) return;
  for (PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
    std::free(pair->name);
    std::free(pair->value);
  }
  std::free(record);
}

SqliteStmt Prepare(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr);
  return SqliteStmt(stmt);
}

// One PAPI_Initialization: the open file and the two queries on its table.
// Both queries select the row id first, then every column.
class Connection {
 public:
  // Null when the file cannot be opened as a database, or the table is
  // missing or has no row id.
  static std::unique_ptr<Connection> Open(const char* file, const char* table) {
    sqlite3* raw = nullptr;
    int rc = sqlite3_open_v2(file, &raw, SQLITE_OPEN_READONLY, nullptr);
    SqliteDb db(raw);
    if (rc != SQLITE_OK) return nullptr;
    sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);

    std::string from = " FROM " + QuoteIdentifier(table);
    SqliteStmt probe = Prepare(db.get(), "SELECT *" + from);
    if (probe == nullptr) return nullptr;
    std::vector<std::string> columns;
    for (int i = 0; i < sqlite3_column_count(probe.get()); ++i)
      columns.emplace_back(sqlite3_column_name(probe.get(), i));
    std::string rowid = RowIdAlias(columns);
    if (columns.empty() || rowid.empty()) return nullptr;

    auto c = std::unique_ptr<Connection>(new Connection);
    std::string select = "SELECT " + rowid + ", *" + from;
    c->walk_ = Prepare(db.get(), select + " WHERE " + rowid + " > ?1 ORDER BY " + rowid);
    c->lookup_ = Prepare(db.get(), select + " WHERE " + QuoteIdentifier(columns[0]) +
                                       " = ?1 COLLATE NOCASE ORDER BY " + rowid + " LIMIT 1");
    if (c->walk_ == nullptr || c->lookup_ == nullptr) return nullptr;
    c->columns_ = static_cast<int>(columns.size()) < kMaxAttribs ? static_cast<int>(columns.size())
                                                                 : kMaxAttribs;
    c->db_ = std::move(db);
    return c;
  }

  PAPI_Pair* Lookup(const char* sku, char** names) {
    sqlite3_stmt* stmt = lookup_.get();
    sqlite3_reset(stmt);
    sqlite3_bind_text(stmt, 1, sku, -1, SQLITE_TRANSIENT);
    PAPI_Pair* record = sqlite3_step(stmt) == SQLITE_ROW ? RecordOf(stmt, names) : nullptr;
    sqlite3_reset(stmt);
    return record;
  }

  PAPI_Pair* First(int32_t* position, char** names) {
    after_ = kBeforeFirstRow;
    walking_ = false;
    return Next(position, names, /*restart=*/true);
  }

  // Continues after the row last returned, or after the row id in *position
  // when the caller changed it since.
  PAPI_Pair* Next(int32_t* position, char** names, bool restart = false) {
    sqlite3_int64 from = after_;
    if (!restart && position != nullptr && *position != handed_out_) from = *position;
    sqlite3_stmt* stmt = walk_.get();
    if (!walking_ || from != after_) {
      sqlite3_reset(stmt);
      sqlite3_bind_int64(stmt, 1, from);
      walking_ = true;
    }
    if (sqlite3_step(stmt) != SQLITE_ROW) {
      // The end: reset so that no read transaction stays open.
      sqlite3_reset(stmt);
      walking_ = false;
      after_ = from;
      return nullptr;
    }
    after_ = sqlite3_column_int64(stmt, 0);
    // A row id beyond 32 bits is carried by after_; the position then only
    // has to come back unchanged.
    handed_out_ = static_cast<int32_t>(after_);
    if (position != nullptr) *position = handed_out_;
    return RecordOf(stmt, names);
  }

 private:
  Connection() = default;

  // The current row as a malloc'd record (column 0, the row id, left out):
  // every column, or with |names| each named one in the caller's spelling;
  // null when memory runs out.
  PAPI_Pair* RecordOf(sqlite3_stmt* stmt, char** names) const {
    int n = columns_;
    if (names != nullptr) {
      n = 0;
      while (n < kMaxAttribs && names[n] != nullptr)
        ++n;
    }
    auto* record = static_cast<PAPI_Pair*>(std::calloc(n + 1, sizeof(PAPI_Pair)));
    if (record == nullptr) return nullptr;
    for (int i = 0; i < n; ++i) {
      int column = names != nullptr ? ColumnOf(stmt, names[i]) : i + 1;
      const char* name = names != nullptr ? names[i] : sqlite3_column_name(stmt, column);
      const char* value = kNA;
      if (column > 0 && sqlite3_column_type(stmt, column) != SQLITE_NULL)
        value = reinterpret_cast<const char*>(sqlite3_column_text(stmt, column));
      if (name != nullptr) record[i].name = CopyOf(name);
      if (value != nullptr) record[i].value = CopyOf(value);
      if (record[i].name == nullptr || record[i].value == nullptr) {
        std::free(record[i].name);
        std::free(record[i].value);
        record[i] = PAPI_Pair{nullptr, nullptr};
        FreeRecord(record);
        return nullptr;
      }
    }
    return record;
  }

  // The statement column of the table column named |name| (ASCII case
  // ignored, any column, not only the first 99), or -1.
  static int ColumnOf(sqlite3_stmt* stmt, const char* name) {
    for (int i = 1; i < sqlite3_column_count(stmt); ++i) {
      const char* column = sqlite3_column_name(stmt, i);
      if (column != nullptr && SameIgnoringAsciiCase(column, name)) return i;
    }
    return -1;
  }

  SqliteDb db_;  // declared first, so closed after its statements are finalised
  SqliteStmt walk_;
  SqliteStmt lookup_;
  int columns_ = 0;
  bool walking_ = false;  // walk_ stands right after the row after_
  sqlite3_int64 after_ = kBeforeFirstRow;
  int32_t handed_out_ = 0;  // what the caller's position was last set to
};

Connection* AsConnection(void* h) {
  return static_cast<Connection*>(h);
}

}  // namespace
}  // namespace storegen

using storegen::AsConnection;
using storegen::KeyOk;

// No exception may cross the C boundary: out of memory inside the library
// reads as "no record" (or "no connection").
extern "C" {

void* PAPI_Initialization(const char* key, const char* db, const char* /*storeCfg*/,
                          const char* apiCfg, const char* /*cartDir*/) {
  if (!KeyOk(key) || apiCfg == nullptr || *apiCfg == '\0') return nullptr;
  try {
    return storegen::Connection::Open(apiCfg, storegen::TableFor(db)).release();
  } catch (...) {
    return nullptr;
  }
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int /*flag*/,
                             const char* /*db*/, const char* /*storeCfg*/, const char* /*apiCfg*/,
                             const char* /*cartDir*/, char** names) {
  if (h == nullptr || !KeyOk(key) || sku == nullptr) return nullptr;
  return AsConnection(h)->Lookup(sku, names);
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int /*flag*/, const char* /*db*/,
                                  const char* /*storeCfg*/, const char* /*apiCfg*/,
                                  const char* /*cartDir*/, int32_t* position, char** names) {
  if (h == nullptr || !KeyOk(key)) return nullptr;
  return AsConnection(h)->First(position, names);
}

PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* key, int /*flag*/, const char* /*db*/,
                                 const char* /*storeCfg*/, const char* /*apiCfg*/,
                                 const char* /*cartDir*/, int32_t* position, char** names) {
  if (h == nullptr || !KeyOk(key)) return nullptr;
  return AsConnection(h)->Next(position, names);
}

int PAPI_ReleaseInfo(void* /*h*/, const char* key, const char* /*sku*/, PAPI_Pair* record) {
  if (!KeyOk(key)) return -1;
  storegen::FreeRecord(record);
  return 0;
}

int PAPI_Cleanup(void* h, const char* key, const char* /*db*/, const char* /*storeCfg*/,
                 const char* /*apiCfg*/, const char* /*cartDir*/) {
  if (!KeyOk(key)) return -1;
  delete AsConnection(h);
  return 0;
}

}  // extern "C"
