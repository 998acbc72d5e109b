#include "driver/page_processes.h"

#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "cgisupport/run_state.h"

namespace storegen {
namespace {

class PageProcessesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    unsetenv("STOREGEN_PAGE_PROCESSES");
  }
  void TearDown() override {
    ResetRunState();
    unsetenv("STOREGEN_PAGE_PROCESSES");
  }
};

// Two processes only where they cannot change what the run does: a static
// run that is not verbose and serves no page dynamically, with enough pages
// and a second processor; the environment decides otherwise, except for a
// dynamic request.
TEST_F(PageProcessesTest, TwoOnlyForALargeQuietStaticRun) {
  const int two = sysconf(_SC_NPROCESSORS_ONLN) > 1 ? 2 : 1;
  EXPECT_EQ(PageProcesses(1000), two);
  EXPECT_EQ(PageProcesses(999), 1);
  PageGenState.verbose = 1;
  EXPECT_EQ(PageProcesses(5000), 1);
  PageGenState.verbose = 0;
  for (int32_t dynamic : {kDynProductPages, kDynListPages, kDynSinglePage}) {
    PageGenState.dynamic = dynamic;
    EXPECT_EQ(PageProcesses(5000), 1) << dynamic;
  }

  PageGenState.dynamic = 0;
  setenv("STOREGEN_PAGE_PROCESSES", "2", 1);
  EXPECT_EQ(PageProcesses(3), 2);
  setenv("STOREGEN_PAGE_PROCESSES", "1", 1);
  EXPECT_EQ(PageProcesses(5000), 1);
  setenv("STOREGEN_PAGE_PROCESSES", "many", 1);  // not a choice: as unset
  EXPECT_EQ(PageProcesses(5000), two);
  PageGenState.dynamic = kDynSinglePage;
  setenv("STOREGEN_PAGE_PROCESSES", "2", 1);
  EXPECT_EQ(PageProcesses(5000), 1);
}

}  // namespace
}  // namespace storegen
