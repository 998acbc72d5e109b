#include "pagegen/list_blocks.h"

#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/file_identity.h"
#include "pagegen/category_index.h"
#include "pagegen/html_page.h"
#include "storedata/sku_list.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::Pair;
using testing::ReadFile;
using testing::WriteFile;

// A category database of "Tea" and "Coffee", served through the bound
// product-API entry points.
PAPI_Pair kTea[] = {Pair("TILLBOXCATEGORY", "Tea"), Pair(nullptr, nullptr)};
PAPI_Pair kCoffee[] = {Pair("TILLBOXCATEGORY", "Coffee"), Pair(nullptr, nullptr)};
PAPI_Pair* kCategories[] = {kTea, kCoffee};
int g_category_count = 2;
int g_category_lists = 0;  // calls of FirstCategory

PAPI_Pair* NextCategory(void*, const char*, int, const char*, const char*, const char*, const char*,
                        int32_t* position, char**) {
  return *position < g_category_count ? kCategories[(*position)++] : nullptr;
}
PAPI_Pair* FirstCategory(void* h, const char* key, int flag, const char* db, const char* cfg,
                         const char* api, const char* cart, int32_t* position, char** names) {
  *position = 0;
  ++g_category_lists;
  return NextCategory(h, key, flag, db, cfg, api, cart, position, names);
}

class ListBlockTest : public testing::PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    pdbRetrieveFirstItem = FirstCategory;
    pdbRetrieveNextItem = NextCategory;
    g_category_count = 2;
    cfg_ = dir_.Path("acme.cfg");
    WriteFile(cfg_, "CGIBinDirectory\t/cgi-bin\nPageGenProg\tstoregen\n");
    ctx_.store_cfg = cfg_.c_str();
    ctx_.product_lists = true;
  }

  // Products "P1", "P2" ... of |categories| ("": no category attribute).
  void Products(const std::vector<std::string>& categories) {
    const std::size_t n = categories.size();
    texts_.assign(2 * n, "");
    records_.assign(n, {});
    nodes_.assign(n, {});
    for (std::size_t i = 0; i < n; ++i) {
      texts_[2 * i] = "P" + std::to_string(i + 1);
      texts_[2 * i + 1] = categories[i];
      records_[i].push_back(Pair("SKU", texts_[2 * i].data()));
      if (!categories[i].empty())
        records_[i].push_back(Pair("TILLBOXCATEGORY", texts_[2 * i + 1].data()));
      records_[i].push_back(Pair(nullptr, nullptr));
      nodes_[i] = {nullptr, nullptr, records_[i].data(), i + 1 < n ? &nodes_[i + 1] : nullptr,
                   nullptr};
    }
    ctx_.sku_list = nodes_.data();
  }

  std::string Parse(const std::string& text, int* rc = nullptr) {
    return PageTest::Parse(text, rc, "list.html");
  }

  // Writes the pages of |text| as "list.html" and returns them, first page
  // first.
  std::vector<std::string> Pages(const std::string& text) {
    WriteFile(dir_.Path("list.tmpl"), text);
    return PagesOf(dir_.Path("list.tmpl"));
  }
  // |page| is the first page's path below the test directory.
  std::vector<std::string> PagesOf(const std::string& tmpl, int rc = 0,
                                   const std::string& page = "list.html") {
    const std::string path = dir_.Path(page);
    for (int n = 0; n < 10; ++n)
      std::remove(PageFileName(path, n).c_str());
    EXPECT_EQ(GenerateHtmlPage(tmpl.c_str(), path.c_str(), nullptr, ctx_), rc);
    std::vector<std::string> pages;
    for (int n = 0; FileExists(PageFileName(path, n)); ++n)
      pages.push_back(ReadFile(PageFileName(path, n)));
    EXPECT_EQ(CatList + ProdList, 0);
    return pages;
  }

  std::vector<std::string> texts_;
  std::vector<std::vector<PAPI_Pair>> records_;
  std::vector<SkuList> nodes_;
};

const char kPrev[] = "<A HREF=\"/shop/list.html\">&lt;&lt;</A>";

