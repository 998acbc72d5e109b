#include "driver/page_processes.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "storedata/sku_list.h"

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

// What a run of eight pages with |failing| pages failing leaves: its
// result, then its error and file lists. Each failing page has a code of its
// own. With two processes, the shop home series waits until the second
// process has written three pages from the back, so that both write some.
std::string RunOutcome(const std::set<int>& failing, int processes) {
  std::vector<SkuList> list(8);
  std::vector<std::string> skus;
  skus.reserve(list.size());
  std::vector<const SkuList*> nodes;
  for (std::size_t i = 0; i < list.size(); ++i) {
    skus.push_back("P" + std::to_string(i));
    list[i].sku = skus.back().data();
  }
  for (const SkuList& node : list)
    nodes.push_back(&node);
  void* shared = mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto* child_pages = new (shared) std::atomic<int>(0);
  const pid_t parent = getpid();
  auto head = [&] {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (processes == 2 && *child_pages < 3 && std::chrono::steady_clock::now() < give_up)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  };
  auto write = [&](const SkuList* node) {
    const int i = static_cast<int>(node - list.data());
    if (getpid() != parent) ++*child_pages;
    FileListAdd(&PageGenState.dellist, node->sku, 0);
    if (failing.count(i) == 0) return 0;
    FileListAdd(&PageGenState.errlist, node->sku, -20 - i);
    return -20 - i;
  };
  std::string outcome = std::to_string(WriteRunPages(head, nodes, processes, write)) + ":";
  for (const FileList* list : {PageGenState.errlist, PageGenState.dellist}) {
    for (const FileList* e = list; e != nullptr; e = e->next)
      outcome += std::string(" ") + e->text + "=" + std::to_string(e->code);
    outcome += ";";
  }
  if (processes == 2) {
    EXPECT_GE(*child_pages, 3);
  }
  munmap(shared, sizeof(std::atomic<int>));
  FreeFileList(PageGenState.errlist);
  FreeFileList(PageGenState.dellist);
  PageGenState.errlist = PageGenState.dellist = nullptr;
  return outcome;
}

// Whichever process writes a failing page, the run ends with the result and
// the lists one process gives: the last failing page's code.
TEST_F(PageProcessesTest, TwoProcessesEndAsOne) {
  const std::set<int> cases[] = {{}, {7}, {0}, {5, 7}, {0, 6}, {1, 2, 3, 4, 5, 6}};
  for (const std::set<int>& failing : cases) {
    const std::string one = RunOutcome(failing, 1);
    EXPECT_EQ(RunOutcome(failing, 2), one);
    EXPECT_TRUE(one.starts_with(failing.empty() ? "0:" : std::to_string(-20 - *failing.rbegin())))
        << one;
  }
}

}  // namespace
}  // namespace storegen
