/*
 * libstoregen_papi_sqlite.so: a product library that serves a store's
 * products and categories from one SQLite file. It exports exactly the six
 * entry points of storedata/papi.h, with C linkage, and links nothing of
 * storegen's; this header only states how it maps the calls onto the file.
 *
 *  - The SQLite file is the one named by the API configuration argument
 *    (the store's ProductAPILibConfig). It is opened read-only; a connection
 *    without that argument, or whose file cannot be opened, gets NULL.
 *  - The database argument chooses the table: one whose name ends in ".cdb"
 *    (the category database, ASCII case ignored) reads table "categories",
 *    any other (the product database, or "") reads table "products". A
 *    missing table, or a table without a row id (WITHOUT ROWID, views), gives
 *    NULL from PAPI_Initialization.
 *  - A record holds the table's columns in their declared order and letter
 *    case, at most the first 99 of them; each value is the column's text,
 *    "NA" for NULL. With a list of names, the record holds those columns in
 *    the list's order and spelling, "NA" for a name the table lacks.
 *    Records are malloc'd as papi.h requires.
 *  - Items come in row-id order. *position holds the row id of the item
 *    returned last, so single lookups between two items do not disturb the
 *    iteration; without a position the connection remembers where it is.
 *  - A single lookup compares the table's first column with the SKU under
 *    COLLATE NOCASE (ASCII case folding); the row with the lowest row id wins
 *    when several match. An index on that column with that collation (the
 *    import tool makes "products_key" and "categories_key") keeps it fast.
 *  - Every entry point refuses calls without the access key: the retrieval
 *    calls and PAPI_Initialization give NULL, PAPI_ReleaseInfo and
 *    PAPI_Cleanup release nothing and return -1.
 */
#ifndef STOREGEN_PAPI_SQLITE_PAPI_SQLITE_H_
#define STOREGEN_PAPI_SQLITE_PAPI_SQLITE_H_

#include "storedata/papi.h"

#endif /* STOREGEN_PAPI_SQLITE_PAPI_SQLITE_H_ */
