#include "index/search_index.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/run_state.h"
#include "index/index_state.h"
#include "index/index_test_support.h"

namespace storegen::testing {
namespace {

using Lines = std::vector<std::string>;

constexpr char kWaisTemplate[] =
    "SelfURL\tx\nSourceRules\treplace \"/var/www\" \"\"\nPageTitle\tx\n"
    "DefaultURL\thttp://shop.example/search/\nHomePage\thttp://shop.example/store/\n"
    "ExeExtension\n";

class SearchIndexTest : public IndexTest {
 protected:
  void SetUp() override {
    IndexTest::SetUp();
    WriteFile("wwwwais.cfg", kWaisTemplate);
    WriteFile(Root("swish/swish.cfg"), "IndexDir\tx\nIndexFile\tx\n");
    WriteFile("store.cfg", "PageGenDynamicProductPages\tno\n");
    CopyTruncated(GetIndexSettings().store_config, "store.cfg");
  }
};

TEST(SearchIndex, ApplySourceRuleCutsThroughTheFirstRootOccurrence) {
  const char* cases[][3] = {
      {"R", "R/x/y", "/x/y"}, {"/var/www", "/srv/x", "/srv/x"}, {"/r", "a/r/b/r/c", "/b/r/c"}};
  for (const auto& c : cases) {
    CopyTruncated(GetIndexState().gszRootDir, c[0]);
    IndexField path;
    CopyTruncated(path, c[1]);
    ApplySourceRule(path);
    EXPECT_STREQ(path, c[2]) << c[0] << " " << c[1];
  }
}

TEST_F(SearchIndexTest, InitIndexHandsTheStoreSettingsToTheWriters) {
  ASSERT_EQ(InitIndex("acme", "/store/acme/", "/store", "/var/www"), 1);
  EXPECT_EQ(FileLines(Root("swish/acme.wcf")),
            (Lines{"SelfURL \"USERPROG#cgi-bin/wwwwais?configure=acme.wcf\"",
                   "SourceRules replace \"/var/www\" \"/store\"", "PageTitle ../wais/acme.html",
                   "ExeExtension", "WebURL http://shop.example/store", "StoreDir /acme"}));
  EXPECT_EQ(FileLines(Root("swish/acme.scf")),
            (Lines{"IndexDir /var/www/acme", "IndexFile ../swish/acme.ind"}));
  EXPECT_EQ(ReadFile("wwwwais.cfg"), kWaisTemplate);  // search page not there yet
  EXPECT_EQ(GetIndexState().nNewStore, 1);
}

TEST_F(SearchIndexTest, SecondInitialisationFindsTheStoreNotNew) {
  ASSERT_EQ(InitIndex("acme", "/store/acme", "/store", "/var/www"), 1);
  WriteFile(Root("wais/acme.html"), "results");
  ASSERT_EQ(InitIndex("acme", "/store/acme", "/store", "/var/www"), 1);
  EXPECT_EQ(GetIndexState().nNewStore, 0);
  // With the search page in place the template's default URL is rewritten.
  EXPECT_NE(ReadFile("wwwwais.cfg").find("\nDefaultURL http://shop.example/search\n"),
            std::string::npos);
  // A default address that cannot be written leaves the index closed.
  std::filesystem::create_directory("wwwwais.TMP");
  EXPECT_EQ(InitIndex("acme", "/store/acme", "/store", "/var/www"), 0);
}

TEST_F(SearchIndexTest, NoCreateWritesNothingAndAnswersAsAFullSetUp) {
  const char* cases[][4] = {
      {"acme", "/store/acme/", "/store", "/acme/acme.html"},
      {"my.store", "/var/www/acme/", "", "/acme/my.html"},  // the source rule strips the root
  };
  for (const auto& c : cases) {
    ResetIndexState();
    ASSERT_EQ(InitIndexNoCreate(c[0], c[1], c[2], "/var/www"), 1);
    EXPECT_EQ(ListDir(Root("swish")), Lines{"swish.cfg"});
    EXPECT_EQ(ReadFile("wwwwais.cfg"), kWaisTemplate);
    EXPECT_STREQ(GetIndexHtmlOut(), c[3]);
    std::string self_url = GetIndexSelfURL();

    ResetIndexState();
    ASSERT_EQ(InitIndex(c[0], c[1], c[2], "/var/www"), 1);
    EXPECT_STREQ(GetIndexHtmlOut(), c[3]);
    EXPECT_EQ(GetIndexSelfURL(), self_url);
    RemoveTree(Root("swish/" + std::string(c[0]) + ".wcf"));
    RemoveTree(Root("swish/" + std::string(c[0]) + ".scf"));
  }
}

TEST_F(SearchIndexTest, FailedInitialisationLeavesTheIndexClosed) {
  RemoveTree("wwwwais.cfg");
  InstallStandIn();
  PageGenState.verbose = 1;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(InitIndex("acme", "/store/acme", "/store", "/var/www"), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Can't open Wais configuration file template ( wwwwais.cfg ).\n");
  EXPECT_EQ(GetIndexHtmlOut(), nullptr);
  ShutdownIndex();
  EXPECT_FALSE(FileExists(Root("swish/args.txt")));
}

TEST_F(SearchIndexTest, ShutdownRunsTheIndexerFromTheSetUpDirectory) {
  const std::string master_list = "<!-- BEGIN CATEGORY LIST -->\n<!-- END CATEGORY LIST -->\n";
  WriteFile(Root("wais/masterls.htm"), master_list);
  InstallStandIn();
  ASSERT_EQ(InitIndex("acme", "/store/acme", "/store", "/var/www"), 1);
  ASSERT_EQ(GetIndexState().nNewStore, 1);
  std::filesystem::current_path(Root("wais"));
  ShutdownIndex();
  EXPECT_EQ(RecordedArgs(), (Lines{"../swish/swish", "-c", "../swish/acme.scf"}));
  EXPECT_EQ(FileLines(Root("swish/cwd.txt")),
            Lines{std::filesystem::canonical(Root("cgi")).string()});
  EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical(Root("wais")));
  // A store new to the index leaves the master list of stores as it was.
  EXPECT_EQ(ReadFile(Root("wais/masterls.htm")), master_list);
  EXPECT_EQ(ListDir(Root("wais")), Lines{"masterls.htm"});
}

}  // namespace
}  // namespace storegen::testing
