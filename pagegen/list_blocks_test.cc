#include "pagegen/list_blocks.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/runstate/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/html_page.h"
#include "pagegen/template_parser.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

// A category database of "Tea" and "Coffee", served through the bound
// product-API entry points.
PAPI_Pair kTea[] = {{const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("Tea")},
                    {nullptr, nullptr}};
PAPI_Pair kCoffee[] = {{const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("Coffee")},
                       {nullptr, nullptr}};
PAPI_Pair* kCategories[] = {kTea, kCoffee};
int g_category_count = 2;

PAPI_Pair* NextCategory(void*, const char*, int, const char*, const char*, const char*, const char*,
                        int32_t* position, char**) {
  return *position < g_category_count ? kCategories[(*position)++] : nullptr;
}
PAPI_Pair* FirstCategory(void* h, const char* key, int flag, const char* db, const char* cfg,
                         const char* api, const char* cart, int32_t* position, char** names) {
  *position = 0;
  return NextCategory(h, key, flag, db, cfg, api, cart, position, names);
}

class ListBlockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    g_template_nesting = CatList = ProdList = 0;
    pdbRetrieveFirstItem = FirstCategory;
    pdbRetrieveNextItem = NextCategory;
    g_category_count = 2;
    WriteFile(cfg_, "CGIBinDirectory\t/cgi-bin\nPageGenProg\tstoregen\n");
    ctx_.store_cfg = cfg_.c_str();
    ctx_.page_path = "/shop/";
    ctx_.set = &set_;
    ctx_.options = kGenRewriteLinks;
    ctx_.product_lists = true;
  }
  void TearDown() override {
    FreeFileList(PageGenState.dellist);
    pdbRetrieveFirstItem = pdbRetrieveNextItem = nullptr;
    ResetRunState();
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
      records_[i].push_back({const_cast<char*>("SKU"), texts_[2 * i].data()});
      if (!categories[i].empty())
        records_[i].push_back({const_cast<char*>("TILLBOXCATEGORY"), texts_[2 * i + 1].data()});
      records_[i].push_back({nullptr, nullptr});
      nodes_[i] = {nullptr, nullptr, records_[i].data(), i + 1 < n ? &nodes_[i + 1] : nullptr};
    }
    ctx_.sku_list = nodes_.data();
  }

  std::string Parse(const std::string& text, int* rc = nullptr) {
    std::string page;
    int result = ParseTemplateText(text, ctx_, &page, "list.html");
    if (rc != nullptr) *rc = result;
    EXPECT_EQ(g_template_nesting, 0);
    EXPECT_EQ(CatList + ProdList, 0);
    return page;
  }

  // Writes the pages of |text| as "list.html" and returns them, first page
  // first.
  std::vector<std::string> Pages(const std::string& text) {
    for (int n = 0; n < 10; ++n)
      std::remove(PageFileName(dir_.Path("list.html"), n).c_str());
    WriteFile(dir_.Path("list.tmpl"), text);
    EXPECT_EQ(GenerateHtmlPage(dir_.Path("list.tmpl").c_str(), dir_.Path("list.html").c_str(),
                               nullptr, ctx_),
              0);
    std::vector<std::string> pages;
    for (int n = 0; FileExists(PageFileName(dir_.Path("list.html"), n)); ++n)
      pages.push_back(ReadFile(PageFileName(dir_.Path("list.html"), n)));
    EXPECT_EQ(CatList + ProdList, 0);
    return pages;
  }

  ScopedTempDir dir_{true};
  std::string cfg_ = dir_.Path("acme.cfg");
  TemplateSet set_;
  PageContext ctx_;
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

}  // namespace
}  // namespace storegen
