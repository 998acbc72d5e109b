#include "pagegen/link_rewrite.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "driver/runstate/run_state.h"

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
      {"<IMG SRC=a.gif>", 0},    {"<img\tsrc=a.gif>", 0},    {"<IMG>", -1},
      {"<IMGX src=a>", -1},      {"<a\r\nhref=x>", 1},       {"<ABBR title=x>", -1},
      {"<form action=x>", 2},    {"<Body background=x>", 3}, {"<FRAME src=x>", 4},
      {"<FRAMESET rows=2>", -1}, {"<area href=x>", 5},       {"<BASE href=x>", 6},
      {"<p class=x>", -1},       {"<!-- a href=x -->", -1},
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
      {"<body background=bg.gif text=red>", "<body background=/store/shop/bg.gif text=red>", 1},
      // Keywords are matched with their case, only at the start, in table order.
      {"<a href=\"addtocart#x\">", "<a href=\"/store/shop/addtocart#x\">", 1},
      {"<a href=\"x#ADDTOCART#\">", "<a href=\"/store/shop/x#ADDTOCART#\">", 1},
      // Absolute paths and targets with a scheme stay as written.
      {"<a href=\"USERPROG#/cgi-bin/x\">", "<a href=\"USERPROG#/cgi-bin/x\">", 1},
      {"<a href=\"mailto:me@example.com\">", "<a href=\"mailto:me@example.com\">", 1},
      {"<a href=\"NOPARSE#http://example.com/\">", "<a href=\"NOPARSE#http://example.com/\">", 1},
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
      {"/store/", "/store/shop/", "x", "/store/shop/x"},
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

}  // namespace
}  // namespace storegen
