// Nothing lost on a failed write. Every rewrite of a file that storegen keeps,
// and a whole static run of the sample store, is run once per write point
// (write, fsync, close and rename of files in its directory, counted by the
// preloaded fault injector) with that operation failing. Afterwards a file
// must hold its old content or its complete new content, and no temporary
// file may be left behind; a web server must never find a half-written page.
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;

struct FaultRun {
  long operations = -1;  // write points counted; -1 when the report is missing
  std::string failed;    // the operation made to fail, "-" for none
  std::string out;       // the program's standard output
  int exit_code = -1;
};

// Runs |argv| with the injector counting the files below |dir| and failing
// operation |fail_at| (0: none) with |error| ("ENOSPC" or "EIO").
FaultRun RunWithFault(const std::vector<std::string>& argv, const std::string& dir, long fail_at,
                      const std::string& error, const std::string& mode = "once",
                      const std::map<std::string, std::string>& env = {}) {
  const std::string report = dir + ".report";
  std::remove(report.c_str());
  RunOptions options;
  options.set_env = {{"LD_PRELOAD", FAULTINJECT_LIB},
                     {"FAULTINJECT_DIR", dir},
                     {"FAULTINJECT_FAIL_AT", std::to_string(fail_at)},
                     {"FAULTINJECT_ERRNO", error},
                     {"FAULTINJECT_MODE", mode},
                     {"FAULTINJECT_REPORT", report}};
  options.set_env.insert(env.begin(), env.end());
  // The injector comes first in the library order; a sanitizer build's
  // runtime must accept that.
  const char* asan = std::getenv("ASAN_OPTIONS");
  options.set_env["ASAN_OPTIONS"] =
      std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0";
  RunResult run = RunProgram(argv, options);
  EXPECT_TRUE(mode == "kill" || mode == "term" || run.signal == 0) << run.err;
  FaultRun outcome;
  outcome.out = run.out;
  outcome.exit_code = run.exit_code;
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
        // The generated-file list of a full run gets the run's names.
        Scenario{"filelist", "Xzq3Jpo9", "/srv/www/shop/old.html\n", {}}),
    [](const ::testing::TestParamInfo<Scenario>& info) { return std::string(info.param.what); });

using Snapshot = std::map<std::string, std::string>;

// Every regular file below |root| but the program's directory (run lock,
// status log, record of temporary files), by relative path; temporary files
// go to |*temporaries| instead.
Snapshot Take(const std::string& root, std::vector<std::string>* temporaries = nullptr) {
  Snapshot files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::string rel = fs::relative(entry.path(), root).string();
    if (entry.path().filename().string().starts_with(".storegen-")) {
      if (temporaries != nullptr) temporaries->push_back(rel);
    } else if (entry.is_regular_file() && !rel.starts_with("bin/")) {
      files[rel] = ReadFile(entry.path().string());
    }
  }
  return files;
}

void CopyTree(const std::string& from, const std::string& to) {
  RemoveTree(to);
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

std::set<std::string> Lines(const std::string& text) {
  std::set<std::string> lines;
  for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
    end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    lines.insert(text.substr(at, end - at));
  }
  return lines;
}

// A whole run of a small store, stopped at every write point (and, killed,
// at every removal): on a disk that fills up there ("full": that write and
// every later one fail), by SIGKILL there ("kill") or, at every third, by
// SIGTERM ("term"). Every other run that is killed or ended writes its
// product pages in two processes, and the signal may strike either.
// Between the two runs every page changes, one product goes and one comes.
// After the stopped run every page of the previous run is there, old or new
// and never partial, and the list names every page there; the next run
// leaves exactly the store a run without faults leaves, and no temporary
// file.
class WholeRun : public ::testing::TestWithParam<std::string> {};

