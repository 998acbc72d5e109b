// The sample store's full-text search, end to end: sample/generate.sh lays
// out the program's directory and its ../swish sibling, a static run sets the
// index up and runs the real indexer (swish-e) over the pages it wrote, and
// swish-e then finds the product pages by the words of their descriptions.
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

// The full path of |command| on the PATH, or "" when there is none.
std::string FindCommand(const std::string& command) {
  RunResult r = RunProgram({"/bin/sh", "-c", "command -v " + command});
  std::string path = r.out.substr(0, r.out.find('\n'));
  return r.exit_code == 0 && path.starts_with("/") ? path : "";
}

class SampleSearchTest : public ::testing::Test {
 protected:
  void SetUp() override { InstallStoregen(build_ + "/bin"); }

  // Runs sample/generate.sh on this test's build directory.
  RunResult Generate(const RunOptions& options = {}) {
    return RunProgram({"/bin/sh", SAMPLE_DIR "/generate.sh", build_}, options);
  }

  std::string Work(const std::string& name) const { return build_ + "/sample-work/" + name; }
  std::string Page(const std::string& name) const {
    return build_ + "/sample-store/lantern/" + name;
  }
  // The store's index files in swish/ whose names end in |suffix|.
  std::vector<std::string> IndexFiles(const std::string& suffix) const {
    std::vector<std::string> found;
    for (const std::string& name : ListDir(Work("swish")))
      if (name.ends_with(suffix)) found.push_back(Work("swish/" + name));
    return found;
  }

  // The product pages among the pages that swish-e finds in |index| for
  // |word|.
  std::set<std::string> ProductPagesFound(const std::string& index, const std::string& word) {
    RunResult r = RunProgram({swish_, "-f", index, "-w", word});
    EXPECT_EQ(r.exit_code, 0) << r.out << r.err;
    std::set<std::string> pages;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      // Result lines: rank, path, "title", size.
      std::size_t start = line.find(' ');
      if (line.starts_with("#") || start == std::string::npos) continue;
      std::string path = line.substr(start + 1, line.find(' ', start + 1) - start - 1);
      if (path.substr(path.rfind('/') + 1).starts_with("p-")) pages.insert(path);
    }
    return pages;
  }

  ScopedTempDir dir_;
  std::string build_ = dir_.Path("build");
  std::string swish_ = FindCommand("swish-e");
};

TEST_F(SampleSearchTest, StaticRunIndexesTheProductPagesWithTheRealIndexer) {
  if (swish_.empty()) {
    const char* ci = std::getenv("CI");
    if (ci != nullptr && std::string(ci) == "true") {
      FAIL() << "swish-e is not installed; CI must install it (package swish-e)";
    }
    GTEST_SKIP() << "swish-e is not installed, so the sample store cannot be indexed "
                    "(apt-get install swish-e)";
  }
  RunResult r = Generate();
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  const std::vector<std::string> indexes = IndexFiles(".ind");
  ASSERT_EQ(indexes.size(), 1u) << r.out;
  const std::string index = indexes[0];

  struct {
    const char* word;
    const char* page;
  } cases[] = {
      {"chimney", "p-LL-104.html"},  // LL-104: "Glass chimney on a powder-coated base ..."
      {"Chimney", "p-LL-104.html"},
      {"beeswax", "p-LL-103.html"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ProductPagesFound(index, c.word), std::set<std::string>{Page(c.page)}) << c.word;
  EXPECT_EQ(ProductPagesFound(index, "xylophone"), std::set<std::string>{});

  // The next run finds the store's index set up and indexes the pages anew.
  std::string products = ReadFile(Work("products.txt"));
  std::size_t at = products.find("Glass chimney");
  ASSERT_NE(at, std::string::npos);
  WriteFile(Work("products.txt"), products.replace(at, 13, "Glass funnel"));
  // A further full static run through the program as generate.sh laid it out.
  r = RunProgram({Work("cgi-bin/storegen"), "-o", build_ + "/sample-store", "-c",
                  Work("lantern.cfg"), "-s", "0"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_EQ(IndexFiles(".ind"), indexes);
  EXPECT_EQ(ProductPagesFound(index, "funnel"), std::set<std::string>{Page("p-LL-104.html")});
  EXPECT_EQ(ProductPagesFound(index, "chimney"), std::set<std::string>{});
}

TEST_F(SampleSearchTest, WithoutTheIndexerTheStoreIsStillGenerated) {
  // A PATH with the script's tools but no swish-e.
  const std::string tools = dir_.Path("tools");
  std::filesystem::create_directories(tools);
  for (const char* tool : {"cp", "dirname", "ln", "mkdir", "rm", "sed"}) {
    std::string path = FindCommand(tool);
    ASSERT_FALSE(path.empty()) << tool;
    std::filesystem::create_symlink(path, tools + "/" + tool);
  }
  RunOptions options;
  options.set_env = {{"PATH", tools}};
  RunResult r = Generate(options);
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("swish-e is not installed"), std::string::npos) << r.out;
  EXPECT_TRUE(FileExists(Page("index.html")));
  EXPECT_TRUE(FileExists(Page("p-LL-104.html")));
  // The index is set up for the search gateway and the search page is written
  // where the index says (named after the store's "<name>.wcf"), but no index
  // is made.
  ASSERT_EQ(IndexFiles(".wcf").size(), 1u);
  EXPECT_EQ(IndexFiles(".scf").size(), 1u);
  EXPECT_EQ(IndexFiles(".ind"), std::vector<std::string>{});
  std::string wcf = IndexFiles(".wcf")[0];
  std::string name = wcf.substr(wcf.rfind('/') + 1);
  std::string search_page = ReadFile(Page(name.substr(0, name.size() - 4) + ".html"));
  EXPECT_NE(search_page.find("<title>Search &middot; Lantern & Loom</title>"), std::string::npos)
      << search_page;
}

}  // namespace
}  // namespace storegen
