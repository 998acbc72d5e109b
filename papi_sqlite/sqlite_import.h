// Importing a store's tab-separated product and category databases into one
// SQLite file for the SQLite product library. The rows are read through
// storegen's own built-in reader, so that the library serves exactly the
// records the text files give, and pages come out the same.
#ifndef STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_
#define STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_

#include <string>
#include <string_view>

namespace storegen {

// The category database of |product_db| as the page generators name it:
// everything from the last "." of the file name replaced by ".cdb" (".cdb"
// appended when the name has none).
std::string CategoryDbPathOf(std::string_view product_db);

// The attribute database of |product_db| as storegen's start-up names it:
// everything from the path's last "." replaced by ".adb" (appended when the
// path has no ".").
std::string AttributeDbPathOf(std::string_view product_db);

// Loads |product_db| into table "products" of |sqlite_file| (created when
// missing) and its category database, when that file exists, into table
// "categories" (dropped when it does not), each with a key index on its
// first column, all in one transaction that replaces what the tables held.
// The attribute database of |product_db| is copied to that of |sqlite_file|,
// where a store whose ProductDatabase names the SQLite file looks for it.
//
// Refused, with the reason in |err|: unreadable files, a file without
// column names, column names repeated (ASCII case aside), lines longer than
// the reader takes whole (2047 bytes) or holding a NUL byte, and rows
// without a SKU. Returns true with a summary appended to |report|. On false
// nothing was changed (a SQLite file the import created is removed), unless
// |err| says that only the attribute database could not be put in place.
bool ImportStore(const std::string& product_db, const std::string& sqlite_file, std::string* report,
                 std::string* err);

}  // namespace storegen

#endif  // STOREGEN_PAPI_SQLITE_SQLITE_IMPORT_H_