TEST_F(ListBlockTest, PagedListWritesEachPageWithItsLinks) {
  Products({"Tea", "Tea", "Tea", "Tea", "Tea", "Tea", "Tea"});
  const std::string block =
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=\"3\"-->[%%PRODUCT.SKU%%]"
      "<!--PAGEGEN_PRODUCTLIST_END-->|";
  EXPECT_EQ(Pages(block),
            (std::vector<std::string>{
                "[P1][P2][P3]<A HREF=\"/shop/list1.html\">&gt;&gt;</A>|",
                "[P4][P5][P6]" + std::string(kPrev) + "<A HREF=\"/shop/list2.html\">&gt;&gt;</A>|",
                "[P7]<A HREF=\"/shop/list1.html\">&lt;&lt;</A>|",
            }));

  // A last page that is exactly full has no "Next".
  Products({"Tea", "Tea", "Tea", "Tea", "Tea", "Tea"});
  EXPECT_EQ(Pages(block).back(), "[P4][P5][P6]" + std::string(kPrev) + "|");

  // The template set's page size wins; images are rewritten like links.
  set_.max_prod_per_page = 4;
  EXPECT_EQ(Pages("<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=3 Previous=p.gif Next=n.gif-->"
                  "%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->"),
            (std::vector<std::string>{
                "P1P2P3P4<A HREF=\"/shop/list1.html\"><IMG SRC=\"/shop/n.gif\" BORDER=0></A>",
                "P5P6<A HREF=\"/shop/list.html\"><IMG SRC=\"/shop/p.gif\" BORDER=0></A>"}));
}

// A page series in a subdirectory of the store: its paging links name the
// subdirectory, and each page keeps its own text-block caches (a cached
// list would otherwise repeat the first page's entries).
TEST_F(ListBlockTest, PageSeriesInASubdirectory) {
  Products({"Tea", "Tea", "Tea"});
  const std::string out_dir = dir_.path() + "/";
  ctx_.out_dir = out_dir.c_str();
  WriteFile(dir_.Path("list.tmpl"),
            "<!--PAGEGEN_TEXT_BEGIN--><!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=2-->"
            "%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END--><!--PAGEGEN_TEXT_END-->");
  const std::vector<std::string> pages = {
      "<!--PAGEGEN_TEXT_BEGIN-->P1P2<A HREF=\"/shop/sub/list1.html\">&gt;&gt;</A>"
      "<!--PAGEGEN_TEXT_END-->",
      "<!--PAGEGEN_TEXT_BEGIN-->P3<A HREF=\"/shop/sub/list.html\">&lt;&lt;</A>"
      "<!--PAGEGEN_TEXT_END-->"};
  EXPECT_EQ(PagesOf(dir_.Path("list.tmpl"), 0, "sub/list.html"), pages);
  EXPECT_EQ(PagesOf(dir_.Path("list.tmpl"), 0, "sub/list.html"), pages);  // from the caches
  EXPECT_TRUE(FileExists(dir_.Path("sub/list11.tmp")));
}

TEST_F(ListBlockTest, PageSizes) {
  Products(std::vector<std::string>(11, "Tea"));
  EXPECT_EQ(Parse("<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=-4-->%%PRODUCT.SKU%%"
                  "<!--PAGEGEN_PRODUCTLIST_END-->"),
            "P1P2P3P4P5P6P7P8P9P10P11");  // no paging
  EXPECT_EQ(Parse("<!--PAGEGEN_PRODUCTLIST_BEGIN-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->"),
            "P1P2P3P4P5P6P7P8P9P10<A HREF=\"/shop/list1.html\">&gt;&gt;</A>");
}

TEST_F(ListBlockTest, TwoListsOnAPageKeepTheirOwnPlaces) {
  Products({"Tea", "Coffee", "Tea", "Tea", "Coffee"});
  ctx_.page_path = "";
  EXPECT_EQ(Pages("<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=2-->%%PRODUCT.SKU%%"
                  "<!--PAGEGEN_PRODUCTLIST_END-->|"
                  "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=3-->%%PRODUCT.SKU%%"
                  "<!--PAGEGEN_PRODUCTLIST_END-->"),
            (std::vector<std::string>{
                "P1P2<A HREF=\"list1.html\">&gt;&gt;</A>|P1P2P3<A HREF=\"list1.html\">&gt;&gt;</A>",
                "P3P4<A HREF=\"list.html\">&lt;&lt;</A><A HREF=\"list2.html\">&gt;&gt;</A>|"
                "P4P5<A HREF=\"list.html\">&lt;&lt;</A>",
                "P5<A HREF=\"list1.html\">&lt;&lt;</A>|<A HREF=\"list1.html\">&lt;&lt;</A>"}));
}

