// The SQLite product library: the six product-API entry points over one
// table of a read-only SQLite file. Only the entry points are exported.
#include "papi_sqlite/papi_sqlite.h"

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

// How long a reader waits for an import to commit.
constexpr int kBusyTimeoutMs = 10000;
constexpr sqlite3_int64 kBeforeFirstRow = std::numeric_limits<sqlite3_int64>::min();

// The category database is the product database's path with ".cdb" in place
// of its extension; everything else is the product database.
const char* TableFor(const char* db) {
  return IsCategoryDatabase(db) ? kCategoriesTable : kProductsTable;
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
  // A connection to the table of |database| in the SQLite file |api_cfg|.
  static std::unique_ptr<Connection> Open(const char* database, const char* api_cfg) {
    const char* table = TableFor(database);
    sqlite3* raw = nullptr;
    int rc = sqlite3_open_v2(api_cfg, &raw, SQLITE_OPEN_READONLY, nullptr);
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
    c->columns_ = static_cast<int>(columns.size());
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
    return MakePapiRecord(
        columns_, names, [&](int i) { return sqlite3_column_name(stmt, i + 1); },
        [&](const char* name) { return ColumnOf(stmt, name); },
        [&](int column) {
          return sqlite3_column_type(stmt, column + 1) == SQLITE_NULL
                     ? nullptr
                     : reinterpret_cast<const char*>(sqlite3_column_text(stmt, column + 1));
        });
  }

  // The table column named |name| (ASCII case ignored, any column, not only
  // the first 99), or -1.
  static int ColumnOf(sqlite3_stmt* stmt, const char* name) {
    for (int i = 1; i < sqlite3_column_count(stmt); ++i) {
      const char* column = sqlite3_column_name(stmt, i);
      if (column != nullptr && SameIgnoringAsciiCase(column, name)) return i - 1;
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

}  // namespace

using LibraryConnection = Connection;

}  // namespace storegen

#include "storedata/papi_entry_points.h"
