#include "pagegen/page_generators.h"

#include <string>

#include <gtest/gtest.h>

#include "cgisupport/config_file.h"
#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using namespace testing;

class PageGeneratorsTest : public PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    WriteFile(dir_.Path("page.html"), "<!--PAGEGEN_STORENAME-->");
    WriteFile(dir_.Path("set.cfg"),
              "ShopHomePage1\tHome;page.html;index.html\n"
              "SitePage1\tAbout;page.html;about.html\n"
              "SitePage2\tOrder Form;page.html;/forms/order.html;S\n"
              "TillboxPage1\tTake Order;page.html;/order.html\n"
              "TillboxPage2\tshow cart;page.html;cart.html\n"
              "TillboxPage3\tThanks;page.html;thanks.html\n"
              "SitePage3\tA;a.html;a/about.html\n"
              "SitePage4\tB;b.html;b/about.html\n");
    loaded_ = PG_InitTemplateSet(dir_.Path("set.cfg").c_str());
    ASSERT_NE(loaded_, nullptr);
    args_.html_path = "/shop/";
    args_.store_cfg = cfg_.c_str();
    args_.out_dir = out_.c_str();
    args_.set = loaded_;
  }
  void TearDown() override {
    PG_ShutdownTemplateSet(loaded_);
    PageTest::TearDown();
  }

  std::string Config(const char* key) {
    std::string value;
    GetConfigValue(cfg_.c_str(), key, &value, 0);
    return value;
  }

  std::string out_ = dir_.Path("www/shop/");
  TemplateSet* loaded_ = nullptr;
  GeneratorArgs args_;
};

TEST_F(PageGeneratorsTest, SitePages) {
  EXPECT_EQ(GenerateSitePage("About", args_, 0), 0);
  EXPECT_EQ(ReadFile(out_ + "about.html"), "Corner Shop");
  EXPECT_EQ(GenerateSitePage("about", args_, 1), -13);  // display names are exact

  // A secure page goes below the output directory and joins the secure files.
  EXPECT_EQ(GenerateSitePage("Order Form", args_, 1), 0);
  EXPECT_TRUE(FileExists(out_ + "forms/order.html"));
  EXPECT_EQ(loaded_->secure_files.size(), 1u);
  EXPECT_EQ(loaded_->secure_files[0].display_name, "/forms/order.html");
}

// Pages of the same name in different directories keep their own cached
// text blocks.
TEST_F(PageGeneratorsTest, TextBlockCachesAreNamedByThePagesPath) {
  for (const char* page : {"a", "b"})
    WriteFile(dir_.Path(std::string(page) + ".html"),
              std::string("<!--PAGEGEN_TEXT_BEGIN-->") + page + "<!--PAGEGEN_TEXT_END-->");
  for (int run = 0; run < 2; ++run) {
    EXPECT_EQ(GenerateSitePage("A", args_, 1), 0);
    EXPECT_EQ(GenerateSitePage("B", args_, 1), 0);
    EXPECT_EQ(ReadFile(out_ + "a/about.html"), "<!--PAGEGEN_TEXT_BEGIN-->a<!--PAGEGEN_TEXT_END-->");
    EXPECT_EQ(ReadFile(out_ + "b/about.html"), "<!--PAGEGEN_TEXT_BEGIN-->b<!--PAGEGEN_TEXT_END-->");
  }
  EXPECT_EQ(ReadFile(dir_.Path("b/about1.tmp")), "b");
}

TEST_F(PageGeneratorsTest, CartPagesAnnounceTheirAddress) {
  WriteFile(cfg_, "ShopName\tCorner Shop\nSecureStoreDir\tsecure/store\n");
  EXPECT_EQ(GenerateTillboxPage("Take Order", args_), 0);
  EXPECT_EQ(GenerateTillboxPage("show cart", args_), 0);
  EXPECT_EQ(GenerateTillboxPage("Thanks", args_), 0);
  EXPECT_EQ(Config("OnlineOrderPage"), "secure/store/order.html");
  EXPECT_EQ(Config("PostModCartPage"), "/shop/cart.html");
  EXPECT_EQ(ReadFile(out_ + "thanks.html"), "Corner Shop");
  EXPECT_EQ(ReadFile(out_ + "order.html"), "Corner Shop");
  EXPECT_EQ(GenerateTillboxPage("Error", args_), -13);
  EXPECT_EQ(Config("ErrorPage"), "");
}

TEST_F(PageGeneratorsTest, ShopHomePageIsKeptForTheListPages) {
  EXPECT_EQ(GenerateShopHomePage("ShopHomePage1", args_), 0);
  EXPECT_STREQ(PageGenState.szShopHomeName, "index.html");
  EXPECT_STREQ(PageGenState.szTemplateFile, "page.html");
  EXPECT_EQ(Config("PageGenShopHomeListTplt"), "");

  PageGenState.dynamic = kDynListPages;  // a store serving list pages dynamically
  EXPECT_EQ(GenerateShopHomePage("anything", args_), 0);
  EXPECT_EQ(Config("PageGenShopHomeListTplt"), "page.html");
  EXPECT_EQ(GenerateShopHomePage("2", args_), -13);
}

}  // namespace
}  // namespace storegen