TEST_P(WholeRun, PreviousStoreStaysWholeAndListedAndTheNextRunCleansUp) {
  const std::string mode = GetParam();
  // Processes orphaned by a killed run come here, to be waited for.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  ScopedTempDir dir;
  const std::string work = dir.Path("work");
  const std::string pristine = dir.Path("pristine");
  // Few pages and pictures, so that the run has about a hundred write points.
  SampleStore store = InstallSampleStore(work, {{"AllowIndex", "no"}});
  const std::string images = work + "/store/modern/images/";
  RemoveTree(images + "products");
  for (const char* gone : {"cat-kitchen.svg", "cat-stationery.svg", "cat-garden.svg", "prev.svg"})
    std::remove((images + gone).c_str());
  const std::string categories = ReadFile(work + "/store/products.cdb");
  WriteFile(work + "/store/products.cdb", categories.substr(0, categories.find("\nKitchen") + 1));
  const std::string products = ReadFile(work + "/store/products.txt");
  auto keep_products = [&](const std::set<std::string>& skus, const std::string& price) {
    std::string text = products.substr(0, products.find('\n') + 1);
    for (const std::string& line : Lines(products)) {
      if (skus.count(line.substr(0, line.find('\t'))) == 0) continue;
      std::size_t at = line.find(".00\t");
      text += (at == std::string::npos ? line : line.substr(0, at) + price + line.substr(at + 3)) +
              "\n";
    }
    WriteFile(work + "/store/products.txt", text);
  };
  keep_products({"LL-101", "LL-102", "TX-201"}, ".00");
  ASSERT_EQ(RunProgram(store.StaticRun()).exit_code, 0);
  keep_products({"LL-101", "TX-201", "TX-202"}, ".95");
  SetConfigKeys(store.cfg, {{"ShopName", "Lantern & Loom, renewed"}});
  CopyTree(work, pristine);
  const Snapshot old_files = Take(work);
  const std::string list = "out/lantern/Xzq3Jpo9";
  const std::set<std::string> old_list = Lines(old_files.at(list));

  FaultRun clean = RunWithFault(store.StaticRun(), work, 0, "ENOSPC", mode);
  ASSERT_EQ(clean.failed, "-");
  const Snapshot new_files = Take(work);
  const std::set<std::string> new_list = Lines(new_files.at(list));
  ASSERT_TRUE(old_files.count("out/lantern/p-LL-102.html") &&
              !new_files.count("out/lantern/p-LL-102.html"));
  ASSERT_TRUE(new_files.count("out/lantern/p-TX-202.html") &&
              !old_files.count("out/lantern/p-TX-202.html"));

  const bool signalled = mode != "full";
  int moments = 0;
  for (long n = 1; n <= clean.operations; n += mode == "term" ? 3 : 1, ++moments) {
    CopyTree(pristine, work);
    const bool two = signalled && n % 2 == 0;
    FaultRun run = RunWithFault(store.StaticRun(), work, n, "ENOSPC", mode,
                                {{"STOREGEN_PAGE_PROCESSES", two ? "2" : "1"}});
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    const std::string what = mode + " at #" + std::to_string(n) + " (" + run.failed + ")";
    ASSERT_TRUE(two || run.failed != "-") << what << " not reached";
    std::vector<std::string> temporaries;
    const Snapshot now = Take(work, &temporaries);
    // Only SIGKILL leaves temporary files and the lock file behind.
    EXPECT_TRUE(mode == "kill" || temporaries.empty()) << what << " left " << temporaries[0];
    EXPECT_TRUE(mode == "kill" || !FileExists(store.root + "/bin/pgstatus.pid")) << what;
    const std::set<std::string> listed = Lines(now.count(list) ? now.at(list) : "");
    // The pages the run no longer writes go once it has written all others.
    bool all_new = true;
    for (const auto& [path, content] : new_files)
      all_new = all_new && (path == list || (now.count(path) && now.at(path) == content));
    for (const auto& [path, content] : old_files) {
      EXPECT_TRUE(now.count(path) || (all_new && !new_files.count(path)))
          << path << " lost after " << what;
    }
    for (const auto& [path, content] : now) {
      const std::string abs = work + "/" + path;
      EXPECT_TRUE(listed.count(abs) || !(old_list.count(abs) || new_list.count(abs)))
          << path << " not listed after " << what;
      if (path == list) continue;
      const bool is_old = old_files.count(path) && old_files.at(path) == content;
      const bool is_new = new_files.count(path) && new_files.at(path) == content;
      EXPECT_TRUE(is_old || is_new) << path << " is partial or foreign after " << what;
    }

    // A run that says it succeeded did: the fault went unnoticed only if it
    // did not matter.
    if (run.exit_code == 0) {
      for (const auto& [path, content] : new_files)
        EXPECT_TRUE(now.count(path) && now.at(path) == content) << path << " after " << what;
    }

    RunResult next = RunProgram(store.StaticRun());
    EXPECT_EQ(next.exit_code, 0) << "the run after " << what;
    temporaries.clear();
    const Snapshot after = Take(work, &temporaries);
    EXPECT_TRUE(temporaries.empty()) << temporaries[0] << " stays after the run after " << what;
    EXPECT_FALSE(FileExists(store.root + "/bin/pgstatus.tmpdirs")) << what;
    for (const auto& [path, content] : new_files) {
      EXPECT_TRUE(after.count(path) && after.at(path) == content)
          << path << " differs after the run after " << what;
    }
    EXPECT_EQ(after.size(), new_files.size()) << "after the run after " << what;
    if (::testing::Test::HasFailure()) break;
  }
  std::printf("%s: %d runs stopped, of %ld write points\n", mode.c_str(), moments,
              clean.operations);
}

INSTANTIATE_TEST_SUITE_P(Stops, WholeRun, ::testing::Values("full", "kill", "term"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
}  // namespace storegen::testing