TEST_F(ListBlockTest, CategoryFilter) {
  Products({"Tea", "Coffee", "tea", "Coffee"});
  const std::string block =
      "a<!--PAGEGEN_PRODUCTLIST_BEGIN-->[%%PRODUCT.SKU%%]<!--PAGEGEN_PRODUCTLIST_END-->b";
  ctx_.category = "TEA \t";
  EXPECT_EQ(Parse(block), "a[P1][P3]b");
  // A category without products: the block is read through without output.
  ctx_.category = "Cocoa";
  EXPECT_EQ(Parse(block), "ab");
  // A product without a category attribute cannot be filtered.
  Products({"Tea", ""});
  int rc = 0;
  Parse(block, &rc);
  EXPECT_EQ(rc, -11);
  // Pages that list no products leave the markers as comments.
  ctx_.product_lists = false;
  ctx_.sku_list = nullptr;
  EXPECT_EQ(Parse(block, &rc),
            "a<!--PAGEGEN_PRODUCTLIST_BEGIN-->[%%PRODUCT.SKU%%]<!--PAGEGEN_PRODUCTLIST_END-->b");
}

TEST_F(ListBlockTest, ListsServedByTheCartLinkThroughThePageGenerator) {
  Products({"Tea", "Tea", "Tea", "Tea", "Tea", "Tea", "Tea", "Tea"});
  ctx_.options |= kGenDynamicLists;
  ctx_.list_start = "2";  // the list handed over starts behind the first two
  ctx_.category = "Tea";
  const std::string block =
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=3-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->";
  EXPECT_EQ(Parse(block),
            "P1P2P3<A HREF=\"USERPROG#/cgi-bin/storegen?-c+acme.cfg+-C+Tea+-f+0\">&lt;&lt;</A>"
            "<A HREF=\"USERPROG#/cgi-bin/storegen?-c+acme.cfg+-C+Tea+-f+5\">&gt;&gt;</A>");
  // A negative start is the first page.
  ctx_.list_start = "-3";
  ctx_.category = nullptr;
  EXPECT_EQ(Parse(block),
            "P1P2P3<A HREF=\"USERPROG#/cgi-bin/storegen?-c+acme.cfg+-f+3\">&gt;&gt;</A>");
  EXPECT_EQ(DynamicProdListHref(cfg_.c_str(), "Tea & Co", -7),
            "USERPROG#/cgi-bin/storegen?-c+acme.cfg+-C+Tea%20%26%20Co+-f+0");
}

TEST_F(ListBlockTest, CategoryListWritesEachCategorysPage) {
  Products({"Tea", "Coffee", "Tea"});
  int db = 0;
  ctx_.cat_db = &db;
  ctx_.out_dir = "out/";
  WriteFile("cat.tmpl",
            "<!--PAGEGEN_PRODUCTLIST_BEGIN-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->");
  const std::string block =
      "<!--PAGEGEN_CATEGORYLIST_BEGIN CategoryTemplate=\"cat.tmpl\"-->"
      "<a href=\"PG_CATEGORYFILE#\">x</a><!--PAGEGEN_CATEGORYLIST_END-->";
  EXPECT_EQ(Parse(block),
            "<a href=\"/shop/c-Tea.html\">x</a><a href=\"/shop/c-Coffee.html\">x</a>");
  EXPECT_EQ(ReadFile("out/c-Tea.html"), "P1P3");
  EXPECT_EQ(ReadFile("out/c-Coffee.html"), "P2");
  EXPECT_STREQ(PageGenState.szTemplateFile, "cat.tmpl");

  // Served by the cart: no category pages; the cart learns the template.
  testing::RemoveTree("out");
  ctx_.options |= kGenDynamicLists;
  Parse(block);
  EXPECT_FALSE(FileExists("out"));
  EXPECT_NE(ReadFile(cfg_).find("PageGenCategoryListTplt\tcat.tmpl\n"), std::string::npos);

  // A template that does not exist is passed over.
  ctx_.options = kGenRewriteLinks;
  EXPECT_EQ(Parse("<!--PAGEGEN_CATEGORYLIST_BEGIN CategoryTemplate=none.tmpl-->"
                  "%%PRODUCT.SKU%%<!--PAGEGEN_CATEGORYLIST_END-->"),
            "%%PRODUCT.SKU%%%%PRODUCT.SKU%%");
  EXPECT_FALSE(FileExists("out"));

  g_category_count = 0;
  int rc = 0;
  EXPECT_EQ(Parse("a" + block + "b", &rc), "a");
  EXPECT_EQ(rc, -11);
}

