// A whole static run of the sample store with each of its write points
// failing in turn (ENOSPC or EIO): a web server must never find a
// half-written page, and a file the run rewrites must keep its old content
// or get its complete new content. A full run removes the previous run's
// pages before it writes them anew, so a page may also be missing after a
// failed run; the next run writes it again.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "tests/concurrency/sample_store.h"
#include "tests/faultinject/fault_runner.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;
using Snapshot = std::map<std::string, std::string>;

// Every regular file below |root| but the program's directory (run lock and
// status log), by relative path.
Snapshot Take(const std::string& root) {
  Snapshot files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    std::string rel = fs::relative(entry.path(), root).string();
    if (rel.rfind("bin/", 0) == 0) continue;
    files[rel] = ReadFile(entry.path().string());
  }
  return files;
}

// True when |part| is whole lines, each of them a line of |whole|.
bool IsLinesSubset(const std::string& part, const std::string& whole) {
  if (!part.empty() && part.back() != '\n') return false;
  for (std::size_t at = 0; at < part.size();) {
    std::size_t end = part.find('\n', at) + 1;
    std::string line = part.substr(at, end - at);
    if (("\n" + whole).find("\n" + line) == std::string::npos) return false;
    at = end;
  }
  return true;
}

void CopyTree(const std::string& from, const std::string& to) {
  RemoveTree(to);
  fs::copy(from, to, fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

TEST(StoregenFaults, AFailedWriteNeverLeavesAPartialFile) {
  ScopedTempDir dir;
  const std::string work = dir.Path("work");
  const std::string pristine = dir.Path("pristine");
  const std::string report = dir.Path("report");
  SampleStore store = InstallSampleStore(work);

  // The old state: the store as a first run left it. Then the data changes,
  // so that every page has an old and a new content.
  ASSERT_EQ(RunProgram(store.StaticRun()).exit_code, 0);
  ConfigItemList* list = CIL_CreateList();
  CIL_AddItem(list, "ShopName", "Lantern & Loom, renewed");
  ASSERT_EQ(SetConfigItems(store.cfg.c_str(), list), 0);
  CIL_FreeList(list);
  std::string products = ReadFile(work + "/store/products.txt");
  for (std::size_t at = 0; (at = products.find(".00\t", at)) != std::string::npos; at += 4)
    products.replace(at, 4, ".95\t");
  WriteFile(work + "/store/products.txt", products);
  CopyTree(work, pristine);
  const Snapshot old_files = Take(work);

  FaultRun clean = RunWithFault(store.StaticRun(), work, 0, "ENOSPC", report);
  ASSERT_EQ(clean.failed, "-");
  ASSERT_GT(clean.operations, 0);
  const Snapshot new_files = Take(work);
  // A run whose search index could not be set up writes no search page (it is
  // named after the store's "swish/<name>.wcf"), and its file list is the new
  // one without that page.
  std::string list_without_search = "-";
  for (const auto& [path, content] : new_files) {
    if (!path.starts_with("swish/") || !path.ends_with(".wcf")) continue;
    std::string page = store.pages + path.substr(6, path.size() - 10) + ".html\n";
    std::string list = new_files.at("out/lantern/Xzq3Jpo9");
    if (std::size_t at = list.find(page); at != std::string::npos) {
      list_without_search = list.erase(at, page.size());
    }
  }

  int faults = 0;
  // Each write point fails once, with ENOSPC and EIO in turn: a whole run has
  // hundreds of them, and the library tests try both errors at every point.
  for (long n = 1; n <= clean.operations; ++n) {
    for (const char* error : {n % 2 ? "ENOSPC" : "EIO"}) {
      CopyTree(pristine, work);
      FaultRun run = RunWithFault(store.StaticRun(), work, n, error, report);
      ASSERT_NE(run.failed, "-") << "write point " << n << " not reached";
      ++faults;
      const std::string what = run.failed + " #" + std::to_string(n) + " (" + error + ")";
      Snapshot now = Take(work);
      for (const auto& [path, content] : now) {
        // The list of generated files names the pages this run wrote: a
        // failing page that cuts a series of list pages short leaves the
        // rest of the series out, never a line half-written.
        if (path.ends_with("/Xzq3Jpo9") && new_files.count(path)) {
          EXPECT_TRUE(IsLinesSubset(content, new_files.at(path))) << path << " after " << what;
          continue;
        }
        auto old_it = old_files.find(path);
        auto new_it = new_files.find(path);
        bool is_old = old_it != old_files.end() && old_it->second == content;
        bool is_new = new_it != new_files.end() && new_it->second == content;
        if (path == "out/lantern/Xzq3Jpo9") is_new = is_new || content == list_without_search;
        EXPECT_TRUE(is_old || is_new) << path << " is partial or foreign after " << what;
      }
      // Only pages and text-block caches may be missing afterwards.
      for (const auto& [path, content] : old_files) {
        if (now.count(path) || new_files.count(path) == 0) continue;
        bool page = path.rfind("out/", 0) == 0 || path.ends_with(".tmp");
        EXPECT_TRUE(page) << path << " lost after " << what;
      }
    }
  }
  std::printf("faultinject storegen: %ld write points, %d faults injected\n", clean.operations,
              faults);
}

}  // namespace
}  // namespace storegen::testing
