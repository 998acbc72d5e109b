// Nothing lost on a failed write. Every rewrite of a file that storegen keeps,
// and a whole static run of the sample store, is run once per write point
// (write, fsync, close and rename of files in its directory, counted by the
// preloaded fault injector) with that operation failing. Afterwards a file
// must hold its old content or its complete new content, and no temporary
// file may be left behind; a web server must never find a half-written page.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/concurrency/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;

struct FaultRun {
  long operations = -1;  // write points counted; -1 when the report is missing
  std::string failed;    // the operation made to fail, "-" for none
  std::string out;       // the program's standard output
};

// Runs |argv| with the injector counting the files below |dir| and failing
// operation |fail_at| (0: none) with |error| ("ENOSPC" or "EIO").
FaultRun RunWithFault(const std::vector<std::string>& argv, const std::string& dir, long fail_at,
                      const std::string& error) {
  const std::string report = dir + ".report";
  std::remove(report.c_str());
  RunOptions options;
  options.set_env = {{"LD_PRELOAD", FAULTINJECT_LIB},
                     {"FAULTINJECT_DIR", dir},
                     {"FAULTINJECT_FAIL_AT", std::to_string(fail_at)},
                     {"FAULTINJECT_ERRNO", error},
                     {"FAULTINJECT_REPORT", report}};
  // The injector comes first in the library order; a sanitizer build's
  // runtime must accept that.
  const char* asan = std::getenv("ASAN_OPTIONS");
  options.set_env["ASAN_OPTIONS"] =
      std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0";
  RunResult run = RunProgram(argv, options);
  EXPECT_EQ(run.signal, 0) << run.err;
  FaultRun outcome;
  outcome.out = run.out;
  char failed[32] = "";
  if (FILE* fp = std::fopen(report.c_str(), "r")) {
    if (std::fscanf(fp, "%ld %31s", &outcome.operations, failed) != 2) outcome.operations = -1;
    std::fclose(fp);
  }
  outcome.failed = failed;
  return outcome;
}

struct Scenario {
  const char* what;  // fault_target's first argument
  const char* file;  // the file it rewrites
  std::string old_content;
  std::set<std::string> may_remain;  // files besides |file| allowed afterwards
};

void PrintTo(const Scenario& s, std::ostream* os) {
  *os << s.what;
}

// |head| followed by |count| lines made by |line|: files long enough that a
// rewrite takes several writes.
template <typename Line>
std::string LongText(std::string head, int count, Line line) {
  for (int i = 0; i < count; ++i)
    head += line(std::to_string(i));
  return head;
}

class FaultInjection : public ::testing::TestWithParam<Scenario> {};

