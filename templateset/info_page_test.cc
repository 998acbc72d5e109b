#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "templateset/management.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

std::time_t FixedClock() {
  return 1234567890;
}

const char kScript[] =
    "<HTML><HEAD><SCRIPT>\n"
    "window.open(\"/store/tb_infodir/info.html?1234567890\",\"info\","
    "\"height=500,width=400,scrollbars=yes,resizable=yes\")\n"
    "history.back()\n"
    "</SCRIPT></HTML>\n";

std::string CannotCreate(const std::string& path) {
  return "Could not create the file " + path +
         ". Check that its directory exists and that the web server's user may write to it.\n";
}

class InfoPageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SetManagementClockForTesting(&FixedClock);
    templates_ = dir_.Path("templates/");
    www_ = dir_.Path("www");
    WriteFile(templates_ + "basic.cfg", "StyleName\tBasic\nInfoPage\tbasic/info.html\n");
    WriteFile(templates_ + "basic/images/logo.gif", "GIF-logo");
    WriteFile(templates_ + "basic/bg.gif", "GIF-bg");
    WriteFile(templates_ + "basic/pics/a.gif", "GIF-a");
    std::filesystem::create_directories(www_);
  }
  void TearDown() override { SetManagementClockForTesting(nullptr); }

  // Runs the page for |set| and returns what it wrote to standard output.
  std::string Show(const char* set, int expected_rc, const char* store_cfg = nullptr,
                   std::string templates = "") {
    if (templates.empty()) templates = templates_;
    std::string before = std::filesystem::current_path().string();
    ::testing::internal::CaptureStdout();
    int rc = PG_TpltDisplayInfoPageAt(set, templates.c_str(), store_cfg, www_.c_str(), "/store");
    std::string out = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(rc, expected_rc);
    EXPECT_EQ(std::filesystem::current_path().string(), before);
    return out;
  }

  ScopedTempDir dir_;
  std::string templates_;
  std::string www_;
};

// Pictures are copied and their links rewritten; long tags and comments, and
// a tag left open at the end, pass through unchanged.
TEST_F(InfoPageTest, CopiesThePageWithItsPicturesAndOpensThePopUp) {
  const std::string long_parts = "<!-- " + std::string(3000, 'x') + " <IMG SRC=\"a.gif\"> -->" +
                                 "<IMG ALT=\"" + std::string(2500, 'y') + "\" SRC=\"a.gif\">";
  WriteFile(templates_ + "basic/info.html",
            "<HTML>\r\n<BODY BGCOLOR=\"#ffffff\" BACKGROUND=bg.gif>\r\n"
            "<img alt=\"SRC\" src=\"images/logo.gif\" border=0>\n"
            "<IMG SRC='images/logo.gif'>\n"
            "<IMG SRC=images/logo.gif BORDER=0><IMG SRC=/pics/a.gif>\n"
            "<!-- <IMG SRC=\"images/old.gif\"> -- > --><IMG SRC=\"http://example.com/x.gif\"><IMG "
            "SRC=//cdn.example.com/y.gif>\n"
            "<A HREF=\"more.html\">more</A></BODY></HTML>" +
                long_parts + "<IMG SRC=\"images/logo.gif\"");
  EXPECT_EQ(Show("basic", 1), std::string("Content-type: text/html\n\n") + kScript);
  EXPECT_EQ(ReadFile(www_ + "/tb_infodir/info.html"),
            "<HTML>\n<BODY BGCOLOR=\"#ffffff\" "
            "BACKGROUND=/store/tb_infodir/bg.gif?1234567890>\n"
            "<img alt=\"SRC\" src=\"/store/tb_infodir/images/logo.gif?1234567890\" border=0>\n"
            "<IMG SRC='/store/tb_infodir/images/logo.gif?1234567890'>\n"
            "<IMG SRC=/store/tb_infodir/images/logo.gif?1234567890 BORDER=0>"
            "<IMG SRC=/store/tb_infodir/pics/a.gif?1234567890>\n"
            "<!-- <IMG SRC=\"images/old.gif\"> -- > --><IMG SRC=\"http://example.com/x.gif\"><IMG "
            "SRC=//cdn.example.com/y.gif>\n"
            "<A HREF=\"more.html\">more</A></BODY></HTML>" +
                long_parts + "<IMG SRC=\"images/logo.gif\"");
  EXPECT_EQ(ReadFile(www_ + "/tb_infodir/images/logo.gif"), "GIF-logo");
  EXPECT_EQ(ReadFile(www_ + "/tb_infodir/bg.gif"), "GIF-bg");
  EXPECT_EQ(ReadFile(www_ + "/tb_infodir/pics/a.gif"), "GIF-a");
  EXPECT_FALSE(FileExists(www_ + "/tb_infodir/images/old.gif"));
}

