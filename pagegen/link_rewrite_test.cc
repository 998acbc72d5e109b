#include "pagegen/link_rewrite.h"

#include <errno.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/run_state.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

class LinkRewriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    CopyTruncated(PageGenState.szHtmlAlias, "/store/");
  }
  void TearDown() override { ResetRunState(); }

  static std::string Rewrite(const std::string& markup, int* result = nullptr,
                             const char* page_path = "shop/") {
    char out[kMarkupBufferSize];
    int rc = ParseHTMLTag(markup.c_str(), out, sizeof out, FindHTMLTagRow(markup), page_path);
    if (result != nullptr) *result = rc;
    return out;
  }
};

TEST_F(LinkRewriteTest, RowTestNeedsTheTagAndWhiteSpace) {
  struct {
    const char* markup;
    int row;
  } cases[] = {
      {"<IMG SRC=a.gif>", 0}, {"<img\tsrc=a.gif>", 0},   {"<IMG>", -1},
      {"<IMGX src=a>", -1},   {"<a\r\nhref=x>", 1},      {"<FRAMESET rows=2>", -1},
      {"<area href=x>", 5},   {"<!-- a href=x -->", -1},
  };
  for (const auto& c : cases)
    EXPECT_EQ(FindHTMLTagRow(c.markup), c.row) << c.markup;
}

TEST_F(LinkRewriteTest, TargetsBecomeAbsoluteBehindTheirActionKeyword) {
  struct {
    const char* in;
    const char* out;
    int result;
  } cases[] = {
      {"<A HREF=\"ADDTOCART#item.html\">", "<A HREF=\"ADDTOCART#/store/shop/item.html\">", 1},
      {"<a class=c href='x.html' id=y>", "<a class=c href='/store/shop/x.html' id=y>", 1},
      {"<a href=x.html target=_top>", "<a href=/store/shop/x.html target=_top>", 1},
      {"<img src=\"my pic.png\" alt=\"\">", "<img src=\"/store/shop/my pic.png\" alt=\"\">", 1},
      {"<a href=\"x.html>", "<a href=\"/store/shop/x.html>", 1},  // no closing quote
      // Keywords are matched with their case, only at the start, in table order.
      {"<a href=\"addtocart#x\">", "<a href=\"/store/shop/addtocart#x\">", 1},
      {"<a href=\"x#ADDTOCART#\">", "<a href=\"/store/shop/x#ADDTOCART#\">", 1},
      // Absolute paths and targets with a scheme stay as written.
      {"<a href=\"USERPROG#/cgi-bin/x\">", "<a href=\"USERPROG#/cgi-bin/x\">", 1},
      {"<a href=\"mailto:me@example.com\">", "<a href=\"mailto:me@example.com\">", 1},
      {"<a href=\"find.html?q=a:b\">", "<a href=\"/store/shop/find.html?q=a:b\">", 1},
      // No link to rewrite.
      {"<a name=\"top\">", "<a name=\"top\">", 0},
      {"<a href>", "<a href>", 0},
  };
  for (const auto& c : cases) {
    int result = -1;
    EXPECT_EQ(Rewrite(c.in, &result), c.out) << c.in;
    EXPECT_EQ(result, c.result) << c.in;
  }
}

TEST_F(LinkRewriteTest, OutputIsCutToItsBuffer) {
  const std::string markup = "<a href=\"x.html\">";  // the value starts at 9
  const std::string full = "<a href=\"/store/shop/x.html\">";
  for (int size : {0, 5, 10, 11, 20, 40}) {
    char out[48];
    std::memset(out, '#', sizeof out);
    int rc = ParseHTMLTag(markup.c_str(), out, size, 1, "shop/");
    // A value that does not start before the last byte is not rewritten.
    std::string expected = size <= 10 ? markup.substr(0, size - 1) : full.substr(0, size - 1);
    if (size > 0) {
      EXPECT_EQ(std::string(out), expected) << size;
    }
    EXPECT_EQ(rc, size <= 10 ? 0 : 1) << size;
    EXPECT_EQ(std::string(out + size, out + sizeof out), std::string(sizeof out - size, '#'));
  }
}

TEST_F(LinkRewriteTest, AliasStandsOnceInFrontOfThePagePath) {
  struct {
    const char* alias;
    const char* page_path;
    const char* target;
    const char* url;
  } cases[] = {
      {"/store/", "shop/", "item.html", "/store/shop/item.html"},
      {"/store", "/store/shop/", "x", "/store/shop/x"},
      {"/store", "/storefront/", "x", "/store/storefront/x"},  // not the alias
      {"/store", "shop/", "x", "/store/shop/x"},
      {"", "/shop/", "x", "/shop/x"},
      {"/store", "", "/abs/x", "/abs/x"},
  };
  for (const auto& c : cases) {
    CopyTruncated(PageGenState.szHtmlAlias, c.alias);
    char url[64];
    ParseURL(c.target, url, sizeof url, c.page_path);
    EXPECT_STREQ(url, c.url) << c.alias << " " << c.page_path;
  }
  char small[8];
  ParseURL("item.html", small, sizeof small, "/store/shop/");
  EXPECT_STREQ(small, "/store/");
}

