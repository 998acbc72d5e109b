#include "papi_sqlite/sqlite_import.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <new>
#include <sqlite3.h>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "papi_sqlite/sqlite_util.h"
#include "storedata/product_db.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;

constexpr const char* kKey = PAPI_ACCESS_KEY;
// How long the import waits for readers (a generation run) to let go.
constexpr int kBusyTimeoutMs = 60000;

struct ReaderCloser {
  void operator()(void* h) const { storegen::PAPI_Cleanup(h, kKey, "", "", "", ""); }
};
struct RecordReleaser {
  void operator()(PAPI_Pair* record) const {
    storegen::PAPI_ReleaseInfo(nullptr, kKey, "", record);
  }
};
using Reader = std::unique_ptr<void, ReaderCloser>;
using Record = std::unique_ptr<PAPI_Pair, RecordReleaser>;

struct TableSummary {
  int rows = 0;
  int columns = 0;
  int ignored_columns = 0;  // names after the 99th, which the reader drops
};

// Checks that the built-in reader takes every line of |path| whole (longer
// lines it would cut into several products) and fills |ends| with the offset
// just past each line, for turning the reader's positions into line numbers.
bool ScanLines(const std::string& path, std::vector<long>* ends, std::string* err) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *err = "cannot read " + path + ": " + std::strerror(errno);
    return false;
  }
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t start = 0;
  for (int line = 1; start < text.size(); ++line) {
    std::size_t nl = text.find('\n', start);
    std::size_t content_end = nl == std::string::npos ? text.size() : nl;
    std::size_t end = nl == std::string::npos ? text.size() : nl + 1;
    while (content_end > start && text[content_end - 1] == '\r')
      --content_end;
    if (content_end - start > static_cast<std::size_t>(kProductLineSize - 1)) {
      *err = path + ": line " + std::to_string(line) + " is longer than " +
             std::to_string(kProductLineSize - 1) + " bytes";
      return false;
    }
    if (std::memchr(text.data() + start, '\0', end - start) != nullptr) {
      *err = path + ": line " + std::to_string(line) + " holds a NUL byte";
      return false;
    }
    ends->push_back(static_cast<long>(end));
    start = end;
  }
  return true;
}

int LineAt(const std::vector<long>& ends, long position) {
  return static_cast<int>(std::lower_bound(ends.begin(), ends.end(), position) - ends.begin()) + 1;
}

// The column names as the reader takes them from the name line (at most 99),
// checked to be usable as the columns of one table.
bool ColumnNames(void* h, const std::string& path, std::vector<std::string>* names,
                 TableSummary* summary, std::string* err) {
  std::vector<char> line(kProductLineSize);
  if (!GetNameLine(line.data(), kProductLineSize, static_cast<FILE*>(h))) {
    *err = path + ": the file is empty (its first line must name the columns)";
    return false;
  }
  PAPI_Pair pairs[kMaxProductAttribs + 1] = {};
  int n = GetAllAttribName(line.data(), pairs);
  for (PAPI_Pair& pair : pairs) {
    if (pair.name != nullptr) names->emplace_back(pair.name);
    std::free(pair.name);
  }
  if (n < 0) throw std::bad_alloc();
  if (names->empty()) {
    *err = path + ": the first line names no columns";
    return false;
  }
  int total = 0;
  for (const char* p = line.data(); *p != '\0';) {
    p += std::strspn(p, psz_Tab);
    if (*p != '\0') ++total;
    p += std::strcspn(p, psz_Tab);
  }
  summary->columns = static_cast<int>(names->size());
  summary->ignored_columns = total - summary->columns;
  for (std::size_t i = 0; i < names->size(); ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (SameIgnoringAsciiCase((*names)[i], (*names)[j])) {
        *err = path + ": column names \"" + (*names)[j] + "\" and \"" + (*names)[i] +
               "\" are the same without regard to case";
        return false;
      }
    }
  }
  if (RowIdAlias(*names).empty()) {
    *err = path + ": columns rowid, _rowid_ and oid leave the table no row id";
    return false;
  }
  return true;
}

