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
  PAPI_RetrieveItemFn first;
  PAPI_RetrieveItemFn next;
  PAPI_CleanupFn cleanup;
};

const Api kBuiltin = {&storegen::PAPI_Initialization,   &storegen::PAPI_RetrieveInfo,
                      &storegen::PAPI_ReleaseInfo,      &storegen::PAPI_RetrieveFirstItem,
                      &storegen::PAPI_RetrieveNextItem, &storegen::PAPI_Cleanup};

// The library under test, loaded once per test process.
const Api& Sqlite() {
  static const Api api = [] {
    void* lib = dlopen(PAPI_SQLITE_LIB, RTLD_NOW | RTLD_LOCAL);
    if (lib == nullptr) {
      ADD_FAILURE() << dlerror();
      std::abort();
    }
    auto sym = [lib](const char* name) { return dlsym(lib, name); };
    return Api{reinterpret_cast<PAPI_InitializationFn>(sym("PAPI_Initialization")),
               reinterpret_cast<PAPI_RetrieveInfoFn>(sym("PAPI_RetrieveInfo")),
               reinterpret_cast<PAPI_ReleaseInfoFn>(sym("PAPI_ReleaseInfo")),
               reinterpret_cast<PAPI_RetrieveItemFn>(sym("PAPI_RetrieveFirstItem")),
               reinterpret_cast<PAPI_RetrieveItemFn>(sym("PAPI_RetrieveNextItem")),
               reinterpret_cast<PAPI_CleanupFn>(sym("PAPI_Cleanup"))};
  }();
  return api;
}

// One connection of either implementation, used as the generator uses it.
class Conn {
 public:
  Conn(const Api& api, std::string db, std::string api_cfg = "")
      : api_(api), db_(std::move(db)), cfg_(std::move(api_cfg)) {
    h_ = api_.init(kKey, db_.c_str(), "", cfg_.c_str(), "");
  }
  ~Conn() {
    if (h_ != nullptr) api_.cleanup(h_, kKey, db_.c_str(), "", cfg_.c_str(), "");
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
    return Take(api_.retrieve(h_, kKey, sku.c_str(), 1, db_.c_str(), "", cfg_.c_str(), "", names));
  }
  Pairs First() {
    return Take(api_.first(h_, kKey, 1, db_.c_str(), "", cfg_.c_str(), "", &position, nullptr));
  }
  Pairs Next() {
    return Take(api_.next(h_, kKey, 1, db_.c_str(), "", cfg_.c_str(), "", &position, nullptr));
  }
  std::vector<Pairs> All() {
    std::vector<Pairs> items;
    for (Pairs item = First(); !item.empty(); item = Next())
      items.push_back(item);
    return items;
  }

  int32_t position = 0;

 private:
  const Api& api_;
  std::string db_, cfg_;
  void* h_ = nullptr;
};

std::string Folded(std::string text, int (*fold)(int)) {
  for (char& c : text)
    c = static_cast<char>(fold(static_cast<unsigned char>(c)));
  return text;
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
      {"a line of 2047 bytes", "SKU\tName\r\nA\t" + std::string(2045, 'x') + "\r\nB\tb\r\n"},
  };
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
        for (const std::string& sku : {item[0].second, Folded(item[0].second, ::tolower),
                                       Folded(item[0].second, ::toupper)}) {
          EXPECT_EQ(sqlite.Lookup(sku), builtin.Lookup(sku)) << sku;
          EXPECT_EQ(sqlite.Lookup(sku, wanted), builtin.Lookup(sku, wanted)) << sku;
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
  EXPECT_NE(Conn(Sqlite(), "products.txt", db_).handle(), nullptr);
  EXPECT_NE(Conn(Sqlite(), "", db_).handle(), nullptr);
  EXPECT_EQ(Conn(Sqlite(), ".cdb", db_).handle(), nullptr);
  EXPECT_EQ(Conn(Sqlite(), "products.txt", dir_.Path("none.sqlite")).handle(), nullptr);
  EXPECT_EQ(Conn(Sqlite(), "products.txt", "").handle(), nullptr);
  EXPECT_EQ(Conn(Sqlite(), "products.txt", txt_).handle(), nullptr);  // not a database

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
  EXPECT_EQ(api.init("qrst5821", "p", "", cfg, ""), nullptr);
  EXPECT_EQ(api.init(nullptr, "p", "", cfg, ""), nullptr);
  void* h = api.init(kKey, "p", "", cfg, "");
  ASSERT_NE(h, nullptr);
  int32_t pos = 0;
  EXPECT_EQ(api.retrieve(h, "", "A", 1, "p", "", cfg, "", nullptr), nullptr);
  EXPECT_EQ(api.first(h, "QRST5820", 1, "p", "", cfg, "", &pos, nullptr), nullptr);
  EXPECT_EQ(api.next(h, nullptr, 1, "p", "", cfg, "", &pos, nullptr), nullptr);
  PAPI_Pair* record = api.retrieve(h, kKey, "a", 1, "p", "", cfg, "", nullptr);
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(api.release(h, "bad", "", record), -1);
  EXPECT_EQ(api.release(h, kKey, "", record), 0);
  EXPECT_EQ(api.cleanup(h, "bad", "p", "", cfg, ""), -1);
  EXPECT_EQ(api.cleanup(h, kKey, "p", "", cfg, ""), 0);
}

}  // namespace
}  // namespace storegen
