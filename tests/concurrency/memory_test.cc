// Memory grows with the product count only. A full static run over a store of
// 10,000 products writes some 10,000 pages; in the sanitizer build
// LeakSanitizer reports any memory not freed at exit and fails the run, and in
// the normal build the run's peak memory may exceed that of a 1,000-product
// run by at most 2 KiB per added product (the product records and the lists
// of written files), where a page buffer lost per page would add more.
#include <sys/resource.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

// The largest peak resident size of the children waited for so far, in KiB.
long PeakChildKiB() {
  struct rusage usage {};
  getrusage(RUSAGE_CHILDREN, &usage);
  return usage.ru_maxrss;
}

TEST(Memory, TenThousandProductStoreHasNoPerPageLeak) {
  ScopedTempDir dir;
  SampleStore store = InstallSampleStore(dir.path());
  long peak_kib[2] = {0, 0};
  const int counts[2] = {1000, 10000};
  for (int i = 0; i < 2; ++i) {
    WriteManyProducts(store, counts[i]);
    RunOptions options;
    options.timeout_seconds = 600;
    RunResult run = RunProgram(store.StaticRun(), options);
    ASSERT_EQ(run.exit_code, 0) << counts[i] << " products\n" << run.out << run.err;
    EXPECT_EQ(run.err.find("LeakSanitizer"), std::string::npos) << run.err;
    char last[32];
    std::snprintf(last, sizeof last, "p-P%05d.html", counts[i]);
    EXPECT_TRUE(FileExists(store.pages + last)) << last;
    // The smaller run goes first: the figure is the largest peak so far.
    peak_kib[i] = PeakChildKiB();
  }
  long per_product = (peak_kib[1] - peak_kib[0]) * 1024 / (counts[1] - counts[0]);
  std::printf("memory: %ld KiB peak for %d products, %ld KiB for %d, %ld bytes per product\n",
              peak_kib[0], counts[0], peak_kib[1], counts[1], per_product);
#if !defined(__SANITIZE_ADDRESS__)
  // The sanitizer's own bookkeeping makes peak sizes meaningless there.
  EXPECT_LT(per_product, 2048);
#endif
}

}  // namespace
}  // namespace storegen::testing
