// Importing a store's tab-separated product and category databases into the
// tables of a PostgreSQL database, for the PostgreSQL product library.
#ifndef STOREGEN_PAPI_PG_PG_IMPORT_H_
#define STOREGEN_PAPI_PG_PG_IMPORT_H_

#include <string>

namespace storegen {

// Loads |product_db| into table "products" of the database that |conninfo|
// (a libpq URI or keyword=value string, without a password) names, and its
// category database, when that file exists, into table "categories"
// (dropped when it does not). Each table gets the column "storegen_row",
// which keeps the file's order, and the indexes "TABLE_order" on it and
// "TABLE_key" on its key column. Everything happens in one transaction: the
// new rows go into a table of their own, which takes the old table's place,
// name and privileges when both tables are complete, so that readers see the
// old rows until the commit and wait only for the swap. Imports into one
// database run one after the other. The attribute database stays a file;
// the report says so.
//
// Refused, with the reason in |err|: what ReadTextTable refuses, column
// names PostgreSQL cannot take as they are (longer than 63 bytes, or
// "storegen_row"), text that is not UTF-8 when the database's encoding is
// UTF8, a connection string with a password, and whatever the server
// refuses. Returns true with a summary appended to |report|; on false
// nothing was changed.
bool ImportIntoPostgres(const std::string& product_db, const std::string& conninfo,
                        std::string* report, std::string* err);

}  // namespace storegen

#endif  // STOREGEN_PAPI_PG_PG_IMPORT_H_
