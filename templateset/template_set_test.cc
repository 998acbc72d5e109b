#include "templateset/template_set.h"

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/config_item_list.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;

struct SetDeleter {
  void operator()(TemplateSet* s) const { PG_ShutdownTemplateSet(s); }
};
using SetPtr = std::unique_ptr<TemplateSet, SetDeleter>;

class TemplateSetTest : public ::testing::Test {
 protected:
  SetPtr Load(const std::string& content) {
    std::string path = dir_.Path("set.cfg");
    WriteFile(path, content);
    return SetPtr(PG_InitTemplateSet(path.c_str()));
  }

  ScopedTempDir dir_;
};

TEST_F(TemplateSetTest, RefusesMissingEmptyAndPairlessFiles) {
  EXPECT_EQ(PG_InitTemplateSet(nullptr), nullptr);
  EXPECT_EQ(PG_InitTemplateSet(""), nullptr);
  EXPECT_EQ(PG_InitTemplateSet(dir_.Path("absent.cfg").c_str()), nullptr);
  EXPECT_EQ(PG_InitTemplateSet(dir_.path().c_str()), nullptr);  // a directory
  EXPECT_EQ(Load(""), nullptr);
  EXPECT_EQ(Load("KeyWithoutValue\n\t\t\nkey and value with blanks\n"), nullptr);
}

TEST_F(TemplateSetTest, ExactKeysLastLineWinsAndNumbersAreClamped) {
  SetPtr set = Load(
      "creatorname\tAnn\nCreatorName\tBob\nCopyright\t(c) Bob\nStyleName\tPlain\n"
      "InfoPage\tbasic/info.html\nCopyExcludesDirs\timages;cgi-bin\n"
      "DefaultProductGraphic\tnopic.gif\nDefaultProductThumbnail\tnothumb.gif\n"
      "MaxProdPerPage\t12abc\nUnknownKey\tignored\n");
  ASSERT_NE(set, nullptr);
  EXPECT_EQ(set->file_name, dir_.Path("set.cfg"));
  EXPECT_EQ(set->creator_name, "Bob");
  EXPECT_EQ(set->copyright, "(c) Bob");
  EXPECT_EQ(set->style_name, "Plain");
  EXPECT_EQ(set->info_page, "basic/info.html");
  EXPECT_EQ(set->copy_excludes_dirs, "images;cgi-bin");
  EXPECT_EQ(set->default_product_graphic, "nopic.gif");
  EXPECT_EQ(set->default_product_thumbnail, "nothumb.gif");
  EXPECT_EQ(set->max_prod_per_page, 12);

  const struct {
    const char* value;
    int expected;
  } cases[] = {{"-5", 0}, {"abc", 0}, {"7", 7}, {"99999999999", 2147483647}};
  for (const auto& c : cases) {
    SetPtr s = Load(std::string("MaxProdPerPage\t") + c.value + "\n");
    ASSERT_NE(s, nullptr) << c.value;
    EXPECT_EQ(s->max_prod_per_page, c.expected) << c.value;
  }
}

TEST_F(TemplateSetTest, EntryKeysFillTheirListsInKeyTestOrder) {
  SetPtr set = Load(
      "SitePage2\tSecond;b.html;b.html\n"
      "SitePage1\tFirst;a.html;a.html;S\n"
      "SearchPage\tOld;old.html;old.html\n"
      "SearchPage\tFind;find.html;find.html\n"
      "SearchPage2\tIgnored;x.html\n"
      "DefaultProductPage\tDefault;prod.html\n"
      "ProductPage1\tBook;book.html\n"
      "Shophomepage2\tHome;;home.html;N\n"
      "TillboxPage1\tCart;cart.html;cart.html;sx\n"
      "SecureFile1\tthanks.html\n"
      "ProductPageX\tDvd;;;;y;extra\n");
  ASSERT_NE(set, nullptr);
  ASSERT_EQ(set->site_pages.size(), 2u);
  EXPECT_EQ(set->site_pages[0].display_name, "Second");
  EXPECT_EQ(set->site_pages[1].display_name, "First");
  EXPECT_EQ(set->site_pages[1].flag, 'S');
  ASSERT_EQ(set->search_page.size(), 1u);
  EXPECT_EQ(set->search_page[0].display_name, "Find");
  // "DefaultProductPage" is not taken for a product page.
  ASSERT_EQ(set->default_product_page.size(), 1u);
  EXPECT_EQ(set->default_product_page[0].template_file, "prod.html");
  ASSERT_EQ(set->product_pages.size(), 2u);
  EXPECT_EQ(set->product_pages[1].display_name, "Dvd");
  EXPECT_EQ(set->product_pages[1].template_file, "y");  // empty tokens collapse
  EXPECT_EQ(set->product_pages[1].output_file, "extra");
  EXPECT_EQ(set->product_pages[1].flag, 0);
  ASSERT_EQ(set->shop_home_pages.size(), 1u);
  const TemplateNode& home = set->shop_home_pages[0];
  EXPECT_EQ(home.display_name, "Home");
  EXPECT_EQ(home.template_file, "home.html");
  EXPECT_EQ(home.output_file, "N");
  EXPECT_EQ(home.flag, 0);
  ASSERT_EQ(set->cart_pages.size(), 1u);
  EXPECT_EQ(set->cart_pages[0].flag, 's');
  ASSERT_EQ(set->secure_files.size(), 1u);
  EXPECT_EQ(set->secure_files[0].display_name, "thanks.html");
  EXPECT_TRUE(set->secure_files[0].template_file.empty());
}

