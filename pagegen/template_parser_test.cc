#include "pagegen/template_parser.h"

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/config_file.h"
#include "cgisupport/stack_room.h"
#include "pagegen/template_pieces.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using testing::Pair;
using testing::WriteFile;

// A record as the product API hands it out, for pages about one product.
// A value long enough that two of them overfill a markup.
const std::string kLongValue(1300, 'z');
PAPI_Pair kProduct[] = {
    Pair("SKU", "A-100"),
    Pair("NAME", "Kettle"),
    Pair("PRICE", "24.50"),
    Pair("COLOR", "na"),
    Pair("SIZE", ""),
    Pair("GRAPHIC", "img/red kettle.png"),
    Pair("LONG", kLongValue.c_str()),
    Pair(nullptr, nullptr),
};

// A category database of one category, "Tea", served through the bound
// product-API entry points.
PAPI_Pair kTeaCategory[] = {Pair("TILLBOXCATEGORY", "Tea"), Pair("BLURB", "Leaves & cups"),
                            Pair("BANNER", "NA"), Pair(nullptr, nullptr)};
int g_retrievals = 0;
int g_releases = 0;

class TemplateParserTest : public testing::PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    pdbRetrieve = [](void*, const char*, const char* sku, int, const char*, const char*,
                     const char*, const char*, char**) -> PAPI_Pair* {
      ++g_retrievals;
      return std::strcmp(sku, "Tea") == 0 ? kTeaCategory : nullptr;
    };
    pdbRelease = [](void*, const char*, const char*, PAPI_Pair*) {
      ++g_releases;
      return 0;
    };
    // Category lists walk the same one-record database.
    pdbRetrieveFirstItem = [](void*, const char*, int, const char*, const char*, const char*,
                              const char*, int32_t* position, char**) {
      *position = 1;
      return kTeaCategory;
    };
    pdbRetrieveNextItem = [](void*, const char*, int, const char*, const char*, const char*,
                             const char*, int32_t*, char**) -> PAPI_Pair* { return nullptr; };
    g_retrievals = g_releases = 0;
    WriteFile(cfg_, "ShopName\tCorner Shop\nStorePhone\t555-0100\nSecureStoreDir\t/secure/shop\n");
  }
};

TEST_F(TemplateParserTest, ProductTags) {
  ctx_.product = kProduct;
  struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"<p>%%PRODUCT.PRICE%%</p>", "<p>24.50</p>"},
      {"%25%25product.Name%25%25", "Kettle"},  // prefix and name in any case
      {"%%PRODUCT.PRICE%25%25", "24.50"},      // either closer ends a tag
      {"[%%PRODUCT.COLOR%%][%%PRODUCT.SIZE%%][%%PRODUCT.WEIGHT%%]", "[ ][ ][ ]"},  // NA, "", none
      {"%%PRODUCT.GRAPHIC%%", "img/red%20kettle.png"},   // pictures are URL-escaped
      {"%%OTHER.PRICE%%", "%%OTHER.PRICE%%"},            // not a tag of ours
      {"50% off, a%20b, 100%", "50% off, a%20b, 100%"},  // a lone "%" is text
      {"%25%%PRODUCT.NAME%%", "%25Kettle"},
      {"%%%%", "%%%%"},
      {"x %%PRODUCT.PRICE", "x %%PRODUCT.PRICE"},  // unclosed tag text is written
  };
  for (const auto& c : cases) {
    int rc = -1;
    EXPECT_EQ(Parse(c.in, &rc), c.out) << c.in;
    EXPECT_EQ(rc, 0) << c.in;
  }
  EXPECT_EQ(Errors(), "");
  // Without a product, product tags are written as they stand.
  ctx_.product = nullptr;
  EXPECT_EQ(Parse("%%PRODUCT.PRICE%% %25%25PRODUCT.NAME%25%25"),
            "%%PRODUCT.PRICE%% %25%25PRODUCT.NAME%25%25");
}

