// The SQLite product library through its C ABI (loaded with dlopen), held
// against storegen's built-in reader on the same data after an import.
#include <dlfcn.h>

#include <cctype>
#include <cstdlib>
#include <sqlite3.h>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "papi_sqlite/sqlite_import.h"
#include "storedata/product_db.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;
using Pairs = std::vector<std::pair<std::string, std::string>>;
constexpr const char* kKey = PAPI_ACCESS_KEY;

struct Api {
  PAPI_InitializationFn init;
  PAPI_RetrieveInfoFn retrieve;
  PAPI_ReleaseInfoFn release;
  PAPI_RetrieveItemFn first, next;
  PAPI_CleanupFn cleanup;
};
const Api kBuiltin = {&storegen::PAPI_Initialization,   &storegen::PAPI_RetrieveInfo,
                      &storegen::PAPI_ReleaseInfo,      &storegen::PAPI_RetrieveFirstItem,
                      &storegen::PAPI_RetrieveNextItem, &storegen::PAPI_Cleanup};

// The library under test, loaded once per test process.
const Api& Sqlite() {
  static void* lib = dlopen(PAPI_SQLITE_LIB, RTLD_NOW | RTLD_LOCAL);
  static const Api api = {
      reinterpret_cast<PAPI_InitializationFn>(dlsym(lib, "PAPI_Initialization")),
      reinterpret_cast<PAPI_RetrieveInfoFn>(dlsym(lib, "PAPI_RetrieveInfo")),
      reinterpret_cast<PAPI_ReleaseInfoFn>(dlsym(lib, "PAPI_ReleaseInfo")),
      reinterpret_cast<PAPI_RetrieveItemFn>(dlsym(lib, "PAPI_RetrieveFirstItem")),
      reinterpret_cast<PAPI_RetrieveItemFn>(dlsym(lib, "PAPI_RetrieveNextItem")),
      reinterpret_cast<PAPI_CleanupFn>(dlsym(lib, "PAPI_Cleanup"))};
  return api;
}

// One connection of either implementation, used as the generator uses it.
class Conn {
 public:
  Conn(const Api& api, const std::string& db, const std::string& api_cfg = "")
      : api_(api), h_(api.init(kKey, db.c_str(), "", api_cfg.c_str(), "")) {}
  ~Conn() {
    if (h_ != nullptr) api_.cleanup(h_, kKey, "", "", "", "");
  }
  void* handle() const { return h_; }

  Pairs Take(PAPI_Pair* record) {
    Pairs pairs;
    for (PAPI_Pair* p = record; p != nullptr && p->name != nullptr; ++p)
      pairs.emplace_back(p->name, p->value);
    api_.release(h_, kKey, "", record);
    return pairs;
  }
  Pairs Lookup(const std::string& sku, char** names = nullptr) {
    return Take(api_.retrieve(h_, kKey, sku.c_str(), 1, "", "", "", "", names));
  }
  Pairs First() { return Take(api_.first(h_, kKey, 1, "", "", "", "", &position, nullptr)); }
  Pairs Next() { return Take(api_.next(h_, kKey, 1, "", "", "", "", &position, nullptr)); }
  std::vector<Pairs> All() {
    std::vector<Pairs> items;
    for (Pairs item = First(); !item.empty(); item = Next())
      items.push_back(item);
    return items;
  }

  int32_t position = 0;

 private:
  const Api& api_;
  void* h_;
};

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
  std::string wide_names, wide_values;
  for (int i = 0; i < 120; ++i) {
    wide_names += "Col" + std::to_string(i) + "\t";
    wide_values += "v" + std::to_string(i) + "\t";
  }
  const std::pair<const char*, std::string> cases[] = {
      {"CRLF, short lines, empty fields, empty lines",
       "SKU\tName\t\tPrice\r\nA1\tShirt\r\n\r\nB2\t\t9.99\t\r\n\nC3\t\t\r\nNA\tNA\tNA\r\n"},
      {"repeated SKUs in other letter case", "SKU\tName\nA1\tfirst\na1\tsecond\nb2\tx\nB2\ty\n"},
      {"only a name line", "SKU\tName\n"},
      {"120 columns", wide_names + "\n" + wide_values + "\nshort\n"},
      {"no line end at the end", "Sku\tname\tPRICE\nZ9\tlast\t1"},
      {"a line of 2047 bytes", "SKU\tName\r\nA\t" + std::string(2045, 'x') + "\r\nB\tb\r\n"}};
  char* wanted[] = {const_cast<char*>("price"), const_cast<char*>("NoSuch"),
                    const_cast<char*>("sku"), nullptr};
  for (const auto& [what, text] : cases) {
    Import(text);
    for (const char* db : {"products.txt", "products.cdb"}) {
      SCOPED_TRACE(std::string(what) + " / " + db);
      Conn builtin(kBuiltin, dir_.Path(db));
      Conn sqlite(Sqlite(), dir_.Path(db), db_);
      ASSERT_NE(sqlite.handle(), nullptr);
      std::vector<Pairs> items = builtin.All();
      EXPECT_EQ(sqlite.All(), items);
      items.push_back({{"SKU", "missing"}});
      for (const Pairs& item : items) {
        std::string sku = item[0].second, lower = sku;
        for (char& c : lower)
          c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        for (const std::string& key : {sku, lower}) {
          EXPECT_EQ(sqlite.Lookup(key), builtin.Lookup(key)) << key;
          EXPECT_EQ(sqlite.Lookup(key, wanted), builtin.Lookup(key, wanted)) << key;
        }
      }
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