TEST_F(InfoPageTest, PicturesThatCannotBeCopiedAreReported) {
  WriteFile(templates_ + "basic/info.html", "<IMG SRC=\"missing.gif\"><IMG SRC=\"../basic.cfg\">");
  std::string out = Show("basic", 1);
  std::string infodir = www_ + "/tb_infodir/";
  EXPECT_EQ(out, "Content-type: text/html\n\n" + CannotCreate(infodir + "missing.gif") +
                     CannotCreate(infodir + "../basic.cfg") + kScript);
  EXPECT_FALSE(FileExists(www_ + "/basic.cfg"));
  EXPECT_EQ(ReadFile(infodir + "info.html"),
            "<IMG SRC=\"/store/tb_infodir/missing.gif?1234567890\">"
            "<IMG SRC=\"/store/tb_infodir/../basic.cfg?1234567890\">");
}

TEST_F(InfoPageTest, EndsEarlyWithoutANameASetOrAnInfoPage) {
  EXPECT_EQ(Show(nullptr, 0), "");
  EXPECT_EQ(Show("absent", 1), "Content-type: text/html\n\n");
  WriteFile(templates_ + "plain.cfg", "StyleName\tPlain\n");
  EXPECT_EQ(Show("plain", 1), "Content-type: text/html\n\n");
  EXPECT_TRUE(std::filesystem::is_directory(www_ + "/tb_infodir"));
}

TEST_F(InfoPageTest, ReportsAPageThatCannotBeReadOrWritten) {
  EXPECT_EQ(Show("basic", 0),
            "Content-type: text/html\n\nThe information page of this template set could not be "
            "shown: basic/info.html could not be read. Check the InfoPage line of the template "
            "set's configuration file.\n");
  WriteFile(templates_ + "basic/info.html", "<P>Info</P>");
  testing::RemoveTree(www_ + "/tb_infodir");
  WriteFile(www_ + "/tb_infodir", "a file where the directory should be");
  EXPECT_EQ(Show("basic", 0),
            "Content-type: text/html\n\n" + CannotCreate(www_ + "/tb_infodir/info.html"));
}

TEST_F(InfoPageTest, TemplateRootComesFromTheStoreOrTheCgiVariables) {
  WriteFile(templates_ + "basic/info.html", "<P>Info</P>");
  const std::string popup = std::string("Content-type: text/html\n\n") + kScript;
  // The default directory is cut after its last separator, so a program
  // path names its directory; the store's own setting wins over it.
  ScopedTempDir elsewhere;
  std::string cfg = elsewhere.Path("store.cfg");
  WriteFile(cfg, "PageGenTemplateDir\t" + dir_.Path("templates") + "\n");
  EXPECT_EQ(Show("basic", 1, cfg.c_str(), "/nowhere/storegen"), popup);
  EXPECT_EQ(Show("basic", 1, nullptr, templates_ + "storegen"), popup);

  // The HTML root and its alias come from the CGI variables.
  testing::RemoveTree(www_ + "/tb_infodir");
  setenv("PATH_INFO", "/store/docs/p.html", 1);
  setenv("PATH_TRANSLATED", (www_ + "/docs/p.html").c_str(), 1);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(PG_TpltDisplayInfoPage("basic", templates_.c_str(), nullptr), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), popup);
  EXPECT_EQ(ReadFile(www_ + "/tb_infodir/info.html"), "<P>Info</P>");
  unsetenv("PATH_INFO");
  unsetenv("PATH_TRANSLATED");
}

}  // namespace
}  // namespace storegen