// One import: the SQLite file, its connection and the first error met.
class Importer {
 public:
  Importer(sqlite3* db, std::string file) : db_(db), file_(std::move(file)) {}

  const std::string& error() const { return err_; }

  bool Exec(const std::string& sql) {
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    return Fail(file_ + ": " + sqlite3_errmsg(db_));
  }

  bool Fail(std::string message) {
    err_ = std::move(message);
    return false;
  }

  // Replaces |table| with the contents of the tab-separated file |path|.
  bool ImportTable(const std::string& path, const char* table, TableSummary* summary) {
    std::vector<long> ends;
    if (!ScanLines(path, &ends, &err_)) return false;
    Reader reader(storegen::PAPI_Initialization(kKey, path.c_str(), "", "", ""));
    if (reader == nullptr) return Fail("cannot read " + path + ": " + std::strerror(errno));
    std::vector<std::string> names;
    if (!ColumnNames(reader.get(), path, &names, summary, &err_)) return false;

    std::string quoted_table = QuoteIdentifier(table);
    std::string create = "CREATE TABLE " + quoted_table + " (";
    std::string insert = "INSERT INTO " + quoted_table + " VALUES (";
    for (std::size_t i = 0; i < names.size(); ++i) {
      create += (i ? ", " : "") + QuoteIdentifier(names[i]) + " TEXT";
      insert += i ? ", ?" : "?";
    }
    if (!Exec("DROP TABLE IF EXISTS " + quoted_table) || !Exec(create + ")")) return false;
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db_, (insert + ")").c_str(), -1, &raw, nullptr) != SQLITE_OK)
      return Fail(file_ + ": " + sqlite3_errmsg(db_));
    SqliteStmt stmt(raw);

    int32_t position = 0;
    PAPI_Pair* next =
        storegen::PAPI_RetrieveFirstItem(reader.get(), kKey, 1, "", "", "", "", &position, nullptr);
    while (next != nullptr) {
      Record record(next);
      const PAPI_Pair* pairs = record.get();
      if (pairs[0].name == nullptr || pairs[0].value[0] == '\0')
        return Fail(path + ": line " + std::to_string(LineAt(ends, position)) + " has no SKU");
      for (std::size_t i = 0; i < names.size() && pairs[i].name != nullptr; ++i)
        sqlite3_bind_text(stmt.get(), static_cast<int>(i + 1), pairs[i].value, -1, SQLITE_STATIC);
      if (sqlite3_step(stmt.get()) != SQLITE_DONE) return Fail(file_ + ": " + sqlite3_errmsg(db_));
      sqlite3_reset(stmt.get());
      sqlite3_clear_bindings(stmt.get());
      ++summary->rows;
      record.reset();  // every record goes back before the next is asked for
      next = storegen::PAPI_RetrieveNextItem(reader.get(), kKey, 1, "", "", "", "", &position,
                                             nullptr);
    }
    return Exec("CREATE INDEX " + QuoteIdentifier(KeyIndexName(table)) + " ON " + quoted_table +
                " (" + QuoteIdentifier(names[0]) + " COLLATE NOCASE)");
  }

 private:
  sqlite3* db_;
  std::string file_;
  std::string err_;
};

std::string Describe(const char* what, const TableSummary& s, const std::string& path) {
  std::string line = std::string(what) + ": " + std::to_string(s.rows) +
                     (s.rows == 1 ? " row, " : " rows, ") + std::to_string(s.columns) +
                     " columns from " + path;
  if (s.ignored_columns > 0)
    line += " (" + std::to_string(s.ignored_columns) + " columns after the 99th left out)";
  return line + "\n";
}