TEST_F(TemplateParserTest, DefaultPicturesAreRecordedWithTheirProduct) {
  PAPI_Pair bare[] = {Pair("SKU", "B-7"), Pair("THUMBNAIL", "NA"), Pair(nullptr, nullptr)};
  ctx_.product = bare;
  set_.default_product_graphic = "images/no photo.png";
  EXPECT_EQ(Parse("<img src=\"%%PRODUCT.GRAPHIC%%\">|%%PRODUCT.THUMBNAIL%%|"),
            "<img src=\"/shop/images/no%20photo.png\">| |");
  EXPECT_EQ(Errors(), "%%PRODUCT.GRAPHIC%%=-19\nB-7=-19\n");

  // Secure pages take the secure store directory instead of the page path.
  set_.default_product_thumbnail = "images/thumb.png";
  ctx_.secure = 1;
  EXPECT_EQ(Parse("%%PRODUCT.THUMBNAIL%%"), "/secure/shop/images/thumb.png");
}

// A picture named by its whole URL is linked as it stands; any other is a
// file of the store's, escaped and below the page's path.
TEST_F(TemplateParserTest, PicturesThatAreFullUrlsStandAsTheyAre) {
  PAPI_Pair product[] = {Pair("SKU", "C-1"), Pair("GRAPHIC", ""), Pair(nullptr, nullptr)};
  ctx_.product = product;
  set_.default_product_thumbnail = "https://cdn.example.com/none.gif";
  struct {
    const char* value;
    const char* src;
  } cases[] = {
      {"http://cdn.example.com/a b.gif", "http://cdn.example.com/a b.gif"},
      {"HTTPS://cdn.example.com/a.gif?w=2", "HTTPS://cdn.example.com/a.gif?w=2"},
      {"//cdn.example.com/a.gif", "//cdn.example.com/a.gif"},
      {"http:/cdn.gif", "/shop/http%3A/cdn.gif"},
      {"cdn.example.com/a.gif", "/shop/cdn.example.com/a.gif"},
  };
  for (const auto& c : cases) {
    product[1].value = const_cast<char*>(c.value);
    EXPECT_EQ(Parse("<img src=\"%%PRODUCT.GRAPHIC%%\">"),
              std::string("<img src=\"") + c.src + "\">")
        << c.value;
  }
  EXPECT_EQ(Parse("<img src=%%PRODUCT.THUMBNAIL%%>"),
            "<img src=https://cdn.example.com/none.gif>");  // a default picture too
}

TEST_F(TemplateParserTest, CategoryTags) {
  static int connection = 0;  // outlives the fixture's context
  ctx_.cat_db = &connection;
  ctx_.category = "Tea";
  int rc = -1;
  EXPECT_EQ(Parse("<h1>%%CATEGORY.BLURB%%</h1>", &rc), "<h1>Leaves & cups</h1>");
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(Parse("<%%CATEGORY.BANNER%%> %25%25category.none%25%25", &rc),
            "<%%CATEGORY.BANNER%%> %25%25category.none%25%25");
  EXPECT_EQ(rc, -18);  // a warning: the page is complete
  EXPECT_EQ(Errors(), "%%CATEGORY.BANNER%%=-18\n%25%25category.none%25%25=-18\n");
  EXPECT_EQ(g_retrievals, g_releases);

  ctx_.category = "Coffee";  // no such record
  EXPECT_EQ(Parse("%%CATEGORY.BLURB%%", &rc), "%%CATEGORY.BLURB%%");
  EXPECT_EQ(rc, -18);

  // Without a category or a connection there is nothing to resolve against.
  FreeFileList(PageGenState.errlist);
  PageGenState.errlist = nullptr;
  for (bool no_db : {false, true}) {
    ctx_.category = no_db ? "Tea" : nullptr;
    ctx_.cat_db = no_db ? nullptr : &connection;
    EXPECT_EQ(Parse("%%CATEGORY.BLURB%%", &rc), "%%CATEGORY.BLURB%%") << no_db;
    EXPECT_EQ(rc, 0) << no_db;
  }
  EXPECT_EQ(Errors(), "");
}

