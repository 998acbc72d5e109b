#include "pagegen/html_page.h"

#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/file_identity.h"
#include "storedata/sku_list.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using namespace testing;

TEST(PageNames, ContinuationPagesNumberTheLastComponent) {
  struct {
    const char* path;
    int page;
    const char* name;
  } cases[] = {
      {"shop/list.html", 0, "shop/list.html"},    {"shop/list.html", 2, "shop/list2.html"},
      {"shop/list.html", 13, "shop/list13.html"}, {"a.b/list", 2, "a.b/list"},
      {"a.b\\l.x.htm", 1, "a.b\\l.x1.htm"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(PageFileName(c.path, c.page), c.name) << c.path << " " << c.page;
}

TEST(PageNames, CategoryDatabaseBesideTheProductDatabase) {
  EXPECT_EQ(CategoryDbPath("/shop/data/products.txt"), "/shop/data/products.cdb");
  EXPECT_EQ(CategoryDbPath("/shop/data.d/products"), "/shop/data.d/products.cdb");
  EXPECT_EQ(CategoryDbPath(""), ".cdb");
}

class HtmlPageTest : public PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    WriteFile(tmpl_, "<title><!--PAGEGEN_STORENAME--></title>%%PRODUCT.NAME%%\n");
  }

  std::string tmpl_ = dir_.Path("page.html");
};

TEST_F(HtmlPageTest, StaticPageIsWrittenInPlaceAndListed) {
  std::string out = dir_.Path("www/shop/about.html");
  EXPECT_EQ(GenerateHtmlPage(tmpl_.c_str(), out.c_str(), nullptr, ctx_), 0);
  EXPECT_EQ(ReadFile(out), "<title>Corner Shop</title>%%PRODUCT.NAME%%\n");
  EXPECT_EQ(ListDir(dir_.Path("www/shop")), std::vector<std::string>{"about.html"});
  EXPECT_EQ(Entries(PageGenState.dellist), out + "=0\n");
}

TEST_F(HtmlPageTest, ProductNodeGivesTheRecord) {
  PAPI_Pair record[] = {Pair("NAME", "Kettle"), Pair(nullptr, nullptr)};
  SkuList node{const_cast<char*>("K1"), const_cast<char*>("page.html"), record, nullptr, nullptr};
  std::string out = dir_.Path("p-K1.html");
  EXPECT_EQ(GenerateHtmlPage(tmpl_.c_str(), out.c_str(), &node, ctx_), 0);
  EXPECT_EQ(ReadFile(out), "<title>Corner Shop</title>Kettle\n");

  // Without a template the product is skipped and reported.
  EXPECT_EQ(GenerateHtmlPage(nullptr, out.c_str(), &node, ctx_), 0);
  EXPECT_EQ(Entries(PageGenState.errlist), "K1=-15\n");
}

TEST_F(HtmlPageTest, Failures) {
  std::string missing = dir_.Path("missing.html");
  EXPECT_EQ(GenerateHtmlPage(missing.c_str(), dir_.Path("a.html").c_str(), nullptr, ctx_), -7);
  WriteFile(dir_.Path("file"), "");
  EXPECT_EQ(GenerateHtmlPage(tmpl_.c_str(), dir_.Path("file/a.html").c_str(), nullptr, ctx_), -8);
  // A failing page keeps the older one in place.
  std::string out = dir_.Path("old.html");
  WriteFile(out, "old");
  EXPECT_EQ(GenerateHtmlPage(dir_.path().c_str(), out.c_str(), nullptr, ctx_), -10);
  EXPECT_EQ(ReadFile(out), "old");
  EXPECT_EQ(ListDir(dir_.path()),
            (std::vector<std::string>{"file", "old.html", "page.html", "store.cfg"}));
}

// A settled template's text and the store configuration's values are kept
// between pages: every kind of change to the files must still show on the
// next page.
TEST_F(HtmlPageTest, KeptTemplateAndConfigurationFollowEveryChange) {
  std::string out = dir_.Path("page-out.html");
  auto page = [&] {
    EXPECT_EQ(GenerateHtmlPage(tmpl_.c_str(), out.c_str(), nullptr, ctx_), 0);
    return ReadFile(out);
  };
  WriteFile(tmpl_, "A:<!--PAGEGEN_STORENAME-->\n");
  g_settle_clock_ahead = 3;  // old enough to be kept
  EXPECT_EQ(page(), "A:Corner Shop\n");
  EXPECT_EQ(page(), "A:Corner Shop\n");

  // Edits of the same size, by an administrator, in place.
  WriteFile(tmpl_, "B:<!--PAGEGEN_STORENAME-->\n");
  WriteFile(cfg_, "ShopName\tCorner Shoq\n");
  EXPECT_EQ(page(), "B:Corner Shoq\n");

  // New files renamed over the old ones.
  WriteFile(tmpl_ + ".new", "C:<!--PAGEGEN_STORENAME-->\n");
  WriteFile(cfg_ + ".new", "ShopName\tCorner Shor\n");
  ASSERT_EQ(std::rename((tmpl_ + ".new").c_str(), tmpl_.c_str()), 0);
  ASSERT_EQ(std::rename((cfg_ + ".new").c_str(), cfg_.c_str()), 0);
  EXPECT_EQ(page(), "C:Corner Shor\n");

  // A template that went away is missed at once.
  ASSERT_EQ(std::remove(tmpl_.c_str()), 0);
  EXPECT_EQ(GenerateHtmlPage(tmpl_.c_str(), out.c_str(), nullptr, ctx_), -7);
  g_settle_clock_ahead = 0;
}

}  // namespace
}  // namespace storegen
