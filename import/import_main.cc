// storegen-import: loads a store's tab-separated product and category
// databases into a SQLite file or a PostgreSQL database, for the product
// library that reads it.
#include <cstdio>
#include <string>
#include <string_view>

#ifdef STOREGEN_IMPORT_PG
#include "papi_pg/pg_import.h"
#endif
#ifdef STOREGEN_IMPORT_SQLITE
#include "papi_sqlite/sqlite_import.h"
#endif

namespace {

constexpr char kUsage[] =
    "usage: storegen-import PRODUCT_DATABASE SQLITE_FILE\n"
    "       storegen-import PRODUCT_DATABASE postgresql://[USER@]HOST[:PORT]/DATABASE[?...]\n"
    "       storegen-import PRODUCT_DATABASE pg:[KEYWORD=VALUE ...]\n"
    "  Loads the tab-separated PRODUCT_DATABASE and its category database (the\n"
    "  same name with the extension \".cdb\") into the tables \"products\" and\n"
    "  \"categories\" of SQLITE_FILE, or of the PostgreSQL database that a libpq\n"
    "  URI (postgresql:// or postgres://) or connection string (after \"pg:\";\n"
    "  empty: libpq's defaults) names; the password comes from ~/.pgpass or\n"
    "  PGPASSWORD. Into SQLITE_FILE, it copies the attribute database (\".adb\")\n"
    "  beside it.\n";

// The connection string in |target| when it names a PostgreSQL database;
// false when it names a SQLite file.
bool PostgresTarget(std::string_view target, std::string* conninfo) {
  if (target.starts_with("postgresql://") || target.starts_with("postgres://")) {
    *conninfo = target;
    return true;
  }
  if (!target.starts_with("pg:")) return false;
  *conninfo = target.substr(3);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs(kUsage, stderr);
    return 2;
  }
  std::string report, err, conninfo;
  bool postgres = PostgresTarget(argv[2], &conninfo);
  bool ok = false;
  if (postgres) {
#ifdef STOREGEN_IMPORT_PG
    ok = storegen::ImportIntoPostgres(argv[1], conninfo, &report, &err);
#else
    err = "this storegen-import was built without PostgreSQL (Debian: libpq-dev)";
#endif
  } else {
#ifdef STOREGEN_IMPORT_SQLITE
    ok = storegen::ImportStore(argv[1], argv[2], &report, &err);
#else
    err = "this storegen-import was built without SQLite (Debian: libsqlite3-dev)";
#endif
  }
  if (!ok) {
    std::fprintf(stderr, "storegen-import: %s\n", err.c_str());
    return 1;
  }
  std::fputs(report.c_str(), stdout);
  return 0;
}