TEST_F(TemplateParserTest, MarkersWorkOnlyInsideBangMarkup) {
  struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"<!-- PAGEGEN_STORENAME -->", "Corner Shop"},
      {"<!--pagegen_storephone-->", "555-0100"},
      {"PAGEGEN_STORENAME", "PAGEGEN_STORENAME"},
      {"<b PAGEGEN_STORENAME>", "<b PAGEGEN_STORENAME>"},
      {"<!-- a > b <c> PAGEGEN_STORENAME -->!", "Corner Shop!"},  // ">" and "<" in a comment
      {"<!DOCTYPE html>", "<!DOCTYPE html>"},
      {"<!-- PAGEGEN_STOREFAX -->|", "|"},  // key missing
      {"<!-- PAGEGEN_CURRENCYSYMBOL -->", "$"},
      {"<!-- PAGEGEN_PRODUCTLIST_BEGIN -->x<!-- PAGEGEN_PRODUCTLIST_END -->",
       "<!-- PAGEGEN_PRODUCTLIST_BEGIN -->x<!-- PAGEGEN_PRODUCTLIST_END -->"},  // no list here
      {"<!-- PAGEGEN_TEXT_BEGIN -->t<!-- PAGEGEN_TEXT_END -->",
       "<!-- PAGEGEN_TEXT_BEGIN -->t<!-- PAGEGEN_TEXT_END -->"},  // no page file: inline
  };
  for (const auto& c : cases)
    EXPECT_EQ(Parse(c.in), c.out) << c.in;
}

TEST_F(TemplateParserTest, StoreValues) {
  WriteFile(cfg_,
            "Currency\tEUR\nStoreWelcome\tHello\x8A"
            "there\nStoreAddress1\t1 Main St\nStoreAddress2\tSpringfield\n"
            "StoreEmail\tshop@example.com\nStoreFax\t555-0101\n");
  EXPECT_EQ(Parse("<!--PAGEGEN_CURRENCYSYMBOL-->|<!--PAGEGEN_STOREWELCOME-->|"
                  "<!--PAGEGEN_STOREADDR1-->|<!--PAGEGEN_STOREADDR2-->|"
                  "<!--PAGEGEN_STOREEMAIL-->|<!--PAGEGEN_STOREFAX-->|<!--PAGEGEN_STORENAME-->|"),
            "EUR|Hello\nthere|1 Main St|Springfield|shop@example.com|555-0101||");
}

TEST_F(TemplateParserTest, BodyTagAndLogo) {
  WriteFile(cfg_,
            "PageGenBgColor\t#ffffff\nPageGenTextColor\t#222\nPageGenBgImage\timages/bg.png\n"
            "StoreLogo\thttp://cdn.example.com/logo.png\n");
  EXPECT_EQ(Parse("<!-- PAGEGEN_BODYTAG --><!-- PAGEGEN_STORELOGO -->"),
            "<BODY BGCOLOR=\"#ffffff\" TEXT=\"#222\" BACKGROUND=\"/shop/images/bg.png\" >"
            "<IMG SRC=\"http://cdn.example.com/logo.png\">");
  struct {
    const char* logo;
    const char* src;
  } cases[] = {
      {"/img/logo.png", "/img/logo.png"},   {"\\img\\logo.png", "\\img\\logo.png"},
      {"/shop/logo.png", "/shop/logo.png"}, {"img/logo.png", "/shop/img/logo.png"},
      {"c:logo.png", "c:logo.png"},
  };
  for (const auto& c : cases) {
    WriteFile(cfg_, std::string("StoreLogo\t") + c.logo + "\n");
    EXPECT_EQ(Parse("<!-- PAGEGEN_STORELOGO -->"), std::string("<IMG SRC=\"") + c.src + "\">")
        << c.logo;
  }
  WriteFile(cfg_, "");
  EXPECT_EQ(Parse("<!-- PAGEGEN_BODYTAG --><!-- PAGEGEN_STORELOGO -->"), "<BODY >");
}

TEST_F(TemplateParserTest, ScriptModeSuspendsTheCommentRule) {
  const std::string comment = "<!-- a > PAGEGEN_STORENAME -->";
  EXPECT_EQ(Parse(comment), "Corner Shop");
  const std::string script = "<SCRIPT>var s = '" + comment + "';</script>";
  EXPECT_EQ(Parse(script), script);
  EXPECT_EQ(Parse(script + comment), script + "Corner Shop");
}

TEST_F(TemplateParserTest, CarriageReturnsAndUnclosedMarkup) {
  EXPECT_EQ(Parse("a\r\nb\r\n<a\r\nhref=\"x\">c\r"), "a\nb\n<a\r\nhref=\"/shop/x\">c");
  EXPECT_EQ(Parse("text <b unclosed"), "text ");
  EXPECT_EQ(Parse("text <!-- PAGEGEN_STORENAME"), "text ");
  EXPECT_EQ(Parse("a < b <i>c</i>"), "a < b <i>c</i>");
  EXPECT_EQ(Parse("ends in %"), "ends in %");
}

