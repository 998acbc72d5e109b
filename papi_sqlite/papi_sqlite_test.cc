// The SQLite product library through its C ABI (loaded with dlopen), held
// against storegen's built-in reader on the same data after an import.
#include <sqlite3.h>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "papi_sqlite/sqlite_import.h"
#include "tests/support/papi_conn.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::Api;
using testing::Conn;
using testing::kBuiltin;
using testing::Pairs;
using testing::ScopedTempDir;
using testing::WriteFile;
constexpr const char* kKey = PAPI_ACCESS_KEY;

// The library under test, loaded once per test process.
const Api& Sqlite() {
  static const Api api = testing::LoadApi(PAPI_SQLITE_LIB);
  return api;
}

class PapiSqliteTest : public ::testing::Test {
 protected:
  // Writes |text| as both the product and the category database and imports
  // them.
  void Import(const std::string& text) {
    WriteFile(txt_, text);
    WriteFile(dir_.Path("products.cdb"), text);
    std::string report, err;
    ASSERT_TRUE(ImportStore(txt_, db_, &report, &err)) << err;
  }

  ScopedTempDir dir_;
  std::string txt_ = dir_.Path("products.txt");
  std::string db_ = dir_.Path("store.sqlite");
};

TEST_F(PapiSqliteTest, RecordsMatchTheBuiltinReader) {
  for (const auto& [what, text] : testing::ReaderCases()) {
    Import(text);
    for (const char* db : {"products.txt", "products.cdb"}) {
      SCOPED_TRACE(std::string(what) + " / " + db);
      Conn builtin(kBuiltin, dir_.Path(db));
      Conn sqlite(Sqlite(), dir_.Path(db), db_);
      testing::ExpectSameRecords(sqlite, builtin);
    }
  }
}

TEST_F(PapiSqliteTest, IterationSurvivesLookupsAndResumesFromAnEarlierPosition) {
  Import("SKU\tName\nA\t1\nB\t2\nC\t3\nD\t4\n");
  for (const Api* api : {&kBuiltin, &Sqlite()}) {
    Conn conn(*api, txt_, db_);
    std::vector<std::string> skus;
    for (Pairs item = conn.First(); !item.empty(); item = conn.Next()) {
      skus.push_back(item[0].second);
      EXPECT_EQ(conn.Lookup("c"), (Pairs{{"SKU", "C"}, {"Name", "3"}}));
    }
    EXPECT_EQ(skus, (std::vector<std::string>{"A", "B", "C", "D"}));

    conn.First();
    int32_t after_a = conn.position;
    conn.Next();
    conn.Next();
    conn.position = after_a;
    EXPECT_EQ(conn.Next(), (Pairs{{"SKU", "B"}, {"Name", "2"}}));
    EXPECT_EQ(conn.Next(), (Pairs{{"SKU", "C"}, {"Name", "3"}}));
  }
}

TEST_F(PapiSqliteTest, MissingFileTableOrRowIdGivesNoHandle) {
  WriteFile(txt_, "SKU\tName\nA\t1\n");
  std::string report, err;
  ASSERT_TRUE(ImportStore(txt_, db_, &report, &err)) << err;  // no category database
  EXPECT_NE(Conn(Sqlite(), "", db_).handle(), nullptr);
  for (const auto& [db, file] : {std::pair<std::string, std::string>{".cdb", db_},
                                 {"p.txt", dir_.Path("none.sqlite")},
                                 {"p.txt", ""},
                                 {"p.txt", txt_}}) {  // the last is no database
    EXPECT_EQ(Conn(Sqlite(), db, file).handle(), nullptr) << db << " in " << file;
  }
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(db_.c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db,
                         "CREATE TABLE categories (Name TEXT PRIMARY KEY) WITHOUT ROWID;"
                         "DROP TABLE products;"
                         "CREATE TABLE products (id INTEGER, \"Name\" TEXT, Price REAL);"
                         "INSERT INTO products VALUES (7, NULL, 2.5);",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  EXPECT_EQ(Conn(Sqlite(), "x.CDB", db_).handle(), nullptr);
  // A table made by hand: NULL reads as "NA", numbers as their text.
  EXPECT_EQ(Conn(Sqlite(), "p", db_).Lookup("7"),
            (Pairs{{"id", "7"}, {"Name", "NA"}, {"Price", "2.5"}}));
}

TEST_F(PapiSqliteTest, CallsWithoutTheAccessKeyAreRefused) {
  Import("SKU\tName\nA\t1\n");
  const Api& api = Sqlite();
  const char* cfg = db_.c_str();
  EXPECT_EQ(api.init("qrst5821", "", "", cfg, ""), nullptr);
  EXPECT_EQ(api.init(nullptr, "", "", cfg, ""), nullptr);
  void* h = api.init(kKey, "", "", cfg, "");
  int32_t pos = 0;
  EXPECT_EQ(api.retrieve(h, "", "A", 1, "", "", cfg, "", nullptr), nullptr);
  EXPECT_EQ(api.first(h, "QRST5820", 1, "", "", cfg, "", &pos, nullptr), nullptr);
  EXPECT_EQ(api.next(h, nullptr, 1, "", "", cfg, "", &pos, nullptr), nullptr);
  PAPI_Pair* record = api.retrieve(h, kKey, "a", 1, "", "", cfg, "", nullptr);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(api.release(h, "bad", "", record), -1);
  EXPECT_EQ(api.release(h, kKey, "", record), 0);
  EXPECT_EQ(api.cleanup(h, "bad", "", "", cfg, ""), -1);
  EXPECT_EQ(api.cleanup(h, kKey, "", "", cfg, ""), 0);
}

}  // namespace
}  // namespace storegen
