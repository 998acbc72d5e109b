// Importing a store's tab-separated product and category databases into one
// SQLite file for the SQLite product library.
#ifndef STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_
#define STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_

#include <string>

#include "import/text_table.h"

namespace storegen {

// Loads |product_db| into table "products" of |sqlite_file| (created when
// missing) and its category database, when that file exists, into table
// "categories" (dropped when it does not), each with a key index on its
// first column, all in one transaction that replaces what the tables held.
// The attribute database of |product_db| is copied to that of |sqlite_file|,
// where a store whose ProductDatabase names the SQLite file looks for it.
//
// Refused, with the reason in |err|: what ReadTextTable refuses, and column
// names that leave the table no row id (rowid, _rowid_ and oid). Returns true with a summary
// appended to |report|. On false nothing was changed (a SQLite file the import created is removed),
// unless |err| says that only the attribute database could not be put in place.
bool ImportStore(const std::string& product_db, const std::string& sqlite_file, std::string* report,
                 std::string* err);

}  // namespace storegen

#endif  // STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_
