// Nothing lost on a failed write: every rewrite of a file that storegen keeps
// is run once per write point (write, fsync, close and rename of files in its
// directory, counted by the preloaded fault injector), with that operation
// failing with ENOSPC and then with EIO. After each run the file must hold
// either its old content or its complete new content, and no temporary file
// may be left behind.
#include <cstdio>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/faultinject/fault_runner.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

struct Scenario {
  const char* what;  // fault_target's first argument
  const char* file;  // the file it rewrites
  std::string old_content;
  std::set<std::string> may_remain;  // files besides |file| allowed afterwards
  const char* success;               // what the routine prints on success; null: nothing
};

void PrintTo(const Scenario& s, std::ostream* os) {
  *os << s.what;
}

// A store configuration long enough to take several writes.
std::string LongConfig() {
  std::string text = "ShopName\tCorner Shop\nErrorPage\terror.html\n";
  for (int i = 0; i < 400; ++i)
    text += "Setting" + std::to_string(i) + "\tvalue number " + std::to_string(i) + "\n";
  return text;
}

std::string LongAttributeDb() {
  std::string text = "1\t1\tSize\tS,M,L\n2\t3\tColor\tred\\,dark,blue\n";
  for (int i = 3; i < 300; ++i)
    text += std::to_string(i) + "\t5\tNote " + std::to_string(i) + "\ta,b,c\n";
  return text;
}

std::string LongWaisTemplate() {
  std::string text = "# WAIS gateway template\nHomePage\thttp://www.example.com/\n";
  for (int i = 0; i < 300; ++i)
    text += "SourceRules" + std::to_string(i) + " replace \"/x/\" \"http://x/\"\n";
  return text + "DefaultURL\thttp://www.example.com/old.html\nIndexWhat\tall\n";
}

class FaultInjection : public ::testing::TestWithParam<Scenario> {};

TEST_P(FaultInjection, EveryFailedWriteKeepsOldOrCompleteNewContent) {
  const Scenario& s = GetParam();
  ScopedTempDir root;
  const std::string report = root.Path("report");
  const std::string dir = root.Path("files");
  auto fresh = [&] {
    RemoveTree(dir);
    WriteFile(dir + "/" + s.file, s.old_content);
  };

  fresh();
  FaultRun clean = RunWithFault({FAULT_TARGET, s.what, dir}, dir, 0, "ENOSPC", report);
  ASSERT_GT(clean.operations, 0) << "no write point counted";
  ASSERT_EQ(clean.failed, "-");
  const std::string new_content = ReadFile(dir + "/" + s.file);
  ASSERT_NE(new_content, s.old_content);

  int faults = 0;
  for (long n = 1; n <= clean.operations; ++n) {
    for (const char* error : {"ENOSPC", "EIO"}) {
      fresh();
      FaultRun run = RunWithFault({FAULT_TARGET, s.what, dir}, dir, n, error, report);
      ASSERT_NE(run.failed, "-") << "write point " << n << " was not reached";
      ++faults;
      std::string content = ReadFile(dir + "/" + s.file, false);
      EXPECT_TRUE(content == s.old_content || content == new_content)
          << s.file << " is neither old nor new after " << run.failed << " #" << n
          << " failed with " << error << "; the routine returned " << run.out;
      for (const std::string& name : ListDir(dir)) {
        EXPECT_TRUE(name == s.file || s.may_remain.count(name) > 0)
            << "left behind: " << name << " after " << run.failed << " #" << n << " (" << error
            << ")";
      }
    }
  }
  std::printf("faultinject %s: %ld write points, %d faults injected\n", s.what, clean.operations,
              faults);
}

INSTANTIATE_TEST_SUITE_P(
    Rewrites, FaultInjection,
    ::testing::Values(Scenario{"config", "store.cfg", LongConfig(), {"store.bak"}, "0"},
                      Scenario{"attrdb", "store.adb", LongAttributeDb(), {}, "1"},
                      // A failed rename leaves the rewrite's temporary file.
                      Scenario{"wais", "wwwwais.cfg", LongWaisTemplate(), {"wwwwais.TMP"}, "1"}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.what); });

// The generated-file list gets the new names appended to its old content.
INSTANTIATE_TEST_SUITE_P(
    FileList, FaultInjection,
    ::testing::Values(Scenario{"filelist", "Xzq3Jpo9", "/srv/www/shop/old.html\n", {}, nullptr}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.what); });

}  // namespace
}  // namespace storegen::testing
