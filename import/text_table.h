// Reading a store's tab-separated product and category databases for an
// import into a database's tables. Every import target (a SQLite file, a
// PostgreSQL database) reads through here, so the checks and their messages
// are the same for all. The rows are read with storegen's own built-in
// reader, so that a product library over the tables serves exactly the
// records the text files give, and pages come out the same.
#ifndef STOREGEN_IMPORT_TEXT_TABLE_H_
#define STOREGEN_IMPORT_TEXT_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "storedata/papi.h"

namespace storegen {

struct TableSummary {
  int rows = 0;
  int columns = 0;
  int ignored_columns = 0;  // names after the 99th, which the reader drops
};

// Where one table's rows go.
class TableWriter {
 public:
  virtual ~TableWriter() = default;
  // The column names of the file |path| (at most 99, distinct without
  // regard to ASCII case), before any row. False, with the whole message in
  // |err|, stops: a name the target cannot take, or the target's failure.
  virtual bool Columns(const std::string& path, const std::vector<std::string>& names,
                       std::string* err) = 0;
  // One row, |line| of the file: |record| holds a pair per column, in the
  // columns' order, with a SKU. False, with the whole message in |err|,
  // stops.
  virtual bool Row(const PAPI_Pair* record, int line, std::string* err) = 0;
};

// Reads the tab-separated database |path| into |writer|, counting in
// |summary|. Refused, with the reason in |err| (naming |path|): an unreadable
// file, a file without column names, column names repeated (ASCII case
// aside), lines longer than the reader takes whole (2047 bytes) or holding a
// NUL byte, and rows without a SKU; or what |writer| refuses.
bool ReadTextTable(const std::string& path, TableWriter* writer, TableSummary* summary,
                   std::string* err);

// The report line of one table: "products: 2 rows, 3 columns from PATH".
std::string DescribeTable(const char* what, const TableSummary& summary, const std::string& path);

// The category database of |product_db| as the page generators name it:
// everything from the last "." of the file name replaced by ".cdb" (".cdb"
// appended when the name has none).
std::string CategoryDbPathOf(std::string_view product_db);

// The attribute database of |product_db| as storegen's start-up names it:
// everything from the path's last "." replaced by ".adb" (appended when the
// path has no ".").
std::string AttributeDbPathOf(std::string_view product_db);

}  // namespace storegen

#endif  // STOREGEN_IMPORT_TEXT_TABLE_H_
