// storegen-import: loads a store's tab-separated product and category
// databases into a SQLite file for the SQLite product library.
#include <cstdio>
#include <string>

#include "papi_sqlite/sqlite_import.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr,
                 "usage: storegen-import PRODUCT_DATABASE SQLITE_FILE\n"
                 "  Loads the tab-separated PRODUCT_DATABASE and its category database (the\n"
                 "  same name with the extension \".cdb\") into the tables \"products\" and\n"
                 "  \"categories\" of SQLITE_FILE, and copies its attribute database (\".adb\")\n"
                 "  beside SQLITE_FILE.\n");
    return 2;
  }
  std::string report, err;
  if (!storegen::ImportStore(argv[1], argv[2], &report, &err)) {
    std::fprintf(stderr, "storegen-import: %s\n", err.c_str());
    return 1;
  }
  std::fputs(report.c_str(), stdout);
  return 0;
}