TEST_F(TemplateParserTest, OverlongMarkupAndTagsPassThroughUnchanged) {
  ctx_.product = kProduct;
  auto comment = [](std::size_t length) {
    std::string head = "<!-- PAGEGEN_STORENAME ";
    return head + std::string(length - head.size() - 3, 'x') + "-->";
  };
  EXPECT_EQ(Parse(comment(2399)), "Corner Shop");
  EXPECT_EQ(Parse(comment(2400) + "%%PRODUCT.NAME%%"), comment(2400) + "Kettle");
  EXPECT_EQ(Parse(comment(5000) + "<!--PAGEGEN_STORENAME-->"), comment(5000) + "Corner Shop");

  auto tag = [](std::size_t length) {
    std::string head = "%%PRODUCT.NAME";
    return head + std::string(length - head.size() - 2, 'x') + "%%";
  };
  EXPECT_EQ(Parse(tag(2399)), " ");
  EXPECT_EQ(Parse(tag(2400) + "%%PRODUCT.NAME%%"), tag(2400) + "Kettle");
  // The rest of an overlong tag, up to its closer, is plain text; so is a
  // markup start in it.
  EXPECT_EQ(Parse(tag(3000) + "<b>%%PRODUCT.PRICE%%"), tag(3000) + "<b>24.50");
  std::string long_tag_with_markup = "%%" + std::string(2500, 'y') + "<!--PAGEGEN_STORENAME-->%%!";
  EXPECT_EQ(Parse(long_tag_with_markup), long_tag_with_markup);
}

TEST_F(TemplateParserTest, TagsAndMarkupAcrossChunkBoundaries) {
  ctx_.product = kProduct;
  for (std::size_t pad = 985; pad <= 1001; ++pad) {
    const std::string lead(pad, '.');
    std::string page;
    // Read in chunks, as a template too large to be held in memory is.
    ParseTemplateText(lead + "%25%25PRODUCT.NAME%25%25|<!--PAGEGEN_STORENAME-->", ctx_, &page, "",
                      false);
    EXPECT_EQ(page, lead + "Kettle|Corner Shop") << pad;
  }
}

// Templates in memory are parsed through their pieces, others character by
// character: both must write the same page and return the same code, for
// any text, also where a piece hands over to the scanner.
TEST_F(TemplateParserTest, PiecesAgreeWithTheScanner) {
  static int connection = 0;  // outlives the fixture's context
  ctx_.cat_db = &connection;
  ctx_.product = kProduct;
  // clang-format off
  std::vector<std::string> fragments = {
      "text ", "<", ">", "<!", "-", "--", "%", "%%", "%2", "%25", "%25%25", "5", "\r", "\n", "x",
      "%%PRODUCT.NAME%%", "%25%25PRODUCT.PRICE%25%25", "%%CATEGORY.BLURB%%", "<b>", "</b>",
      "%%PRODUCT.LONG%%",
      "<a href=\"x.html\">", "<img src=%%PRODUCT.GRAPHIC%%>", "<SCRIPT>", "</script>",
      "<!-- PAGEGEN_STORENAME -->", "<!-- a -- b -->", "<!--PAGEGEN_CATEGORYLIST_BEGIN-->",
      "<!--PAGEGEN_CATEGORYLIST_END-->", "<!-- PG_HOME# -->", "<a href=\"ADDTOCART#A-100\">"};
  // clang-format on
  fragments.push_back(std::string(2398, 'y'));  // near the markup and tag limits
  std::mt19937 rng(5);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (int n = 1 + static_cast<int>(rng() % 25); n > 0; --n)
      text += fragments[rng() % fragments.size()];
    std::string scanned;
    std::string cut;
    const int scanned_rc = ParseTemplateText(text, ctx_, &scanned, "", false);
    ASSERT_EQ(g_template_nesting, 0);
    CatList = ProdList = 0;
    const int cut_rc = ParseTemplateText(text, ctx_, &cut, "", true);
    CatList = ProdList = 0;
    ASSERT_EQ(cut, scanned) << text;
    ASSERT_EQ(cut_rc, scanned_rc) << text;
  }
}

