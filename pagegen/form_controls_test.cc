#include "pagegen/form_controls.h"

#include <string>

#include <gtest/gtest.h>

#include "storedata/attribute_db.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using testing::Pair;
using testing::WriteFile;

class FormControlTest : public testing::PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    WriteFile("shop.adb",
              "1\t1\tColor\tRed,Green,Blue\n2\t3\tSize\tS,M,L\n3\t5\tNote\t\n"
              "4\t4\tExtras\tWrap,Card\n6\t2\tEngraving\t\n"
              "7\t7\tPick\tA,B\n8\t9\tOdd\tx\n");
    pool_ = AD_InitAttributePool("shop.adb");
    ASSERT_NE(pool_, nullptr);
    WriteFile(cfg_, "CreditCardTypes\tVisa;;Mastercard\n");
    ctx_.attr_db = pool_;
  }
  void TearDown() override {
    AD_ShutdownAttributePool(pool_);
    PageTest::TearDown();
  }

  // The page for a product whose TILLBOXATTRIBUTES is |attributes|.
  std::string Controls(const char* attributes) {
    PAPI_Pair product[] = {Pair("SKU", "A-1"), Pair("TILLBOXATTRIBUTES", attributes),
                           Pair(nullptr, nullptr)};
    ctx_.product = product;
    int rc = -1;
    std::string page = Parse("<!-- PAGEGEN_ATTRIBUTES -->", &rc);
    EXPECT_EQ(rc, 0);
    ctx_.product = nullptr;
    return page;
  }

  AttributePool* pool_ = nullptr;
};

TEST_F(FormControlTest, EachTypeGetsItsControl) {
  struct {
    const char* attributes;
    const char* html;
  } cases[] = {
      {"1:1,3",
       "Color<BR>\n<SELECT SIZE=\"1\" NAME=\"Color\">\n"
       "<OPTION VALUE=\"Red\" SELECTED>Red</OPTION>\n<OPTION VALUE=\"Blue\" >Blue</OPTION>\n"
       "</SELECT>\n<BR>"},
      {"2:2,3",
       "Size<BR>\n<INPUT TYPE=\"RADIO\" NAME=\"Size\" VALUE=\"M\" CHECKED>M<BR>\n"
       "<INPUT TYPE=\"RADIO\" NAME=\"Size\" VALUE=\"L\" >L<BR>\n<BR>"},
      {"4:1,2",
       "Extras<BR>\n<INPUT TYPE=\"CHECKBOX\" NAME=\"Wrap\" CHECKED>Wrap<BR>\n"
       "<INPUT TYPE=\"CHECKBOX\" NAME=\"Card\" >Card<BR>\n<BR>"},
      {"3", "Note<BR><INPUT TYPE=\"TEXT\" SIZE=\"15\" NAME=\"Note\">\n<BR>"},
      {"6:1",
       "Engraving<BR><TEXTAREA ROWS=\"12\" COLS=\"65\" NAME=\"Engraving\"></TEXTAREA>\n<BR>"},
      {"7:2,1",
       "Pick<BR>\n<SELECT SIZE=\"5\" NAME=\"Pick\" MULTIPLE>\n"
       "<OPTION VALUE=\"B\" SELECTED>B</OPTION>\n<OPTION VALUE=\"A\" >A</OPTION>\n</SELECT>\n<BR>"},
      // Unknown values are skipped: the first value written is the selected one.
      {"1:9,0,x,2",
       "Color<BR>\n<SELECT SIZE=\"1\" NAME=\"Color\">\n"
       "<OPTION VALUE=\"Green\" SELECTED>Green</OPTION>\n</SELECT>\n<BR>"},
      // Unknown attributes and types: only the line break of the entry.
      {"99:1|8:1||", "<BR><BR>"},
      {"NA", ""},  // not an attribute list
      {"x3:1", ""},
      {"", ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Controls(c.attributes), c.html) << c.attributes;

  EXPECT_EQ(Parse("<!-- PAGEGEN_ATTRIBUTES -->"), "");  // no product
}

TEST_F(FormControlTest, CardTypes) {
  const std::string options =
      "\">\n<OPTION VALUE=\"Visa\">Visa\n<OPTION VALUE=\"Mastercard\">Mastercard\n</SELECT>\n";
  EXPECT_EQ(
      Parse("<!-- PAGEGEN_CARDTYPE Name=\"Card\" -->|<!--PAGEGEN_CARDTYPE-->"),
      "<SELECT SIZE=\"1\" NAME=\"Card" + options + "|<SELECT SIZE=\"1\" NAME=\"CCType" + options);
  WriteFile(cfg_, "");
  EXPECT_EQ(Parse("<!-- PAGEGEN_CARDTYPE -->"), "");
  EXPECT_EQ(OutputCardtypeDropdown(nullptr, cfg_.c_str(), "x"), 0);
}

}  // namespace
}  // namespace storegen
