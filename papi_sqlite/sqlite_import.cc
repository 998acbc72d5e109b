#include "papi_sqlite/sqlite_import.h"

#include <unistd.h>

#include <filesystem>
#include <sqlite3.h>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "papi_sqlite/sqlite_util.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;

// How long the import waits for readers (a generation run) to let go.
constexpr int kBusyTimeoutMs = 60000;

// One import: the SQLite file, its connection and the first error met. It
// fills one table at a time from the reader of the text files.
class Importer : public TableWriter {
 public:
  Importer(sqlite3* db, std::string file) : db_(db), file_(std::move(file)) {}

  const std::string& error() const { return err_; }

  bool Exec(const std::string& sql) {
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK) return true;
    return Fail();
  }

  // Replaces |table| with the contents of the tab-separated file |path|.
  bool ImportTable(const std::string& path, const char* table, TableSummary* summary) {
    table_ = QuoteIdentifier(table);
    return ReadTextTable(path, this, summary, &err_) &&
           Exec("CREATE INDEX " + QuoteIdentifier(KeyIndexName(table)) + " ON " + table_ + " (" +
                QuoteIdentifier(key_) + " COLLATE NOCASE)");
  }

  bool Columns(const std::string& path, const std::vector<std::string>& names,
               std::string* err) override {
    if (RowIdAlias(names).empty()) {
      *err = path + ": columns rowid, _rowid_ and oid leave the table no row id";
      return false;
    }
    std::string create = "CREATE TABLE " + table_ + " (";
    std::string insert = "INSERT INTO " + table_ + " VALUES (";
    for (std::size_t i = 0; i < names.size(); ++i) {
      create += (i ? ", " : "") + QuoteIdentifier(names[i]) + " TEXT";
      insert += i ? ", ?" : "?";
    }
    key_ = names[0];
    columns_ = static_cast<int>(names.size());
    if (!Exec("DROP TABLE IF EXISTS " + table_) || !Exec(create + ")")) return false;
    sqlite3_stmt* raw = nullptr;
    int rc = sqlite3_prepare_v2(db_, (insert + ")").c_str(), -1, &raw, nullptr);
    insert_.reset(raw);
    return rc == SQLITE_OK || Fail();
  }

  bool Row(const PAPI_Pair* record, int /*line*/, std::string* /*err*/) override {
    sqlite3_stmt* stmt = insert_.get();
    for (int i = 0; i < columns_ && record[i].name != nullptr; ++i)
      sqlite3_bind_text(stmt, i + 1, record[i].value, -1, SQLITE_STATIC);
    if (sqlite3_step(stmt) != SQLITE_DONE) return Fail();
    sqlite3_reset(stmt);
    sqlite3_clear_bindings(stmt);
    return true;
  }

 private:
  // SQLite's last error, naming the file. The reader's |err| is err_ too.
  bool Fail() {
    err_ = file_ + ": " + sqlite3_errmsg(db_);
    return false;
  }

  sqlite3* db_;
  std::string file_;
  std::string err_;
  std::string table_;  // the table being filled, quoted
  std::string key_;    // its first column
  int columns_ = 0;
  SqliteStmt insert_;
};

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
  *report += DescribeTable("products", products, product_db);
  *report += have_categories ? DescribeTable("categories", categories, category_db)
                             : "categories: none (no " + category_db + ")\n";
  *report += adb_note + "imported into " + sqlite_file + "\n";
  return true;
}

}  // namespace storegen
