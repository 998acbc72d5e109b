#include "pagegen/filelist/file_list.h"

#include <cstdio>
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

TEST(FileList, WriteAppendsAndCreatesEvenWhenEmpty) {
  ScopedTempDir dir;
  std::string list_file = dir.Path(kFileListName);
  WriteFileList(nullptr, list_file.c_str());
  EXPECT_TRUE(FileExists(list_file));
  EXPECT_EQ(ReadFile(list_file), "");

  FileList* list = nullptr;
  FileListAdd(&list, "one", 0);
  FileListAdd(&list, "two", 0);
  WriteFileList(list, list_file.c_str());
  WriteFileList(list, list_file.c_str());
  EXPECT_EQ(ReadFile(list_file), "one\ntwo\none\ntwo\n");
  FreeFileList(list);
}

TEST(FileList, DeleteRemovesNamedFilesDespiteTrailingSpaceAndCRLF) {
  ScopedTempDir dir;
  DeleteOldFileList(dir.Path("missing").c_str());  // no list: nothing to do
  for (const char* name : {"p1.html", "p2.html", "keep.html"})
    WriteFile(dir.Path(name), "x");
  std::string list_file = dir.Path(kFileListName);
  WriteFile(list_file, dir.Path("p1.html") + "  \r\n" + dir.Path("p2.html") + "\n" +
                           dir.Path("gone.html") + "\n");
  PageGenState.verbose = 1;
  ::testing::internal::CaptureStdout();
  DeleteOldFileList(list_file.c_str());
  std::string out = ::testing::internal::GetCapturedStdout();
  PageGenState.verbose = 0;
  EXPECT_FALSE(FileExists(dir.Path("p1.html")));
  EXPECT_FALSE(FileExists(dir.Path("p2.html")));
  EXPECT_TRUE(FileExists(dir.Path("keep.html")));
  EXPECT_FALSE(FileExists(list_file));
  EXPECT_EQ(out, "Removing old file " + dir.Path("p1.html") + "\nRemoving old file " +
                     dir.Path("p2.html") + "\nRemoving old file " + dir.Path("gone.html") + "\n");
}

}  // namespace
}  // namespace storegen