TEST_P(FaultInjection, EveryFailedWriteKeepsOldOrCompleteNewContent) {
  const Scenario& s = GetParam();
  ScopedTempDir root;
  const std::string dir = root.Path("files");
  const std::vector<std::string> argv = {FAULT_TARGET, s.what, dir};
  auto fresh = [&] {
    RemoveTree(dir);
    WriteFile(dir + "/" + s.file, s.old_content);
  };

  fresh();
  FaultRun clean = RunWithFault(argv, dir, 0, "ENOSPC");
  ASSERT_GT(clean.operations, 0) << "no write point counted";
  ASSERT_EQ(clean.failed, "-");
  const std::string new_content = ReadFile(dir + "/" + s.file);
  ASSERT_NE(new_content, s.old_content);

  for (long n = 1; n <= clean.operations; ++n) {
    for (const char* error : {"ENOSPC", "EIO"}) {
      fresh();
      FaultRun run = RunWithFault(argv, dir, n, error);
      ASSERT_NE(run.failed, "-") << "write point " << n << " was not reached";
      const std::string what = run.failed + " #" + std::to_string(n) + " (" + error + ")";
      std::string content = ReadFile(dir + "/" + s.file, false);
      EXPECT_TRUE(content == s.old_content || content == new_content)
          << s.file << " is neither old nor new after " << what << "; the routine returned "
          << run.out;
      for (const std::string& name : ListDir(dir)) {
        EXPECT_TRUE(name == s.file || s.may_remain.count(name) > 0)
            << "left behind: " << name << " after " << what;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rewrites, FaultInjection,
    ::testing::Values(
        Scenario{
            "config",
            "store.cfg",
            LongText("ShopName\tCorner Shop\nErrorPage\terror.html\n", 400,
                     [](const std::string& i) { return "Setting" + i + "\tvalue " + i + "\n"; }),
            {"store.bak"}},
        Scenario{
            "attrdb",
            "store.adb",
            LongText("1\t1\tSize\tS,M,L\n2\t3\tColor\tred\\,dark,blue\n", 300,
                     [](const std::string& i) { return "1" + i + "\t5\tNote " + i + "\ta,b\n"; }),
            {}},
        // A failed rename leaves the rewrite's temporary file.
        Scenario{"wais",
                 "wwwwais.cfg",
                 LongText("# WAIS gateway template\nHomePage\thttp://www.example.com/\n", 300,
                          [](const std::string& i) {
                            return "SourceRules" + i + " replace \"/x/\" \"http://x/\"\n";
                          }) +
                     "DefaultURL\thttp://www.example.com/old.html\nIndexWhat\tall\n",
                 {"wwwwais.TMP"}},
        // The generated-file list gets the new names appended to its old content.
        Scenario{"filelist", "Xzq3Jpo9", "/srv/www/shop/old.html\n", {}}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.what); });

using Snapshot = std::map<std::string, std::string>;

// Every regular file below |root| but the program's directory (run lock and
// status log), by relative path.
Snapshot Take(const std::string& root) {
  Snapshot files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(entry.path(), root).string();
    if (entry.is_regular_file() && !rel.starts_with("bin/"))
      files[rel] = ReadFile(entry.path().string());
  }
  return files;
}

// True when |part| is whole lines, each of them a line of |whole|.
bool IsLinesSubset(const std::string& part, const std::string& whole) {
  if (!part.empty() && part.back() != '\n') return false;
  for (std::size_t at = 0, end; at < part.size(); at = end) {
    end = part.find('\n', at) + 1;
    if (("\n" + whole).find("\n" + part.substr(at, end - at)) == std::string::npos) return false;
  }
  return true;
}

void CopyTree(const std::string& from, const std::string& to) {
  RemoveTree(to);
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

// A full run removes the previous run's pages before it writes them anew, so
// a page may also be missing after a failed run; the next run writes it again.
TEST(StoregenFaults, AFailedWriteNeverLeavesAPartialFile) {
  ScopedTempDir dir;
  const std::string work = dir.Path("work");
  const std::string pristine = dir.Path("pristine");
  SampleStore store = InstallSampleStore(work);

  // The old state: the store as a first run left it. Then the data changes,
  // so that every page has an old and a new content.
  ASSERT_EQ(RunProgram(store.StaticRun()).exit_code, 0);
  SetConfigKeys(store.cfg, {{"ShopName", "Lantern & Loom, renewed"}});
  std::string products = ReadFile(work + "/store/products.txt");
  for (std::size_t at = 0; (at = products.find(".00\t", at)) != std::string::npos; at += 4)
    products.replace(at, 4, ".95\t");
  WriteFile(work + "/store/products.txt", products);
  CopyTree(work, pristine);
  const Snapshot old_files = Take(work);

  FaultRun clean = RunWithFault(store.StaticRun(), work, 0, "ENOSPC");
  ASSERT_EQ(clean.failed, "-");
  ASSERT_GT(clean.operations, 0);
  const Snapshot new_files = Take(work);

  // Each write point fails once, with ENOSPC and EIO in turn: a whole run has
  // hundreds of them, and the rewrite tests above try both errors at each.
  for (long n = 1; n <= clean.operations; ++n) {
    const char* error = n % 2 ? "ENOSPC" : "EIO";
    CopyTree(pristine, work);
    FaultRun run = RunWithFault(store.StaticRun(), work, n, error);
    ASSERT_NE(run.failed, "-") << "write point " << n << " not reached";
    const std::string what = run.failed + " #" + std::to_string(n) + " (" + error + ")";
    Snapshot now = Take(work);
    for (const auto& [path, content] : now) {
      // The list of generated files names the pages this run wrote: a failing
      // page that cuts a series of list pages short leaves the rest of the
      // series out (as a run whose search index could not be set up leaves out
      // its search page), never a line half-written.
      if (path.ends_with("/Xzq3Jpo9") && new_files.count(path)) {
        EXPECT_TRUE(IsLinesSubset(content, new_files.at(path))) << path << " after " << what;
        continue;
      }
      auto old_it = old_files.find(path);
      auto new_it = new_files.find(path);
      bool is_old = old_it != old_files.end() && old_it->second == content;
      bool is_new = new_it != new_files.end() && new_it->second == content;
      EXPECT_TRUE(is_old || is_new) << path << " is partial or foreign after " << what;
    }
    // Only pages and text-block caches may be missing afterwards.
    for (const auto& [path, content] : old_files) {
      if (now.count(path) || new_files.count(path) == 0) continue;
      EXPECT_TRUE(path.starts_with("out/") || path.ends_with(".tmp"))
          << path << " lost after " << what;
    }
  }
}

}  // namespace
}  // namespace storegen::testing
