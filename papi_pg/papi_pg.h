/*
 * libstoregen_papi_pg.so: a product library that serves a store's products
 * and categories from two tables of a PostgreSQL database. It exports
 * exactly the six entry points of storedata/papi.h, with C linkage, and
 * links nothing of storegen's; this header only states how it maps the
 * calls onto the database.
 *
 *  - The API configuration argument (the store's ProductAPILibConfig) names
 *    a file holding a libpq connection string: a URI
 *    ("postgresql://storefront@db1/acme") or keyword=value pairs
 *    ("host=db1 dbname=acme user=storefront"), on one or more lines; blank
 *    lines and lines starting with "#" are left out. An empty string uses
 *    libpq's defaults and PG* environment variables. A string with a
 *    password is refused: the password comes from ~/.pgpass (PGPASSFILE) or
 *    PGPASSWORD. The file is read at every PAPI_Initialization.
 *  - The database argument chooses the table: one whose name ends in ".cdb"
 *    (the category database, ASCII case ignored) reads table "categories",
 *    any other (the product database, or "") reads table "products". The
 *    tables are looked up through the session's search_path (a connection
 *    string may set it: options=-csearch_path=acme). A missing table gives
 *    NULL from PAPI_Initialization, without a message; so does a table
 *    without the column "storegen_row", which orders the rows, with one.
 *  - A record holds the table's columns but "storegen_row", in their
 *    declared order and letter case, at most the first 99 of them; each value
 *    is the column's text, "NA" for NULL. With a list of names, the record
 *    holds those columns in the list's order and spelling, "NA" for a name
 *    the table lacks. Records are malloc'd as papi.h requires.
 *  - Items come in "storegen_row" order, read a batch at a time. *position
 *    holds the "storegen_row" of the item returned last, so single lookups
 *    between two items do not disturb the iteration; without a position the
 *    connection remembers where it is. Every query stands alone: a row
 *    committed before it is seen.
 *  - A single lookup compares the table's first column but "storegen_row"
 *    with the SKU after ASCII case folding (lower(... COLLATE "C")); the row
 *    with the lowest "storegen_row" wins when several match. An index on
 *    that expression (the import tool makes "products_key" and
 *    "categories_key") keeps it fast.
 *  - Connections stay open between PAPI_Cleanup and the next
 *    PAPI_Initialization of the process with the same connection string (a
 *    few at most), so that a long-running process connects once; the
 *    library stays loaded after a dlclose, so that they survive a process
 *    that unloads it after each request. A query on a connection that was
 *    lost reconnects and is tried once more; when that fails too, or the
 *    server cannot be reached, the call gives NULL and says why on standard
 *    error ("PROGRAM: PostgreSQL product library: FILE: reason", a message
 *    not repeated while it stays the same).
 *  - Every entry point refuses calls without the access key: the retrieval
 *    calls and PAPI_Initialization give NULL, PAPI_ReleaseInfo and
 *    PAPI_Cleanup release nothing and return -1.
 */
#ifndef STOREGEN_PAPI_PG_PAPI_PG_H_
#define STOREGEN_PAPI_PG_PAPI_PG_H_

#include "storedata/papi.h"

#endif /* STOREGEN_PAPI_PG_PAPI_PG_H_ */
