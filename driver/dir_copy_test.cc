#include "driver/dir_copy.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/run_state.h"
#include "templateset/template_set.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;
using namespace testing;

std::string Cwd() {
  char buf[PATH_MAX];
  return getcwd(buf, sizeof buf) != nullptr ? buf : "";
}

class DirCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    PageGenState.verbose = 1;
    PageGenState.pTpltSet = &set_;
    CopyTruncated(PageGenState.szTmpltSet, root_.Path("tmpl/basic.cfg"));
    CopyTruncated(PageGenState.szOutPath, root_.Path("out/"));
    CopyTruncated(PageGenState.szConfig, root_.Path("store.cfg"));
    WriteFile(root_.Path("tmpl/basic.cfg"), "StyleName\tBasic\n");
  }
  void TearDown() override { ResetRunState(); }

  std::string Set(const std::string& relative) const {
    return root_.Path("tmpl/basic/" + relative);
  }
  std::string Out(const std::string& relative) const { return root_.Path("out/" + relative); }

  ScopedTempDir root_;
  TemplateSet set_;
};

TEST_F(DirCopyTest, CopiesSubdirectoriesRecursivelyWithExclusions) {
  set_.copy_excludes_dirs = "cgi-bin;private";
  WriteFile(Set("page.html"), "top-level files stay behind");
  WriteFile(Set("images/logo.gif"), "GIF");
  WriteFile(Set("images/README"), "no dot in this name");
  WriteFile(Set("images/icons/small/x.png"), "PNG");
  WriteFile(Set("cgi-bin/script.pl"), "perl");
  WriteFile(Set("scripts/app.js"), "js");
  WriteFile(Set("scripts/private/key"), "excluded at any depth");
  WriteFile(Set("styles"), "a file, not a directory");
  WriteFile(root_.Path("common/site.css"), "css");
  fs::create_directory_symlink(root_.Path("common"), Set("shared"));
  // Links back into directories being copied must not loop.
  fs::create_directory_symlink("..", Set("images/icons/up"));
  fs::create_directory_symlink(Set(""), Set("images/root"));
  fs::create_directory_symlink(Set(""), Set("loop"));
  fs::create_symlink("self", Set("self"));

  std::string before = Cwd();
  EXPECT_EQ(CopyDirs(), 0);
  EXPECT_EQ(Cwd(), before);

  EXPECT_EQ(ListDir(Out("")), (std::vector<std::string>{"images", "scripts", "shared"}));
  EXPECT_EQ(ListDir(Out("images")), (std::vector<std::string>{"README", "icons", "logo.gif"}));
  EXPECT_EQ(ListDir(Out("images/icons")), (std::vector<std::string>{"small"}));
  EXPECT_EQ(ReadFile(Out("images/icons/small/x.png")), "PNG");
  EXPECT_EQ(ReadFile(Out("images/README")), "no dot in this name");
  EXPECT_EQ(ListDir(Out("scripts")), (std::vector<std::string>{"app.js"}));
  EXPECT_EQ(ReadFile(Out("shared/site.css")), "css");
}

TEST_F(DirCopyTest, UncreatableDestinationLeavesProcessInSource) {
  WriteFile(Set("images/logo.gif"), "GIF");
  WriteFile(root_.Path("blocker"), "a file where a directory should be");
  std::string before = Cwd();

  ::testing::internal::CaptureStdout();
  EXPECT_EQ(tb_CopyDirectory(Set("images").c_str(), root_.Path("blocker/images").c_str()), -4);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Unable to create directory: " + root_.Path("blocker/images") + "\n");
  EXPECT_EQ(Cwd(), Set("images"));

  ASSERT_EQ(chdir(before.c_str()), 0);
  CopyTruncated(PageGenState.szOutPath, root_.Path("blocker/out"));
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(CopyDirs(), -4);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Unable to create directory: " + root_.Path("blocker/out/images") + "\n");
}

// A file that cannot be copied ends the copy of its directory: one message,
// whichever of the three files comes first.
TEST_F(DirCopyTest, AFailedCopySkipsTheRestOfItsDirectory) {
  for (const char* name : {"a.gif", "b.gif", "c.gif"}) {
    WriteFile(Set("images/") + name, name);
    fs::create_directories(Out("images/") + name);  // a directory where the copy goes
  }
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(CopyDirs(), 0);
  std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 1) << out;
}

// Secure pages are copied with their directories; a missing one is reported,
// one that cannot be written fails the copy once every page has been tried.
TEST_F(DirCopyTest, SecurePagesAreCopiedWithTheirDirectories) {
  WriteFile(root_.Path("store.cfg"), "SecureContentPath\t" + root_.Path("secure") + "\n");
  set_.secure_files = {{"/pages/order.html", "", "", 0},
                       {"missing.html", "", "", 0},
                       {"a.html", "", "", 0},
                       {"\\top.html", "", "", 0}};
  for (const char* page : {"pages/order.html", "a.html", "top.html"})
    WriteFile(Out(page), page);
  fs::create_directories(root_.Path("secure/a.html"));

  ::testing::internal::CaptureStdout();
  EXPECT_EQ(CopySecureFiles(), -12);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "File not found: " + Out("missing.html") +
                                                          "\nUnable to open file " +
                                                          root_.Path("secure/a.html") + "\n");
  EXPECT_EQ(ReadFile(root_.Path("secure/pages/order.html")), "pages/order.html");
  EXPECT_EQ(ReadFile(root_.Path("secure/top.html")), "top.html");
  EXPECT_FALSE(FileExists(root_.Path("secure/missing.html")));
}

TEST_F(DirCopyTest, NoSecureContentPathSkipsSecureFiles) {
  for (const char* config : {"StoreDir\t/acme\n", "SecureContentPath\n"}) {
    WriteFile(root_.Path("store.cfg"), config);
    set_.secure_files = {{"a.html", "", "", 0}};
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(CopySecureFiles(), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "No SecureContentPath entry in store config file, skipping SecureFiles\n");
  }
}

}  // namespace
}  // namespace storegen
