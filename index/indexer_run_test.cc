#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "index/index_files.h"
#include "index/index_test_support.h"

namespace storegen::testing {
namespace {

using Args = std::vector<std::string>;

class IndexerRunTest : public IndexTest {
 protected:
  void SetUp() override {
    IndexTest::SetUp();
    CopyTruncated(GetIndexState().szCFG, "../swish/acme.wcf");
    WriteFile("store.cfg", "\n");
  }
};

TEST_F(IndexerRunTest, ArgumentsFollowTheStoresDynamicProductPages) {
  const Args base = {"../swish/swish", "-c", "../swish/acme.scf"};
  auto with = [&base](Args more) {
    more.insert(more.begin(), base.begin(), base.end());
    return more;
  };
  struct {
    const char* store_cfg;
    Args args;
  } cases[] = {{"PageGenDynamicProductPages\tno\nProductDatabase\tprod.txt\n", base},
               {"ProductDatabase\tprod.txt\n", base},
               {"PageGenDynamicProductPages\tYes\nProductDatabase\tprod.txt\n"
                "ProductAPILibrary\tlibpapi.so\nProductAPILibConfig\tpapi.cfg\n",
                with({"-s", "store.cfg", "-d", "prod.txt", "-L", "libpapi.so", "-a", "papi.cfg"})},
               {"PageGenDynamicProductPages\ty\nProductDatabase\tprod.txt\n",
                with({"-s", "store.cfg", "-d", "prod.txt"})}};
  InstallStandIn();
  for (const auto& c : cases) {
    WriteFile("store.cfg", c.store_cfg);
    ASSERT_EQ(ExecSwish("store.cfg"), 1);
    EXPECT_EQ(RecordedArgs(), c.args) << c.store_cfg;
  }
}

TEST_F(IndexerRunTest, ChildSeesEndOfInputAtOnceAndItsOutputIsDrained) {
  InstallStandIn();
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(ExecSwish("store.cfg"), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");  // the output went to the parent
  // "timeout" exits with 0 only when the command ended before it struck.
  EXPECT_EQ(ReadFile(Root("swish/stdin_status.txt")), "0\n");
  EXPECT_EQ(ReadFile(Root("swish/output_status.txt")), "0\n");
}

TEST_F(IndexerRunTest, ProgramCarriesTheExtensionAndAMissingOneStillCountsAsStarted) {
  EXPECT_EQ(ExecSwish("store.cfg"), 1);
  CopyTruncated(GetIndexState().szExeExtension, "exe");
  InstallStandIn("swish.exe");
  ASSERT_EQ(ExecSwish("store.cfg"), 1);
  EXPECT_EQ(RecordedArgs(), (Args{"../swish/swish.exe", "-c", "../swish/acme.scf"}));
}

}  // namespace
}  // namespace storegen::testing