// A category's pages take its products from the index of the list: the
// same pages as filtering the whole list, page after page.
TEST_F(ListBlockTest, CategoryIndexGivesTheFilteredListsPages) {
  const std::string text =
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=2-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->|"
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=3-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->";
  for (const char* category : {"tea ", "COFFEE", "Cocoa"}) {
    Products({"Tea", "Coffee", "tea", "Tea", "Coffee", "TEA", "Tea", "coffee"});
    ctx_.category = category;
    ctx_.categories = nullptr;
    const std::vector<std::string> expected = Pages(text);
    CategoryIndex index(ctx_.sku_list);
    ctx_.categories = &index;
    EXPECT_EQ(Pages(text), expected) << category;
  }
  // A product without a category stops filtering with an error, where the
  // list reaches it.
  Products({"Tea", "Tea", "Tea", ""});
  ctx_.category = "Tea";
  CategoryIndex index(ctx_.sku_list);
  ctx_.categories = &index;
  int rc = 0;
  EXPECT_EQ(Parse("<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=2-->%%PRODUCT.SKU%%"
                  "<!--PAGEGEN_PRODUCTLIST_END-->",
                  &rc),
            "P1P2<A HREF=\"/shop/list1.html\">&gt;&gt;</A>");
  EXPECT_EQ(rc, 0);
  Parse(
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=9-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->",
      &rc);
  EXPECT_EQ(rc, -11);
  ctx_.categories = nullptr;
}

// A category list placed in a page of a series writes the same text on
// every page; it is written once and repeated while nothing it came from
// changed. The pages must be what writing the list on every page gives.
TEST_F(ListBlockTest, CategoryListRepeatedOnTheLaterPagesOfASeries) {
  Products({"Tea", "Coffee", "Tea", "Coffee", "Tea"});
  int db = 0;
  ctx_.cat_db = &db;
  ctx_.page_path = "";
  const std::string cats =
      "<!--PAGEGEN_CATEGORYLIST_BEGIN--><a href=\"PG_CATEGORYFILE#\">c</a>"
      "<!--PAGEGEN_CATEGORYLIST_END-->";
  const std::string list =
      "<!--PAGEGEN_PRODUCTLIST_BEGIN MaxPerPage=2-->%%PRODUCT.SKU%%<!--PAGEGEN_PRODUCTLIST_END-->";
  struct Case {
    std::string text;
    int rc;
    int lists;         // category lists run for the 3 pages
    int lists_reused;  // of them, repeated from the page before
  } cases[] = {
      {"<h1>" + cats + "</h1>" + list + "<p>end</p>", 0, 3, 2},
      {cats + "|" + list + "|" + cats + "|", 0, 6, 4},
      // Each category's products, page by page: never repeated.
      {"<!--PAGEGEN_CATEGORYLIST_BEGIN-->{" + list + "}<!--PAGEGEN_CATEGORYLIST_END-->" + list, 0,
       3, 0},
      // Unresolved category tags enter the error list on every page.
      {"<!--PAGEGEN_CATEGORYLIST_BEGIN-->%%CATEGORY.TITLE%%<!--PAGEGEN_CATEGORYLIST_END-->" + list,
       -18, 3, 0},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i)
    WriteFile(dir_.Path("t" + std::to_string(i)), cases[i].text);
  const std::string categories = dir_.Path("products.cdb");
  WriteFile(categories, "TILLBOXCATEGORY\nTea\nCoffee\n");
  // Template texts are kept between pages once they have settled.
  g_settle_clock_ahead = 3;
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const std::string tmpl = dir_.Path("t" + std::to_string(i));
    // Without a category database file to watch, every page runs its lists.
    ctx_.cat_db_path = "";
    g_category_lists = 0;
    const std::vector<std::string> expected = PagesOf(tmpl, cases[i].rc);
    const std::string errors = Errors();
    FreeFileList(PageGenState.errlist);
    PageGenState.errlist = nullptr;
    EXPECT_EQ(expected.size(), 3u) << i;
    EXPECT_EQ(g_category_lists, cases[i].lists) << i;

    ctx_.cat_db_path = categories.c_str();  // a file that has settled
    g_category_lists = 0;
    EXPECT_EQ(PagesOf(tmpl, cases[i].rc), expected) << i;
    EXPECT_EQ(Errors(), errors) << i;
    EXPECT_EQ(g_category_lists, cases[i].lists - cases[i].lists_reused) << i;
    FreeFileList(PageGenState.errlist);
    PageGenState.errlist = nullptr;
  }
  g_settle_clock_ahead = 0;
}

}  // namespace
}  // namespace storegen
