// Whole static runs over a store with one thing wrong: each ends with a clear
// code (or completes) and never crashes or hangs.
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/concurrency/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

TEST(BadStores, EveryRunEndsWithAClearCode) {
  struct Case {
    const char* name;
    std::function<void(const std::string& store)> spoil;
    int code;
  } cases[] = {
      {"no template-set configuration",
       [](const std::string& s) { std::remove((s + "/modern.cfg").c_str()); }, -5},
      {"a page's template missing",
       [](const std::string& s) { std::remove((s + "/modern/product.html").c_str()); }, -7},
      {"no product database",
       [](const std::string& s) { std::remove((s + "/products.txt").c_str()); }, -2},
      {"no attribute database",
       [](const std::string& s) { std::remove((s + "/products.adb").c_str()); }, 0},
      // The shop home page lists the categories.
      {"no category database",
       [](const std::string& s) { std::remove((s + "/products.cdb").c_str()); }, -17},
      {"a category database without TILLBOXCATEGORY",
       [](const std::string& s) { WriteFile(s + "/products.cdb", "NAME\tBLURB\nTea\tLeaves\n"); },
       0},
      {"an empty product database",
       [](const std::string& s) { WriteFile(s + "/products.txt", ""); }, 0},
      {"a product database without its name line",
       [](const std::string& s) {
         std::string text = ReadFile(s + "/products.txt");
         WriteFile(s + "/products.txt", text.substr(text.find('\n') + 1));
       },
       0},
      {"a binary product template",
       [](const std::string& s) {
         std::string bytes;
         for (int i = 0; i < 20000; ++i)
           bytes.push_back(static_cast<char>((i * 131) & 0xff));
         WriteFile(s + "/modern/product.html", bytes);
       },
       0},
      {"symbolic-link loops in the template-set directory",
       [](const std::string& s) {
         EXPECT_EQ(symlink("..", (s + "/modern/images/up").c_str()), 0);
         EXPECT_EQ(symlink((s + "/modern").c_str(), (s + "/modern/css/again").c_str()), 0);
         EXPECT_EQ(symlink("self", (s + "/modern/self").c_str()), 0);
       },
       0},
  };
  for (const Case& c : cases) {
    ScopedTempDir dir;
    SampleStore store = InstallSampleStore(dir.path());
    c.spoil(dir.Path("store"));
    RunResult run = RunProgram(store.StaticRun());
    EXPECT_EQ(run.signal, 0) << c.name;
    EXPECT_EQ(run.exit_code, ExitStatusOf(c.code)) << c.name << "\n" << run.out << run.err;
  }
  ScopedTempDir dir;
  RunResult missing = RunProgram({InstallStoregen(dir.path()), "-c", "/no/such.cfg"});
  EXPECT_EQ(missing.exit_code, ExitStatusOf(-2));
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
  for (const std::string& name : ListDir(store.pages)) {
    if (name.rfind("p-", 0) == 0) ++pages;
  }
  EXPECT_EQ(pages, 4);
}

}  // namespace
}  // namespace storegen::testing
