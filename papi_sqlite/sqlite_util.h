// Small SQLite helpers shared by the SQLite product library and the import
// tool: owners for connections and statements, identifier quoting, and the
// layout both agree on (one table per database, keyed by its first column).
// Header-only, so that the library links nothing of storegen's.
#ifndef STOREGEN_PAPI_SQLITE_SQLITE_UTIL_H_
#define STOREGEN_PAPI_SQLITE_SQLITE_UTIL_H_

#include <memory>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <vector>

#include "storedata/papi_record.h"

namespace storegen {

// The table that holds the product database, and the one that holds the
// category database.
inline constexpr const char kProductsTable[] = "products";
inline constexpr const char kCategoriesTable[] = "categories";

struct SqliteCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct SqliteFinalizer {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using SqliteDb = std::unique_ptr<sqlite3, SqliteCloser>;
using SqliteStmt = std::unique_ptr<sqlite3_stmt, SqliteFinalizer>;

// |name| as an SQL identifier: in double quotes, inner quotes doubled.
inline std::string QuoteIdentifier(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

// The first of SQLite's three names for the row id that no column of the
// table shadows, or "" when all three are taken (the rows then cannot be
// walked in insertion order).
inline std::string RowIdAlias(const std::vector<std::string>& columns) {
  for (const char* alias : {"rowid", "_rowid_", "oid"}) {
    bool taken = false;
    for (const std::string& column : columns)
      taken = taken || SameIgnoringAsciiCase(column, alias);
    if (!taken) return alias;
  }
  return "";
}

// The name of the index on a table's key column (its first column, compared
// with COLLATE NOCASE).
inline std::string KeyIndexName(std::string_view table) {
  return std::string(table) + "_key";
}

}  // namespace storegen

#endif  // STOREGEN_PAPI_SQLITE_SQLITE_UTIL_H_
