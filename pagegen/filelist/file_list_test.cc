#include "pagegen/filelist/file_list.h"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "driver/runstate/run_state.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

TEST(FileList, KeepsOrderAndPrintsNameTabCode) {
  FileList* list = nullptr;
  FileListAdd(&list, "a.html", 0);
  FileListAdd(&list, "%%CATEGORY.X%%", -18);
  FileListAdd(&list, "b.html", -7);
  ::testing::internal::CaptureStdout();
  OutputFileList(list);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "a.html\t0\n%%CATEGORY.X%%\t-18\nb.html\t-7\n");
  FreeFileList(list);
}

TEST(FileList, AppendsInOrderAcrossListsAndAfterFree) {
  FileList* a = nullptr;
  FileList* b = nullptr;
  FileListAdd(&a, "a1", 0);
  FileListAdd(&b, "b1", 0);
  FileListAdd(&a, "a2", 0);
  FileListAdd(&a, "a3", 0);
  FileListAdd(&b, "b2", 0);
  FreeFileList(b);
  b = nullptr;
  FileListAdd(&b, "b3", 0);
  FileListAdd(&a, "a4", 0);
  std::string seen;
  for (FileList* e = a; e != nullptr; e = e->next)
    seen += std::string(e->text) + ",";
  for (FileList* e = b; e != nullptr; e = e->next)
    seen += std::string(e->text) + ",";
  EXPECT_EQ(seen, "a1,a2,a3,a4,b3,");
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
  WriteFile(dir.Path("p1.html"), "x");
  WriteFile(dir.Path("p2.html"), "x");
  WriteFile(dir.Path("keep.html"), "x");
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

TEST(FileList, DeleteWithoutListFileDoesNothing) {
  ScopedTempDir dir;
  DeleteOldFileList(dir.Path("missing").c_str());
  SUCCEED();
}

}  // namespace
}  // namespace storegen
