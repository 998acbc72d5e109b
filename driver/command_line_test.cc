#include "driver/command_line.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "index/search_index.h"
#include "storedata/sku_list.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;

constexpr char kBaseConfig[] =
    "AllowPagegen\tyes\n"
    "ShoppingCartDirectory\tcart\n"
    "PageGenTmpltSet\tbasic\n"
    "StoreDir\t/store/acme\n"
    "ProductDatabase\tprod.txt\n";

class CommandLineTest : public ::testing::Test {
 protected:
  void SetUp() override { ResetRunState(); }
  void TearDown() override {
    FreeSkuList(PageGenState.pSkuList);
    std::free(PageGenState.pszShopHome);
    ResetRunState();
  }

  int Parse(std::vector<std::string> words) {
    words.insert(words.begin(), "storegen");
    std::vector<char*> argv;
    for (auto& w : words)
      argv.push_back(w.data());
    return ParseCommandLine(static_cast<int>(argv.size()), argv.data(), &cl_);
  }

  std::vector<std::string> Skus() const {
    std::vector<std::string> skus;
    for (const SkuList* n = PageGenState.pSkuList; n != nullptr; n = n->next)
      skus.push_back(n->sku);
    return skus;
  }

  ScopedTempDir dir_{/*enter=*/true};
  CommandLine cl_;
};

TEST_F(CommandLineTest, CategoryWordsStopAtTwoCharacterOptionOrEmptyWord) {
  struct Case {
    std::vector<std::string> words;
    std::string category;
    std::vector<std::string> skus;
  } cases[] = {
      {{"-C", "Home", "Garden", "-f", "0"}, "Home Garden", {}},
      {{"-C", "a", "-v", "c"}, "a", {"c"}},
      {{"-C", "Sale", "-10", "-t", "x.html"}, "Sale -10", {}},
      {{"-C", "a", "", "b"}, "a", {"", "b"}},
      {{"-C", "-f", "3"}, "", {}},
  };
  for (const auto& c : cases) {
    SetUp();
    EXPECT_EQ(Parse(c.words), kOk) << c.words[1];
    EXPECT_STREQ(PageGenState.szCategory, c.category.c_str()) << c.words[1];
    EXPECT_EQ(Skus(), c.skus) << c.words[1];
    TearDown();
  }
}

TEST_F(CommandLineTest, RunKindFromOptions) {
  constexpr uint32_t kList = kDynSinglePage | kDynListRequest;
  struct Case {
    std::vector<std::string> words;
    bool full_run;
    bool single_site_page;
    uint32_t dynamic;
  } cases[] = {
      {{"-v"}, true, false, 0},
      {{"-s", "0"}, true, false, 0},
      {{"-s", "3"}, false, true, 0},
      {{"-s", "abc"}, true, false, 0},
      {{"-d"}, false, false, 0},
      {{"-f", "10"}, false, false, kList},
      {{"SKU1"}, false, false, 0},
      {{"-p", "SKU1"}, false, false, kDynSinglePage},
      // Options are known by their second letter; unknown ones are ignored.
      {{"-", "-x", "-pages"}, true, false, kDynSinglePage},
  };
  for (const auto& c : cases) {
    SetUp();
    cl_ = CommandLine();
    EXPECT_EQ(Parse(c.words), kOk) << c.words[0];
    EXPECT_EQ(cl_.full_run, c.full_run) << c.words[0];
    EXPECT_EQ(cl_.single_site_page, c.single_site_page) << c.words[0];
    EXPECT_EQ(PageGenState.dynamic, c.dynamic) << c.words[0];
    TearDown();
  }
}

TEST_F(CommandLineTest, ValueOptionStandingLastIsRefused) {
  for (const char* option : {"-o", "-a", "-s", "-t", "-f", "-C", "-c"}) {
    SetUp();
    EXPECT_EQ(Parse({"-v", option}), kBadCommandLine) << option;
    TearDown();
  }
  // A value is taken as it stands, even when it looks like an option.
  SetUp();
  EXPECT_EQ(Parse({"-t", "-v"}), kOk);
  EXPECT_STREQ(PageGenState.szTemplateFile, "-v");
  EXPECT_EQ(PageGenState.verbose, 0);
}

TEST_F(CommandLineTest, StoreConfigKeysAndPaths) {
  WriteFile(dir_.Path("shop.v2/acme.cfg"),
            std::string(kBaseConfig) +
                "ProductAPILibrary\tlib.so\nProductAPILibConfig\tapi.cfg\n"
                "PageGenShopHomePage\tShopHomePage1\n");
  std::string cfg = "shop.v2/../shop.v2/acme.cfg";
  ASSERT_EQ(Parse({"-c", cfg}), kOk);
  EXPECT_STREQ(PageGenState.szConfig, dir_.Path("shop.v2/acme.cfg").c_str());
  EXPECT_STREQ(GetIndexSettings().store_config, cfg.c_str());  // as given
  EXPECT_EQ(cl_.store_name, "shop");                           // cut at the first "."
  EXPECT_STREQ(PageGenState.szCartDir, dir_.Path("cart").c_str());
  EXPECT_STREQ(PageGenState.szTmpltSet, "basic");
  EXPECT_STREQ(PageGenState.szHtmlPath, "/store/acme");
  EXPECT_STREQ(PageGenState.szDbName, "prod.txt");
  EXPECT_STREQ(PageGenState.szAPILib, "lib.so");
  EXPECT_STREQ(PageGenState.szAPIConfig, "api.cfg");
  ASSERT_NE(PageGenState.pszShopHome, nullptr);
  EXPECT_STREQ(PageGenState.pszShopHome, "ShopHomePage1");
}

TEST(ShortStoreName, CutsAtFirstDotAndKeepsLastSeparator) {
  EXPECT_EQ(ShortStoreName("/shops/acme.cfg"), "/acme");
  EXPECT_EQ(ShortStoreName("acme.cfg"), "acme");
  EXPECT_EQ(ShortStoreName("/a.b/c.cfg"), "/a");
  EXPECT_EQ(ShortStoreName("c:\\shops\\acme.cfg"), "\\acme");
  EXPECT_EQ(ShortStoreName("acme"), "acme");
}

}  // namespace
}  // namespace storegen