// Copies the attribute database to a temporary name beside its destination,
// to be renamed into place once the tables are committed. Sets |staged| to
// that name, or leaves it empty when there is nothing to copy.
bool StageAttributeDb(const std::string& from, const std::string& to, std::string* staged,
                      std::string* note, std::string* err) {
  std::error_code ec;
  if (!fs::exists(from, ec)) {
    *note = "attributes: none (no " + from + ")" +
            (fs::exists(to, ec) ? "; " + to + " left as it was" : std::string()) + "\n";
    return true;
  }
  if (fs::exists(to, ec) && fs::equivalent(from, to, ec)) {
    *note = "attributes: " + to + " (already beside the SQLite file)\n";
    return true;
  }
  std::string tmp = to + ".import-" + std::to_string(getpid());
  if (!fs::copy_file(from, tmp, fs::copy_options::overwrite_existing, ec)) {
    *err = "cannot copy " + from + " to " + tmp + ": " + ec.message();
    fs::remove(tmp, ec);
    return false;
  }
  *staged = tmp;
  *note = "attributes: " + from + " copied to " + to + "\n";
  return true;
}

}  // namespace

std::string CategoryDbPathOf(std::string_view product_db) {
  std::size_t slash = product_db.find_last_of("/\\");
  std::size_t dot = product_db.rfind('.');
  if (dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash))
    product_db = product_db.substr(0, dot);
  return std::string(product_db) + ".cdb";
}

std::string AttributeDbPathOf(std::string_view product_db) {
  return std::string(product_db.substr(0, product_db.rfind('.'))) + ".adb";
}

bool ImportStore(const std::string& product_db, const std::string& sqlite_file, std::string* report,
                 std::string* err) {
  std::error_code ec;
  bool existed = fs::exists(sqlite_file, ec);
  sqlite3* raw = nullptr;
  int rc = sqlite3_open_v2(sqlite_file.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                           nullptr);
  SqliteDb db(raw);
  std::string staged;
  // Undoes everything but a committed transaction.
  auto fail = [&](const std::string& message) {
    *err = message;
    if (!staged.empty()) fs::remove(staged, ec);
    db.reset();  // an open transaction is rolled back on closing
    if (!existed) fs::remove(sqlite_file, ec);
    return false;
  };
  if (rc != SQLITE_OK)
    return fail("cannot open " + sqlite_file + ": " + (raw ? sqlite3_errmsg(raw) : "no memory"));
  sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);

  std::string category_db = CategoryDbPathOf(product_db);
  std::string adb_to = AttributeDbPathOf(sqlite_file);
  bool have_categories = fs::exists(category_db, ec);
  TableSummary products, categories;
  std::string adb_note;
  Importer importer(db.get(), sqlite_file);
  try {
    if (!importer.Exec("BEGIN IMMEDIATE") ||
        !importer.ImportTable(product_db, kProductsTable, &products) ||
        !(have_categories ? importer.ImportTable(category_db, kCategoriesTable, &categories)
                          : importer.Exec(std::string("DROP TABLE IF EXISTS ") + kCategoriesTable)))
      return fail(importer.error());
    std::string why;
    if (!StageAttributeDb(AttributeDbPathOf(product_db), adb_to, &staged, &adb_note, &why))
      return fail(why);
    if (!importer.Exec("COMMIT")) return fail(importer.error());
  } catch (const std::exception& e) {
    return fail(std::string("import failed: ") + e.what());
  }
  if (!staged.empty()) {
    fs::rename(staged, adb_to, ec);
    if (ec) {
      *err = "the tables are imported into " + sqlite_file + ", but " + staged +
             " could not be renamed to " + adb_to + ": " + ec.message();
      return false;
    }
  }
  *report += Describe("products", products, product_db);
  *report += have_categories ? Describe("categories", categories, category_db)
                             : "categories: none (no " + category_db + ")\n";
  *report += adb_note + "imported into " + sqlite_file + "\n";
  return true;
}

}  // namespace storegen
