#include "pagegen/filelist/file_list.h"

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/run_state.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

// Lists kept side by side, appended to in turn and in a row, one of them freed
// and started again, each keep their own order; the report prints
// "name<TAB>code" lines.
TEST(FileList, KeepsOrderAcrossListsAndPrintsNameTabCode) {
  FileList* a = nullptr;
  FileList* b = nullptr;
  FileListAdd(&a, "a.html", 0);
  FileListAdd(&a, "%%CATEGORY.X%%", -18);
  FileListAdd(&b, "b1", 0);
  FreeFileList(b);
  b = nullptr;
  FileListAdd(&b, "b2", 0);
  FileListAdd(&a, "c.html", -7);
  ::testing::internal::CaptureStdout();
  OutputFileList(a);
  OutputFileList(b);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "a.html\t0\n%%CATEGORY.X%%\t-18\nc.html\t-7\nb2\t0\n");
  FreeFileList(a);
  FreeFileList(b);
}

// A run's list: Begin announces (verbose, full runs) but removes nothing;
// new pages are named as they appear; the end keeps, appends or replaces.
// A run's list: Begin announces (verbose, full runs) but removes nothing;
// new pages are named as they appear; the end appends, keeps or replaces.
TEST(FileList, RunListNamesEveryPageAndRemovesOnlyWhatAFullRunNoLongerWrites) {
  for (ListEnd how : {ListEnd::kAppend, ListEnd::kKeep, ListEnd::kReplace}) {
    ScopedTempDir dir;
    const std::string list_file = dir.Path(kFileListName);
    const std::string a = dir.Path("a"), fresh = dir.Path("new.html");
    for (const char* name : {"a", "stale", "real/alias"})
      WriteFile(dir.Path(name), "old");
    const std::string old_list =
        a + "  \r\n" + "stale\n" + dir.Path("gone") + "\n" + dir.Path("link/alias");
    WriteFile(list_file, old_list);
    // The same file as "a" under another name is never removed as stale.
    std::filesystem::create_directory_symlink(dir.Path("real"), dir.Path("link"));
    std::filesystem::remove(dir.Path("real/alias"));
    std::filesystem::create_hard_link(a, dir.Path("real/alias"));

    const bool full_run = how != ListEnd::kAppend;
    PageGenState.verbose = 1;
    ::testing::internal::CaptureStdout();
    BeginFileList(list_file, dir.path(), full_run);
    const std::string out = ::testing::internal::GetCapturedStdout();
    PageGenState.verbose = 0;
    EXPECT_EQ(out, full_run ? "Removing old file " + a + "\nRemoving old file stale\n" +
                                  "Removing old file " + dir.Path("gone") + "\nRemoving old file " +
                                  dir.Path("link/alias") + "\n"
                            : "");
    EXPECT_TRUE(FileExists(dir.Path("stale")));

    // A new page is named before it appears; the old list's last line gets
    // its line feed first.
    ASSERT_TRUE(RecordNewPage(fresh));
    EXPECT_EQ(ReadFile(list_file), old_list + "\n" + fresh + "\n");

    FileList* written = nullptr;
    FileListAdd(&written, a.c_str(), 0);
    FileListAdd(&written, nullptr, 0);
    FileListAdd(&written, fresh.c_str(), 0);
    ASSERT_TRUE(FinishFileList(written, how));
    FreeFileList(written);

    const std::string expected[] = {old_list + a + "\n" + fresh + "\n",  // as appended before
                                    old_list + "\n" + fresh + "\n",      // "a" was listed
                                    a + "\n" + fresh + "\n"};
    EXPECT_EQ(ReadFile(list_file), expected[static_cast<int>(how)]);
    const bool removed = how == ListEnd::kReplace;
    EXPECT_EQ(FileExists(dir.Path("stale")), !removed);
    EXPECT_TRUE(FileExists(a) && FileExists(dir.Path("real/alias")));
    EXPECT_EQ(ListDir(dir.path()).size(), removed ? 4u : 5u) << "a temporary file stayed";
  }
}

TEST(FileList, ListWithoutARunOrThatIsNoFile) {
  ScopedTempDir dir;
  // No list begun (a dynamic request): nothing to name, nothing written.
  EXPECT_TRUE(RecordNewPage(dir.Path("p.html")));
  EXPECT_TRUE(FinishFileList(nullptr, ListEnd::kReplace));
  EXPECT_TRUE(ListDir(dir.path()).empty());

  // An empty run still leaves an empty list.
  BeginFileList(dir.Path(kFileListName), dir.path(), true);
  EXPECT_TRUE(FinishFileList(nullptr, ListEnd::kReplace));
  EXPECT_EQ(ReadFile(dir.Path(kFileListName)), "");

  // A list that is a FIFO takes no name and never blocks the run.
  const std::string fifo = dir.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  BeginFileList(fifo, dir.path(), true);
  EXPECT_FALSE(RecordNewPage(dir.Path("p.html")));
  FinishFileList(nullptr, ListEnd::kKeep);
}

}  // namespace
}  // namespace storegen