TEST_F(TemplateSetTest, LoadingKeepsAnOuterListWalkInPlace) {
  ConfigItemList* outer = CIL_CreateList();
  CIL_AddItem(outer, "a", "1");
  CIL_AddItem(outer, "b", "2");
  char* name = nullptr;
  ASSERT_EQ(CIL_GetNextNVP(outer, &name, nullptr), 1);
  SetPtr set = Load("SitePage\tOne;one.html\n");
  ASSERT_NE(set, nullptr);
  ASSERT_EQ(CIL_GetNextNVP(nullptr, &name, nullptr), 1);
  EXPECT_STREQ(name, "b");
  CIL_FreeList(outer);
}

class LookupTest : public TemplateSetTest {
 protected:
  void SetUp() override {
    set_ = Load(
        "SitePage1\tAbout;about.html;about.html\n"
        "SitePage2\tOrder Form;order.html;order.html;s\n"
        "SitePage3\tNews;news.html;news.html;y\n"
        "ShopHomePage\tHome;home.html;index.html;N\n"
        "ShopHomePage\tShop;shop.html;shop.html\n"
        "SearchPage\tFind;find.html;find.html\n"
        "SecureFile\tthanks.html\n"
        "TillboxPage\tNoFiles\n"
        "CopyExcludesDirs\timages;;cgi-bin\n");
    ASSERT_NE(set_, nullptr);
  }

  SetPtr set_;
};

TEST_F(LookupTest, DisplayNameReferences) {
  const struct {
    const char* reference;
    int kind;
    int result;
    const char* name;
  } cases[] = {
      {"1", kKindSitePage, 1, "About"},
      {"3", kKindSitePage, 1, "News"},
      {"SitePage2", kKindSitePage, 1, "Order Form"},
      {"sitepage3", kKindSitePage, 1, "News"},
      {"SitePage", kKindSitePage, 1, "About"},
      {"0", kKindSitePage, 1, "About"},
      {"abc", kKindSitePage, 1, "About"},
      {"", kKindSitePage, 1, "About"},
      {nullptr, kKindSitePage, 1, "About"},
      {"-2", kKindSitePage, 1, "About"},
      {"ProductPage2", kKindSitePage, 1, "About"},  // another kind's key word
      {"4", kKindSitePage, 0, nullptr},
      {"SitePage9", kKindSitePage, 0, nullptr},
      {"2", kKindShopHomePage, 1, "Shop"},
      {"anything", kKindSearchPage, 1, "Find"},
      {"2", kKindSearchPage, 0, nullptr},
      {"1", kKindProductPage, 0, nullptr},  // empty list
      {"1", 0, 0, nullptr},
      {"1", 8, 0, nullptr},
  };
  for (const auto& c : cases) {
    char buf[32];
    std::memset(buf, '#', sizeof buf);
    int got = PG_TpltGetDisplayName(set_.get(), c.reference, buf, sizeof buf, c.kind);
    std::string label =
        std::string(c.reference ? c.reference : "(null)") + " kind " + std::to_string(c.kind);
    EXPECT_EQ(got, c.result) << label;
    if (c.name != nullptr) {
      EXPECT_STREQ(buf, c.name) << label;
    } else {
      EXPECT_EQ(buf[0], '#') << label << ": buffer touched on a miss";
    }
  }
}

TEST_F(LookupTest, CopiesAreCutToTheBufferAndTerminated) {
  char buf[8];
  std::memset(buf, '#', sizeof buf);
  ASSERT_EQ(PG_TpltGetDisplayName(set_.get(), "2", buf, 6, kKindSitePage), 1);
  EXPECT_STREQ(buf, "Order");
  EXPECT_EQ(buf[6], '#');
  std::memset(buf, '#', sizeof buf);
  ASSERT_EQ(PG_TpltGetTemplateFile(set_.get(), "About", buf, 5, kKindSitePage), 1);
  EXPECT_STREQ(buf, "abou");
  EXPECT_EQ(buf[5], '#');
  EXPECT_EQ(PG_TpltGetOutputFile(set_.get(), "About", buf, 0, kKindSitePage), 1);
  EXPECT_EQ(buf[0], 'a');  // size 0: nothing written
}