// The pieces of a template version serve many pages: what a piece keeps
// for one page (a rewritten link, a store value) must follow the next page's
// path and the store configuration as it is then.
TEST_F(TemplateParserTest, KeptPiecesFollowEachPage) {
  const std::string text =
      "<a href=\"x.html\">%%PRODUCT.NAME%%<img src=y.png><A HREF=/abs><!-- PAGEGEN_STORENAME -->";
  TemplatePieces pieces(text);
  auto page = [&](const char* path) {
    ConfigSnapshot snapshot;  // as every page is written
    ctx_.page_path = path;
    std::string written;
    EXPECT_EQ(ParseTemplateText(text, ctx_, &written, "", &pieces), 0);
    return written;
  };
  ctx_.product = kProduct;
  const std::string shop = "<a href=\"/shop/x.html\">Kettle<img src=/shop/y.png><A HREF=/abs>";
  EXPECT_EQ(page("/shop/"), shop + "Corner Shop");
  EXPECT_EQ(page("/shop/tea/"),
            "<a href=\"/shop/tea/x.html\">Kettle<img src=/shop/tea/y.png><A HREF=/abs>Corner Shop");
  EXPECT_EQ(page("/shop/"), shop + "Corner Shop");
  WriteFile(cfg_, "ShopName\tThe Other Shop\n");
  EXPECT_EQ(page("/shop/"), shop + "The Other Shop");
}

TEST_F(TemplateParserTest, ListBlocksNeedTheirData) {
  int rc = 0;
  const std::string block =
      "a<!-- PAGEGEN_CATEGORYLIST_BEGIN -->[%%PRODUCT.NAME%%|%%CATEGORY.BLURB%%]"
      "<!-- PAGEGEN_CATEGORYLIST_END -->b";
  EXPECT_EQ(Parse(block, &rc), "a");
  EXPECT_EQ(rc, -17);

  static int connection = 0;  // outlives the fixture's context
  ctx_.cat_db = &connection;
  ctx_.product = kProduct;
  std::string lead(1500, '-');  // the block ends in a later chunk than it starts
  EXPECT_EQ(Parse(block + lead + block, &rc),
            "a[Kettle|Leaves & cups]b" + lead + "a[Kettle|Leaves & cups]b");
  EXPECT_EQ(rc, 0);
}

TEST_F(TemplateParserTest, NestingLimit) {
  g_template_nesting = 10001;
  std::string page;
  EXPECT_EQ(ParseTemplateText("x", ctx_, &page), -50);
  EXPECT_EQ(page, "");
  EXPECT_EQ(g_template_nesting, 10001);
  g_template_nesting = 10000;
  EXPECT_EQ(ParseTemplateText("x", ctx_, &page), 0);
  EXPECT_EQ(page, "x");
  g_template_nesting = 0;

  // Category blocks nested past the limit end the page with its code, on
  // the test's own stack and on one that holds a few levels at most, in
  // every build; text blocks do not nest parser calls.
  static int connection = 0;  // outlives the fixture's context
  ctx_.cat_db = &connection;
  struct {
    const char* marker;
    int rc;
  } cases[] = {{"<!--PAGEGEN_CATEGORYLIST_BEGIN-->", -50}, {"<!--PAGEGEN_TEXT_BEGIN-->", 0}};
  for (const auto& c : cases) {
    std::string nested;
    for (int i = 0; i < 10005; ++i)
      nested += c.marker;
    int rc = 0;
    Parse(nested + "end", &rc);
    EXPECT_EQ(rc, c.rc) << c.marker;
    rc = 0;
    EXPECT_TRUE(RunOnFreshStack(std::size_t{64} << 10, [&] { Parse(nested + "end", &rc); }));
    EXPECT_EQ(rc, c.rc) << c.marker;
  }
}

TEST_F(TemplateParserTest, ReadErrorEndsThePage) {
  FILE* dir = std::fopen(dir_.path().c_str(), "rb");  // reading a directory fails
  ASSERT_NE(dir, nullptr);
  TemplateInput in;
  in.fp = dir;
  PageOutput out;
  EXPECT_EQ(ParseTemplate(&in, &out, ctx_), -10);
  EXPECT_EQ(g_template_nesting, 0);
  std::fclose(dir);
}

}  // namespace
}  // namespace storegen