TEST_F(LinkRewriteTest, AttributeValues) {
  struct {
    const char* text;
    const char* value;  // null: none
  } cases[] = {
      {"Name=\"Card Type\" -->", "Card Type"},
      {"x = 'v w' y", "v w"},
      {"MaxPerPage=5-->", "5"},
      {"a=\"b>c\"", "b"},
      {"a=", ""},
      {"no value", nullptr},
  };
  for (const auto& c : cases) {
    char* value = GetTagAttrValue(c.text);
    EXPECT_STREQ(value, c.value) << c.text;
    std::free(value);
  }
  // Marker attributes are whole words followed by "=".
  std::string value;
  EXPECT_TRUE(MarkerAttribute("<!-- PAGEGEN_STORENAME PAGEGEN_CARDTYPE name = \"Cards\" -->",
                              "Name", &value));
  EXPECT_EQ(value, "Cards");
  EXPECT_FALSE(MarkerAttribute("<!-- PAGEGEN_STORENAME -->", "Name", &value));
}

// The "PG_...#" link keywords and the store entry and exit links.
PAPI_Pair kProduct[] = {{const_cast<char*>("SKU"), const_cast<char*>("A-100")},
                        {const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("Cutlery")},
                        {nullptr, nullptr}};
PAPI_Pair kNoCategory[] = {{const_cast<char*>("SKU"), const_cast<char*>("B-2")},
                           {const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("NA")},
                           {nullptr, nullptr}};

constexpr char kCgi[] = "CGIBinDirectory\t/cgi-bin\n";
constexpr char kProg[] = "CGIBinDirectory\t/cgi-bin/\nPageGenProg\t/usr/lib/cgi-bin/storegen\n";
constexpr char kSecure[] =
    "CGIBinDirectory\t/cgi-bin\nSecureCGIBinDirectory\t/scgi/\nSecureDomain\thttps://s.example\n"
    "StoreDir\t/acme\nSecureConfig\tsecure\n";
constexpr char kNonSecure[] =
    "CGIBinDirectory\t/cgi-bin\nNonSecureDomain\thttp://www.example\nStoreDir\tacme/\n";

