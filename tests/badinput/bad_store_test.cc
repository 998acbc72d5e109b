// Whole static runs over a store with one thing wrong: each ends with a clear
// code (or completes) and never crashes or hangs.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/concurrency/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

TEST(BadStores, EveryRunEndsWithAClearCode) {
  std::string binary;
  for (int i = 0; i < 20000; ++i)
    binary.push_back(static_cast<char>((i * 131) & 0xff));
  const struct {
    const char* file;  // in the store's directory
    bool remove;
    std::string content;
    int code;
  } cases[] = {
      {"products.adb", true, "", 0},
      {"products.cdb", true, "", -17},  // the shop home page lists the categories
      {"products.cdb", false, "NAME\tBLURB\nTea\tLeaves\n", 0},  // no TILLBOXCATEGORY
      {"products.txt", false, "", 0},
      {"modern/product.html", false, binary, 0},
  };
  for (const auto& c : cases) {
    ScopedTempDir dir;
    SampleStore store = InstallSampleStore(dir.path());
    const std::string path = dir.Path("store/") + c.file;
    if (c.remove) {
      std::remove(path.c_str());
    } else {
      WriteFile(path, c.content);
    }
    RunResult run = RunProgram(store.StaticRun());
    EXPECT_EQ(run.signal, 0) << c.file;
    EXPECT_EQ(run.exit_code, ExitStatusOf(c.code)) << c.file << "\n" << run.out << run.err;
  }
}

// Product and category names that look like paths name pages inside the
// store's directory, never beside or above it.
TEST(BadStores, PathLikeNamesStayInTheStoresDirectory) {
  ScopedTempDir dir;
  SampleStore store = InstallSampleStore(dir.path());
  WriteFile(dir.Path("store/products.txt"),
            "SKU\tNAME\tPRICE\tTILLBOXCATEGORY\n"
            "../../escaped\tA\t1\t../../category\n"
            "..\\..\\escaped\tB\t1\tLighting\n"
            "/tmp/escaped\tC\t1\t/tmp\n"
            "%2e%2e%2fescaped\tD\t1\tLighting\n");
  RunResult run = RunProgram(store.StaticRun());
  EXPECT_EQ(run.exit_code, 0) << run.out;
  EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"bin", "out", "store", "swish"}));
  EXPECT_EQ(ListDir(store.out), (std::vector<std::string>{"lantern"}));
  EXPECT_FALSE(FileExists("/tmp/escaped"));
  int pages = 0;
  for (const std::string& name : ListDir(store.pages))
    pages += name.starts_with("p-");
  EXPECT_EQ(pages, 4);
}

}  // namespace
}  // namespace storegen::testing