TEST_F(LookupTest, FileLookupsAreExactAndLeaveTheBufferAloneOnAMiss) {
  char buf[64] = "untouched";
  EXPECT_EQ(PG_TpltGetTemplateFile(set_.get(), "about", buf, sizeof buf, kKindSitePage), 0);
  EXPECT_EQ(PG_TpltGetTemplateFile(set_.get(), "About", buf, sizeof buf, kKindShopHomePage), 0);
  EXPECT_EQ(PG_TpltGetOutputFile(set_.get(), nullptr, buf, sizeof buf, kKindSitePage), 0);
  EXPECT_EQ(PG_TpltGetOutputFile(set_.get(), "", buf, sizeof buf, kKindSitePage), 0);
  EXPECT_STREQ(buf, "untouched");
  ASSERT_EQ(PG_TpltGetOutputFile(set_.get(), "Home", buf, sizeof buf, kKindShopHomePage), 1);
  EXPECT_STREQ(buf, "index.html");
  // An entry without the field answers 1 with an empty text.
  ASSERT_EQ(PG_TpltGetTemplateFile(set_.get(), "NoFiles", buf, sizeof buf, kKindCartPage), 1);
  EXPECT_STREQ(buf, "");
}

TEST_F(LookupTest, SecureFlagsAndProductPages) {
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "Order Form", kKindSitePage), 1);
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "News", kKindSitePage), 0);
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "About", kKindSitePage), 0);
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "Missing", kKindSitePage), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "1"), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "ShopHomePage"), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "2"), 1);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "3"), 1);
}

TEST_F(LookupTest, AddSecureFileOnlyOncePerName) {
  EXPECT_EQ(PG_TpltAddSecureFile(set_.get(), "thanks.html"), 1);
  EXPECT_EQ(PG_TpltAddSecureFile(set_.get(), "order.html"), 1);
  EXPECT_EQ(PG_TpltAddSecureFile(set_.get(), "order.html"), 1);
  ASSERT_EQ(set_->secure_files.size(), 2u);
  EXPECT_EQ(set_->secure_files[1].display_name, "order.html");
}

TEST_F(LookupTest, IterationCursorWalksOneListAtATime) {
  char buf[32];
  std::string seen;
  for (int more = PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, kKindSitePage); more;
       more = PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0)) {
    seen += std::string(buf) + "|";
  }
  EXPECT_EQ(seen, "About|Order Form|News|");
  EXPECT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 0);
  // A secure file added during the walk of that list is reached too.
  ASSERT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, kKindSecureFile), 1);
  PG_TpltAddSecureFile(set_.get(), "late.html");
  ASSERT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "late.html");
  EXPECT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, 9), 0);
  EXPECT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 0);
  // Releasing the set ends a walk over it.
  ASSERT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, kKindSitePage), 1);
  set_.reset();
  EXPECT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 0);
}

TEST_F(LookupTest, CopyExclusionMatchesWholeTokens) {
  const struct {
    const char* dir;
    int excluded;
  } cases[] = {{"images", 1},         {"cgi-bin", 1}, {"Images", 0}, {"image", 0},
               {"images;cgi-bin", 0}, {"", 0},        {nullptr, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(PG_TpltIsDirCopyExcluded(set_.get(), c.dir), c.excluded) << (c.dir ? c.dir : "null");
  }
  EXPECT_EQ(set_->copy_excludes_dirs, "images;;cgi-bin");
  SetPtr none = Load("SitePage\tA\n");
  EXPECT_EQ(PG_TpltIsDirCopyExcluded(none.get(), "images"), 0);
}

TEST_F(TemplateSetTest, PrintsTheSetAndItsListsExactly) {
  SetPtr set = Load(
      "CreatorName\tAnn\nStyleName\tPlain\n"
      "SitePage\tAbout;about.html;about.html\nSitePage\tBare\n"
      "DefaultProductPage\tDefault;prod.html\nSecureFile\tthanks.html\n"
      "TillboxPage\tCart;;cart.html\n");
  ASSERT_NE(set, nullptr);
  ::testing::internal::CaptureStdout();
  PrintTemplateSet(set.get());
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "CreatorName: Ann\nStyleName: Plain\n"
            "\nDefaultProdPage\nDisplayName: Default\nFilePath: prod.html\n"
            "\nSitePages\nDisplayName: About\nFilePath: about.html\nOutputFile: about.html\n"
            "DisplayName: Bare\n"
            "\nTillboxPages\nDisplayName: Cart\nFilePath: cart.html\n");
}

}  // namespace
}  // namespace storegen