TEST(LinkKeywords, ExpandedWithAndWithoutTheirOptionalKeys) {
  testing::ScopedTempDir dir(true);
  const std::string cfg = dir.Path("acme.cfg");
  const std::string self = program_invocation_short_name;
  struct {
    const char* config;  // besides TillboxExtension "cgi"
    uint32_t options;    // besides kGenRewriteLinks
    const char* category;
    PAPI_Pair* product;
    const char* page_path;
    const char* script;  // SCRIPT_NAME, null: unset
    const char* in;
    std::string out;  // "-": nothing expanded
  } cases[] = {
      {kCgi, 0, "Tea Cups", nullptr, "/shop/", nullptr, "<a href=\"PG_CATEGORYFILE#\">",
       "<a href=\"/shop/c-Tea_Cups.html\">"},
      {kCgi, 0, "Tea", nullptr, "shop/", nullptr, "<a href=pg_categoryfile#>",
       "<a href=c-Tea.html>"},
      {kProg, kGenDynamicLists, "Tea Cups", nullptr, "/shop/", nullptr, "<a href=PG_CATEGORYFILE#>",
       "<a href=USERPROG#/cgi-bin/storegen?-c+acme.cfg+-f+0+-C+Tea%20Cups>"},
      {kCgi, 0, nullptr, kProduct, "/", nullptr, "<a href=PG_CATEGORYFILE#>",
       "<a href=/c-Cutlery.html>"},
      {kCgi, 0, nullptr, kNoCategory, "/", nullptr, "<a href=PG_CATEGORYFILE#>", "-"},
      {kCgi, 0, nullptr, kProduct, "/shop/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=/shop/p-A-100.html>"},
      {kProg, kGenDynamicProducts, nullptr, kProduct, "/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=USERPROG#/cgi-bin/storegen?-p+-c+acme.cfg+A-100>"},
      {kCgi, kGenDynamicProducts, nullptr, kProduct, "/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=USERPROG#/cgi-bin/" + self + "?-p+-c+acme.cfg+A-100>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_PRODUCTFILE#>", "-"},
      // Secure switch: the secure keys, else the non-secure ones; never "//".
      {kSecure, 0, nullptr, nullptr, "/", nullptr, "<a href=\"PG_SSLSWITCH#/order.html\" id=b>",
       "<a href=\"NOPARSE#https://s.example/scgi/Tillbox.cgi/acme/order.html?L+secure+"
       "%%tillbox.sessionid%%\" id=b>"},
      {kSecure, 0, nullptr, nullptr, "/", nullptr, "<form action='USERPROG#PG_SSLSWITCH#pay.cgi'>",
       "<form action='NOPARSE#https://s.example/scgi/Tillbox.cgi/acme/pay.cgi?U+secure+"
       "%%tillbox.sessionid%%'>"},
      {"CGIBinDirectory\t/cgi-bin\nStoreDir\t/\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_SSLSWITCH#o.html>",
       "<a href=NOPARSE#/cgi-bin/Tillbox.cgi/o.html?L+acme+%%tillbox.sessionid%%>"},
      // Non-secure switch: the query marker follows the action keyword.
      {kNonSecure, 0, nullptr, nullptr, "/", nullptr,
       "<a href=\"GEOGRAPHY#PG_NONSSLSWITCH#/g.html\">",
       "<a href=\"NOPARSE#http://www.example/cgi-bin/Tillbox.cgi/acme/g.html?R+acme+"
       "%%tillbox.sessionid%%\">"},
      {kNonSecure, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_NONSSLSWITCH#PG_SEARCHPAGE#>",
       "<a "
       "href=NOPARSE#http://www.example/cgi-bin/Tillbox.cgi/store?L+acme+%%tillbox.sessionid%%>"},
      // Through the cart program to the shop home page.
      {kCgi, 0, nullptr, nullptr, "/shop/", nullptr, "<a href=PG_TILLBOX#>",
       "<a href=/cgi-bin/Tillbox.cgi/shop/index.html?E+acme>"},
      {kCgi, 0, nullptr, nullptr, "shop/", "/tb/bin/Tillbox.cgi", "<a href=PG_TILLBOX#>",
       "<a href=/tb/bin/Tillbox.cgi/index.html?E+acme>"},
      {kCgi, 0, nullptr, nullptr, "/shop/", nullptr, "<a href=PG_STOREENTERURL#>",
       "<a href=NOPARSE#/cgi-bin/Tillbox.cgi/shop/index.html?E+acme+%%Tillbox.cart.AffiliateID%%>"},
      {"NonSecureDomain\thttp://www.example\n", 0, nullptr, nullptr, "shop/", "/tb/Tillbox.cgi",
       "<a href=PG_STOREENTERURL#>",
       "<a href=NOPARSE#http://www.example/tb/Tillbox.cgi/index.html?E+acme+"
       "%%Tillbox.cart.AffiliateID%%>"},
      // Exit: the store directory, without a double slash behind the domain.
      {"NonSecureDomain\thttp://www.example\nStoreDir\t/acme/\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_STOREEXITURL#/a.html>", "<a href=NOPARSE#http://www.example/acme/a.html>"},
      {"NonSecureDomain\thttp://www.example/\nStoreDir\tacme\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_StoreExitUrl#a.html>", "<a href=NOPARSE#http://www.example/acme/a.html>"},
      {"StoreDir\t/acme\n", 0, nullptr, nullptr, "/", nullptr, "<a href=PG_STOREEXITURL#\\a.html>",
       "<a href=NOPARSE#/acme/a.html>"},
      // The index is not set up: no search page path, no gateway.
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_SEARCHPAGE#>", "<a href=/store>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<form action=PG_WWWWAIS#>", "<form action=>"},
      // The first keyword of the list wins, wherever it stands.
      {kCgi, 0, "Tea", nullptr, "/", nullptr, "<a title=PG_TILLBOX# href=PG_CATEGORYFILE#>",
       "<a title=PG_TILLBOX# href=/c-Tea.html>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=\"x.html\">", "-"},
  };
  for (const auto& c : cases) {
    ResetRunState();
    CopyTruncated(PageGenState.szShopHomeName, "index.html");
    CopyTruncated(PageGenState.szHtmlAlias, "/store");
    testing::WriteFile(cfg, std::string("TillboxExtension\tcgi\n") + c.config);
    if (c.script != nullptr) {
      setenv("SCRIPT_NAME", c.script, 1);
    } else {
      unsetenv("SCRIPT_NAME");
    }
    PageContext ctx;
    ctx.store_cfg = cfg.c_str();
    ctx.options = kGenRewriteLinks | c.options;
    ctx.category = c.category;
    ctx.product = c.product;
    ctx.page_path = c.page_path;

    char* text = nullptr;
    std::size_t length = 0;
    PageOutput out;
    out.fp = open_memstream(&text, &length);
    int rc = ExpandLinkKeyword(&out, c.in, ctx);
    std::fclose(out.fp);
    EXPECT_EQ(rc == 1 ? std::string(text, length) : "-", c.out) << c.in << "\n" << c.config;
    EXPECT_TRUE(rc == 1 || length == 0) << c.in;
    std::free(text);
  }
  unsetenv("SCRIPT_NAME");
  ResetRunState();
}

}  // namespace
}  // namespace storegen
