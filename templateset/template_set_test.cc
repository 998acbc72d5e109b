#include "templateset/template_set.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using Strings = std::vector<std::string>;

struct SetDeleter {
  void operator()(TemplateSet* s) const { PG_ShutdownTemplateSet(s); }
};
using SetPtr = std::unique_ptr<TemplateSet, SetDeleter>;

// "display|template|output|flag" per entry, flag '-' when absent.
Strings Entries(const TemplateList& list) {
  Strings out;
  for (const TemplateNode& n : list)
    out.push_back(n.display_name + "|" + n.template_file + "|" + n.output_file + "|" +
                  (n.flag ? n.flag : '-'));
  return out;
}

class TemplateSetTest : public ::testing::Test {
 protected:
  SetPtr Load(const std::string& content) {
    testing::WriteFile(dir_.Path("set.cfg"), content);
    return SetPtr(PG_InitTemplateSet(dir_.Path("set.cfg").c_str()));
  }

  testing::ScopedTempDir dir_;
};

TEST_F(TemplateSetTest, RefusesMissingEmptyAndPairlessFiles) {
  EXPECT_EQ(PG_InitTemplateSet(nullptr), nullptr);
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
  EXPECT_EQ((Strings{set->file_name, set->creator_name, set->copyright, set->style_name,
                     set->info_page, set->copy_excludes_dirs, set->default_product_graphic,
                     set->default_product_thumbnail, std::to_string(set->max_prod_per_page)}),
            (Strings{dir_.Path("set.cfg"), "Bob", "(c) Bob", "Plain", "basic/info.html",
                     "images;cgi-bin", "nopic.gif", "nothumb.gif", "12"}));
  EXPECT_EQ(Load("MaxProdPerPage\t-5\n")->max_prod_per_page, 0);
  EXPECT_EQ(Load("MaxProdPerPage\t99999999999\n")->max_prod_per_page, 2147483647);
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
  EXPECT_EQ(Entries(set->site_pages), (Strings{"Second|b.html|b.html|-", "First|a.html|a.html|S"}));
  EXPECT_EQ(Entries(set->search_page), Strings{"Find|find.html|find.html|-"});
  // "DefaultProductPage" is not taken for a product page; empty tokens collapse.
  EXPECT_EQ(Entries(set->default_product_page), Strings{"Default|prod.html||-"});
  EXPECT_EQ(Entries(set->product_pages), (Strings{"Book|book.html||-", "Dvd|y|extra|-"}));
  EXPECT_EQ(Entries(set->shop_home_pages), Strings{"Home|home.html|N|-"});
  EXPECT_EQ(Entries(set->cart_pages), Strings{"Cart|cart.html|cart.html|s"});
  EXPECT_EQ(Entries(set->secure_files), Strings{"thanks.html|||-"});
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
    const char* name;  // null: no such entry
  } cases[] = {{"3", kKindSitePage, "News"},
               {"sitepage2", kKindSitePage, "Order Form"},
               {"SitePage", kKindSitePage, "About"},
               {"abc", kKindSitePage, "About"},
               {nullptr, kKindSitePage, "About"},
               {"ProductPage2", kKindSitePage, "About"},  // another kind's key word
               {"4", kKindSitePage, nullptr},
               {"SitePage9", kKindSitePage, nullptr},
               {"2", kKindShopHomePage, "Shop"},
               {"anything", kKindSearchPage, "Find"},
               {"2", kKindSearchPage, nullptr},
               {"1", kKindProductPage, nullptr},  // empty list
               {"1", 0, nullptr}};
  for (const auto& c : cases) {
    char buf[32] = "#";
    SCOPED_TRACE(std::string(c.reference ? c.reference : "(null)") + " kind " +
                 std::to_string(c.kind));
    EXPECT_EQ(PG_TpltGetDisplayName(set_.get(), c.reference, buf, sizeof buf, c.kind),
              c.name ? 1 : 0);
    EXPECT_STREQ(buf, c.name ? c.name : "#");  // a miss leaves the buffer alone
  }
}

TEST_F(LookupTest, FileLookupsAreExactCutAndLeaveTheBufferAloneOnAMiss) {
  char buf[64] = "untouched";
  EXPECT_EQ(PG_TpltGetTemplateFile(set_.get(), "about", buf, sizeof buf, kKindSitePage), 0);
  EXPECT_EQ(PG_TpltGetTemplateFile(set_.get(), "About", buf, sizeof buf, kKindShopHomePage), 0);
  EXPECT_EQ(PG_TpltGetOutputFile(set_.get(), nullptr, buf, sizeof buf, kKindSitePage), 0);
  EXPECT_STREQ(buf, "untouched");
  ASSERT_EQ(PG_TpltGetOutputFile(set_.get(), "Home", buf, sizeof buf, kKindShopHomePage), 1);
  EXPECT_STREQ(buf, "index.html");
  // An entry without the field answers 1 with an empty text.
  ASSERT_EQ(PG_TpltGetTemplateFile(set_.get(), "NoFiles", buf, sizeof buf, kKindCartPage), 1);
  EXPECT_STREQ(buf, "");

  std::memset(buf, '#', sizeof buf);
  ASSERT_EQ(PG_TpltGetDisplayName(set_.get(), "2", buf, 6, kKindSitePage), 1);
  EXPECT_EQ(std::string(buf, 7), std::string("Order\0#", 7));
  std::memset(buf, '#', sizeof buf);
  ASSERT_EQ(PG_TpltGetTemplateFile(set_.get(), "About", buf, 5, kKindSitePage), 1);
  EXPECT_EQ(std::string(buf, 6), std::string("abou\0#", 6));
  EXPECT_EQ(PG_TpltGetOutputFile(set_.get(), "About", buf, 0, kKindSitePage), 1);
  EXPECT_EQ(buf[0], 'a');  // size 0: nothing written
}

TEST_F(LookupTest, SecureFlagsProductPagesAndCopyExclusion) {
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "Order Form", kKindSitePage), 1);
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "News", kKindSitePage), 0);
  EXPECT_EQ(PG_TpltIsSecureFile(set_.get(), "Missing", kKindSitePage), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "1"), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "ShopHomePage"), 0);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "2"), 1);
  EXPECT_EQ(PG_TpltAreThereProdPages(set_.get(), "3"), 1);
  // Exclusion matches whole tokens, exactly.
  for (const char* dir : {"images", "cgi-bin"})
    EXPECT_EQ(PG_TpltIsDirCopyExcluded(set_.get(), dir), 1) << dir;
  for (const char* dir :
       {"Images", "image", "images;cgi-bin", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(PG_TpltIsDirCopyExcluded(set_.get(), dir), 0) << (dir ? dir : "null");
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
  // A secure file added during the walk of that list is reached too; one
  // already there is not added twice.
  ASSERT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, kKindSecureFile), 1);
  EXPECT_EQ(PG_TpltAddSecureFile(set_.get(), "late.html"), 1);
  EXPECT_EQ(PG_TpltAddSecureFile(set_.get(), "thanks.html"), 1);
  ASSERT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 1);
  EXPECT_STREQ(buf, "late.html");
  EXPECT_EQ(set_->secure_files.size(), 2u);
  EXPECT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, 9), 0);
  EXPECT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 0);
  // Releasing the set ends a walk over it.
  ASSERT_EQ(PG_TpltGetNextDisplayName(set_.get(), buf, sizeof buf, kKindSitePage), 1);
  set_.reset();
  EXPECT_EQ(PG_TpltGetNextDisplayName(nullptr, buf, sizeof buf, 0), 0);
}

}  // namespace
}  // namespace storegen
