// The sample store's full-text search, end to end: sample/generate.sh lays
// out the program's directory and its ../swish sibling, a static run sets the
// index up and runs the real indexer (swish-e) over the pages it wrote, and
// swish-e then finds the product pages by the words of their descriptions.
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

TEST(SampleSearch, StaticRunsIndexTheProductPagesWithTheRealIndexer) {
  RunResult which = RunProgram({"/bin/sh", "-c", "command -v swish-e"});
  const std::string swish = which.out.substr(0, which.out.find('\n'));
  if (which.exit_code != 0) {
    const char* ci = std::getenv("CI");
    if (ci != nullptr && std::string(ci) == "true") FAIL() << "CI must install swish-e";
    GTEST_SKIP() << "swish-e is not installed, so the sample store cannot be indexed "
                    "(apt-get install swish-e)";
  }
  ScopedTempDir dir;
  const std::string work = dir.Path("build/sample-work/");
  InstallStoregen(dir.Path("build/bin"));
  RunResult r = RunProgram({"/bin/sh", SAMPLE_DIR "/generate.sh", dir.Path("build")});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  // The index is named after the configuration's path up to its first ".".
  std::string index;
  for (const std::string& name : ListDir(work + "swish"))
    if (name.ends_with(".ind")) index = work + "swish/" + name;
  ASSERT_NE(index, "") << r.out;

  // The product pages among the pages swish-e finds for |word|.
  auto found = [&](const std::string& word) {
    RunResult r = RunProgram({swish, "-f", index, "-w", word});
    EXPECT_EQ(r.exit_code, 0) << r.out << r.err;
    std::set<std::string> pages;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      // Result lines: rank, path, "title", size.
      std::size_t start = line.find(' ');
      if (line.starts_with("#") || start == std::string::npos) continue;
      std::string path = line.substr(start + 1, line.find(' ', start + 1) - start - 1);
      path = path.substr(path.rfind('/') + 1);
      if (path.starts_with("p-")) pages.insert(path);
    }
    return pages;
  };
  using Pages = std::set<std::string>;
  EXPECT_EQ(found("chimney"), Pages{"p-LL-104.html"});  // "Glass chimney on a ... base"
  EXPECT_EQ(found("beeswax"), Pages{"p-LL-103.html"});
  EXPECT_EQ(found("xylophone"), Pages{});

  // The next run finds the store's index set up and indexes the pages anew.
  std::string products = ReadFile(work + "products.txt");
  std::size_t at = products.find("Glass chimney");
  ASSERT_NE(at, std::string::npos);
  WriteFile(work + "products.txt", products.replace(at, 13, "Glass funnel"));
  r = RunProgram({work + "cgi-bin/storegen", "-o", dir.Path("build/sample-store"), "-c",
                  work + "lantern.cfg", "-s", "0"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_EQ(found("funnel"), Pages{"p-LL-104.html"});
  EXPECT_EQ(found("chimney"), Pages{});
}

}  // namespace
}  // namespace storegen
