// The import into PostgreSQL: what only a database server refuses, and
// tables replaced whole, with the privileges an operator granted on them.
#include "papi_pg/pg_import.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/pg_server.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::PgServer;
using testing::ScopedTempDir;
using testing::WriteFile;

TEST(PgImportTest, RefusalsChangeNothing) {
  ScopedTempDir dir;
  PgServer& server = PgServer::Get();
  std::string conninfo = server.FreshSchema("refusals"), txt = dir.Path("products.txt");
  WriteFile(txt, "SKU\tName\nA1\tShirt\n");
  std::string report, err;
  ASSERT_TRUE(ImportIntoPostgres(txt, conninfo, &report, &err)) << err;
  const struct {
    std::string products, categories, message;
  } cases[] = {
      {"SKU\tstoregen_row\n", "",
       "products.txt: column name \"storegen_row\" is the one that keeps the rows' order"},
      {"SKU\t" + std::string(64, 'n') + "\n", "", "is longer than 63 bytes"},
      {"SKU\tName\nB\tok\nC\tcaf\xe9\n", "",
       "products.txt: line 3 is not UTF-8, the database's encoding"},
      {"SKU\tName\nB\t1\n", "Category\n\tx\n", "products.cdb: line 2 has no SKU"},
  };
  for (const auto& c : cases) {
    WriteFile(txt, c.products);
    WriteFile(dir.Path("products.cdb"), c.categories);
    if (c.categories.empty()) testing::RemoveTree(dir.Path("products.cdb"));
    EXPECT_FALSE(ImportIntoPostgres(txt, conninfo, &report, &err));
    EXPECT_NE(err.find(c.message), std::string::npos) << err;
    EXPECT_EQ(server.Query(conninfo, "SELECT * FROM products"), "1|A1|Shirt|") << c.message;
  }
}

TEST(PgImportTest, ReplacesTablesKeepingTheirPrivileges) {
  ScopedTempDir dir;
  PgServer& server = PgServer::Get();
  std::string conninfo = server.FreshSchema("replace"), txt = dir.Path("products.txt");
  server.Query(conninfo,
               "DROP ROLE IF EXISTS storefront; CREATE ROLE storefront;"
               " GRANT USAGE ON SCHEMA replace TO storefront");
  WriteFile(txt, "SKU\tName\nA1\tShirt\n");
  WriteFile(dir.Path("products.cdb"), "TILLBOXCATEGORY\nHome\n");
  std::string report, err;
  ASSERT_TRUE(ImportIntoPostgres(txt, conninfo, &report, &err)) << err;
  server.Query(conninfo, "GRANT SELECT ON products TO storefront");

  // New columns, no category database and no attribute database.
  WriteFile(txt, "SKU\tName\tPrice\nB2\tHat\t5\nC3\tCoat\t9\n");
  testing::RemoveTree(dir.Path("products.cdb"));
  report.clear();
  ASSERT_TRUE(ImportIntoPostgres(txt, conninfo, &report, &err)) << err;
  EXPECT_EQ(report.substr(0, report.find("imported into")),
            "products: 2 rows, 3 columns from " + txt + "\ncategories: none (no " +
                dir.Path("products.cdb") + ")\nattributes: none (no " + dir.Path("products.adb") +
                ")\n");
  EXPECT_EQ(server.Query(conninfo,
                         "SELECT \"SKU\", has_table_privilege('storefront', 'products', 'SELECT'),"
                         " to_regclass('categories') IS NULL FROM products ORDER BY storegen_row"),
            "B2|t|t|C3|t|t|");
  EXPECT_EQ(server.Query(conninfo,
                         "SELECT indexname FROM pg_indexes WHERE schemaname = 'replace'"
                         " ORDER BY indexname"),
            "products_key|products_order|");
}

}  // namespace
}  // namespace storegen
