#include "papi_sqlite/sqlite_import.h"

#include <sqlite3.h>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::RunProgram;
using testing::ScopedTempDir;
using testing::WriteFile;

// The result of one query on |db| as text, "" when it fails.
std::string Query(const std::string& db, const char* sql) {
  sqlite3* conn = nullptr;
  std::string result;
  if (sqlite3_open_v2(db.c_str(), &conn, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_exec(
        conn, sql,
        [](void* out, int n, char** values, char**) {
          for (int i = 0; i < n; ++i)
            *static_cast<std::string*>(out) += std::string(values[i] ? values[i] : "NULL") + "|";
          return 0;
        },
        &result, nullptr);
  }
  sqlite3_close(conn);
  return result;
}

TEST(SqliteImportTest, RefusesMalformedInputAndLeavesNoFileBehind) {
  const std::string good = "SKU\tName\nA\t1\n";
  const struct {
    std::string products, categories, message;
  } cases[] = {
      {"", "", "products.txt: the file is empty"},
      {"\t\t\r\nA\n", "", "products.txt: the first line names no columns"},
      {"SKU\tName\tNAME\n", "", "column names \"Name\" and \"NAME\" are the same"},
      {"SKU\tName\nA\t" + std::string(2046, 'x') + "\r\n", "", "line 2 is longer than 2047 bytes"},
      {std::string("SKU\tName\nA\tx\0y\n", 15), "", "products.txt: line 2 holds a NUL byte"},
      {"SKU\tName\nA\t1\n\n\tnameless\n", "", "products.txt: line 4 has no SKU"},
      {"rowid\t_rowid_\tOID\n", "", "columns rowid, _rowid_ and oid leave the table no row id"},
      {good, "Category\n\nHome\n\tx\n", "products.cdb: line 4 has no SKU"}};
  for (const auto& c : cases) {
    ScopedTempDir dir;
    WriteFile(dir.Path("products.txt"), c.products);
    if (!c.categories.empty()) WriteFile(dir.Path("products.cdb"), c.categories);
    std::string report, err;
    EXPECT_FALSE(ImportStore(dir.Path("products.txt"), dir.Path("store.sqlite"), &report, &err));
    EXPECT_NE(err.find(c.message), std::string::npos) << err;
    EXPECT_FALSE(FileExists(dir.Path("store.sqlite"))) << c.message;
  }
  ScopedTempDir dir;
  std::string report, err;
  EXPECT_FALSE(ImportStore(dir.Path("none.txt"), dir.Path("store.sqlite"), &report, &err));
  EXPECT_EQ(err, "cannot read " + dir.Path("none.txt") + ": No such file or directory");
}

TEST(SqliteImportTest, ReplacesTablesAndAttributesOnlyWhenTheWholeImportSucceeds) {
  ScopedTempDir dir;
  std::string txt = dir.Path("data/products.txt"), db = dir.Path("out/store.sqlite");
  WriteFile(txt, "SKU\tName\nA1\tShirt\nB2\tHat\n");
  WriteFile(dir.Path("data/products.cdb"), "TILLBOXCATEGORY\nHome\n");
  WriteFile(dir.Path("data/products.adb"), "Size\tS\tselect\tS;M\n");
  WriteFile(dir.Path("out/keep.txt"), "");
  std::string report, err;
  ASSERT_TRUE(ImportStore(txt, db, &report, &err)) << err;
  EXPECT_EQ(report, "products: 2 rows, 2 columns from " + txt +
                        "\ncategories: 1 row, 1 columns from " + dir.Path("data/products.cdb") +
                        "\nattributes: " + dir.Path("data/products.adb") + " copied to " +
                        dir.Path("out/store.adb") + "\nimported into " + db + "\n");
  EXPECT_EQ(ReadFile(dir.Path("out/store.adb")), "Size\tS\tselect\tS;M\n");

  // A bad category database undoes the products too, and the old attributes stay.
  WriteFile(txt, "SKU\tName\nC3\tCoat\n");
  WriteFile(dir.Path("data/products.cdb"), "A\ta\n");
  WriteFile(dir.Path("data/products.adb"), "Colour\tC\tselect\tRed\n");
  EXPECT_FALSE(ImportStore(txt, db, &report, &err));
  EXPECT_EQ(Query(db, "SELECT * FROM products"), "A1|Shirt|B2|Hat|");
  EXPECT_EQ(ReadFile(dir.Path("out/store.adb")), "Size\tS\tselect\tS;M\n");
  EXPECT_EQ(testing::ListDir(dir.Path("out")),
            (std::vector<std::string>{"keep.txt", "store.adb", "store.sqlite"}));

  // Without a category database the categories table goes, as the store
  // then has no categories.
  testing::RemoveTree(dir.Path("data/products.cdb"));
  report.clear();
  ASSERT_TRUE(ImportStore(txt, db, &report, &err)) << err;
  EXPECT_NE(report.find("categories: none (no " + dir.Path("data/products.cdb") + ")\n"),
            std::string::npos);
  EXPECT_EQ(Query(db, "SELECT name FROM sqlite_master ORDER BY name"), "products|products_key|");
  EXPECT_EQ(Query(db, "SELECT * FROM products"), "C3|Coat|");
}

TEST(SqliteImportTest, ToolRefusesOnStandardErrorWithExitStatus1) {
  ScopedTempDir dir;
  WriteFile(dir.Path("p.txt"), "SKU\tsku\n");
  testing::RunResult r = RunProgram({STOREGEN_IMPORT_BIN, dir.Path("p.txt"), dir.Path("s.db")});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "storegen-import: " + dir.Path("p.txt") +
                       ": column names \"SKU\" and \"sku\" are the same without regard to case\n");
}

}  // namespace
}  // namespace storegen
