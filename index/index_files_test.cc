#include "index/index_files.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/run_state.h"
#include "index/index_test_support.h"

namespace storegen::testing {
namespace {

using Lines = std::vector<std::string>;

class IndexFilesTest : public IndexTest {
 protected:
  // Reads the template's settings as set-up does; returns the home page.
  std::string ReadSettings() {
    EXPECT_EQ(GetRootDir("/srv/www"), 1);
    IndexField what, default_url, home_page, index_page;
    EXPECT_EQ(GetIndexWhat(what, default_url, home_page, index_page), 1);
    return home_page;
  }
};

TEST_F(IndexFilesTest, WaisCfgRewritesGeneratedKeysDropsTemplateKeysAndAppendsStoreLines) {
  WriteFile("wwwwais.cfg",
            "# WAIS gateway template\n"
            "SelfURL\t\"old\"\nSwishSource\told.ind \"x\"\nSwishBin\told\nStoreGenURL\told\n"
            "SourceRules\treplace \"/old/root\" \"\"\nIconUrl\told\nPageTitle\told\n"
            "IndexWhat\tpages/\nDefaultURL\thttp://shop.example/old/\n"
            "HomePage\thttp://shop.example/store/\nIndexPage\tindex.html\n"
            "\n  \t\n\r\n"
            "Cgi-Bin\tcgi-local/\nExeExtension\nMaxHits\t40\r\n");
  std::string home = ReadSettings();
  IndexField new_page;
  ASSERT_EQ(CreateWaisCfg("../swish/acme.wcf", "acme.wcf", "/store/acme", home.c_str(), new_page,
                          "/store"),
            1);
  EXPECT_EQ(FileLines("../swish/acme.wcf"),
            (Lines{"SelfURL \"USERPROG#cgi-local/wwwwais?configure=acme.wcf\"",
                   "SwishSource ../swish/acme.ind \"Store Index\"", "SwishBin ../swish/swish",
                   "StoreGenURL USERPROG#cgi-local/storegen?-c+tbstore.cfg",
                   "SourceRules replace \"/srv/www\" \"/store\"",
                   "IconUrl http://shop.example/store/wais/icons", "PageTitle ../wais/acme.html",
                   "Cgi-Bin\tcgi-local/", "ExeExtension", "MaxHits\t40",
                   "WebURL http://shop.example/store", "StoreDir /acme"}));
  EXPECT_STREQ(GetIndexState().gszSelfURL, "USERPROG#cgi-local/wwwwais?configure=acme.wcf");
  EXPECT_STREQ(GetIndexState().gszHtmlOut, "/acme/acme.html");
  EXPECT_STREQ(new_page, "../wais/acme.html");  // the search page does not exist yet
}

TEST_F(IndexFilesTest, ProgramNamesFollowTheExeExtensionLine) {
  struct {
    const char* extension_line;
    const char* suffix;
  } cases[] = {{"", ".exe"}, {"ExeExtension\n", ""}, {"ExeExtension\tcgi\n", ".cgi"}};
  for (const auto& c : cases) {
    WriteFile("wwwwais.cfg", std::string(c.extension_line) + "SwishBin\nSelfURL\nStoreGenURL\n");
    ReadSettings();
    IndexField new_page;
    ASSERT_EQ(CreateWaisCfg("../swish/acme.wcf", "acme.wcf", "/acme", "", new_page, ""), 1);
    Lines lines = FileLines("../swish/acme.wcf");
    ASSERT_GE(lines.size(), 5u);
    std::string s = c.suffix;
    EXPECT_EQ(Lines(lines.end() - 5, lines.end() - 2),
              (Lines{"SwishBin ../swish/swish" + s,
                     "SelfURL \"USERPROG#cgi-bin/wwwwais" + s + "?configure=acme.wcf\"",
                     "StoreGenURL USERPROG#cgi-bin/storegen" + s + "?-c+tbstore.cfg"}))
        << c.extension_line;
  }
}

TEST_F(IndexFilesTest, RootDirComesFromTheCallerOnlyWithQuotedSourceRules) {
  struct {
    const char* wais;
    const char* root;
    const char* master_list;
    const char* cgi_bin;
  } cases[] = {
      {"SourceRules replace \"/file/root\" \"\"\n", "/srv/www", "../wais/masterls.htm", "cgi-bin"},
      {"SourceRules replace\nCgi-Bin\tscripts\\\n", "", "", "scripts"},
      {"# SourceRules replace \"/x\"\nCGI-BIN\tcgi/\tmore\n", "", "", "cgi"}};
  for (const auto& c : cases) {
    WriteFile("wwwwais.cfg", c.wais);
    ASSERT_EQ(GetRootDir("/srv/www"), 1);
    EXPECT_STREQ(GetIndexState().gszRootDir, c.root) << c.wais;
    EXPECT_STREQ(GetIndexState().gszMasterList, c.master_list) << c.wais;
    EXPECT_STREQ(GetIndexState().gszCgiBin, c.cgi_bin) << c.wais;
  }
}

TEST_F(IndexFilesTest, SwishCfgReplacesIndexLinesAndKeepsComments) {
  WriteFile(Root("swish/swish.cfg"),
            "# SWISH template\nIndexDir\t/old/dir\n\nindexfile\told.index\n"
            "IndexOnly .html .htm\n \t \nMetaNames\tswishtitle\r\n");
  CopyTruncated(GetIndexState().gszRootDir, "/srv/www");
  ASSERT_EQ(CreateSwishCfg("../swish/my.store.wcf", "/store/acme", "/store"), 1);
  EXPECT_EQ(FileLines(Root("swish/my.store.scf")),
            (Lines{"# SWISH template", "IndexDir /srv/www/acme", "IndexFile ../swish/my.store.ind",
                   "IndexOnly .html .htm", "MetaNames\tswishtitle"}));
}

TEST_F(IndexFilesTest, WriteDefaultURLRewritesOnlyTheDefaultURLLine) {
  const std::string original =
      "# comment\r\ndefaulturl\thttp://old/\r\n\n  \nHomePage\thttp://h\nlast line";
  WriteFile("wwwwais.cfg", original);
  // A search page still to be made leaves the template alone.
  ASSERT_EQ(WriteDefaultURL("../wais/acme.html", "http://new"), 1);
  EXPECT_EQ(ReadFile("wwwwais.cfg"), original);

  ASSERT_EQ(WriteDefaultURL("", "http://new"), 1);
  EXPECT_EQ(ReadFile("wwwwais.cfg"),
            "# comment\r\nDefaultURL http://new\n\n  \nHomePage\thttp://h\nlast line\n");
  EXPECT_FALSE(FileExists("wwwwais.TMP"));
}

TEST_F(IndexFilesTest, FailuresReturnZeroAndSayWhy) {
  struct {
    std::function<int()> call;
    const char* message;
  } cases[] = {
      {[] {
         IndexField page;
         WriteFile("wwwwais.cfg", "X y\n");
         return CreateWaisCfg("../none/a.wcf", "a.wcf", "/a", "", page, "");
       },
       "Can't create Wais configuration file.\n"},
      {[this] {
         WriteFile(Root("swish/swish.cfg"), "X y\n");
         return CreateSwishCfg("../none/a.wcf", "/a", "");
       },
       "Can't create Swish configuration file: ../none/a.scf.\n"},
      {[] {
         WriteFile("wwwwais.cfg", "DefaultURL x\n");
         mkdir("wwwwais.TMP", 0755);
         return WriteDefaultURL("", "u");
       },
       "Can't create temporary file.\n"},
      // The template cannot be replaced; the temporary file stays.
      {[] {
         mkdir("wwwwais.cfg", 0755);
         return WriteDefaultURL("", "u") + FileExists("wwwwais.TMP") - 1;
       },
       "Can't write default URL to file.\n"},
  };
  PageGenState.verbose = 1;
  for (const auto& c : cases) {
    std::filesystem::current_path(root_.path());
    RemoveTree(Root("cgi"));
    std::filesystem::create_directories(Root("cgi"));
    std::filesystem::current_path(Root("cgi"));
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(c.call(), 0) << c.message;
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), c.message);
  }
}

// Runs |fn| in a child process whose files cannot grow beyond |limit| bytes
// and returns its result (-1 when the child did not exit normally).
int WithFileSizeLimit(rlim_t limit, const std::function<int()>& fn) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    rlimit rl{limit, limit};
    std::signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG
    _exit(setrlimit(RLIMIT_FSIZE, &rl) == 0 ? fn() : 99);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(IndexFilesTest, AWriteThatFailsKeepsTheStoresPreviousFiles) {
  std::string lines;
  for (int i = 0; i < 20; ++i)
    lines += "Setting" + std::to_string(i) + "\tvalue\n";
  WriteFile("wwwwais.cfg", lines);
  WriteFile(Root("swish/swish.cfg"), lines);
  WriteFile(Root("swish/acme.wcf"), "previous wcf\n");
  WriteFile(Root("swish/acme.scf"), "previous scf\n");
  // Both writers report the failure (0): the result is 0 only when both do.
  int rc = WithFileSizeLimit(64, [] {
    IndexField page;
    return CreateWaisCfg("../swish/acme.wcf", "acme.wcf", "/acme", "", page, "") +
           2 * CreateSwishCfg("../swish/acme.wcf", "/acme", "");
  });
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(ReadFile(Root("swish/acme.wcf")), "previous wcf\n");
  EXPECT_EQ(ReadFile(Root("swish/acme.scf")), "previous scf\n");
  EXPECT_EQ(ListDir(Root("swish")), (Lines{"acme.scf", "acme.wcf", "swish.cfg"}));
}

TEST(IndexText, EscapesAndDerivedNames) {
  const char* cases[][2] = {{"a b", "a%20b"},       {"x..y", "x%2E%2Ey"},
                            {"file.", "file"},      {"a.%", "a.%25"},
                            {"x...y", "x%2E%2E.y"}, {"\xE9~_-*/Az09", "%E9~_-*/Az09"}};
  for (const auto& c : cases) {
    IndexField out;
    escape_relative_path_URL(c[0], out);
    EXPECT_STREQ(out, c[1]) << c[0];
  }
  IndexField scf, ind;
  GetSwishCFGName(scf, "../swish/my.store.wcf");
  GetSwishIndexName(ind, "../swish/my.store.wcf");
  EXPECT_STREQ(scf, "../swish/my.store.scf");
  EXPECT_STREQ(ind, "../swish/my.store.ind");
  GetSwishCFGName(scf, "../swish/acme");
  EXPECT_STREQ(scf, "../swish/acme");
}

TEST_F(IndexFilesTest, OverLongValuesAreCutToTheField) {
  const std::string long_dir = "/" + std::string(400, 'd');
  const std::string long_name = std::string(300, ' ') + ".wcf";
  IndexState& st = GetIndexState();
  CopyTruncated(st.gszRootDir, std::string(250, 'r'));
  CopyTruncated(st.gszWaisDir, std::string(250, 'w'));
  IndexField line, new_page;
  SetPageTitle(line, new_page, long_name.c_str(), long_dir.c_str(), "");
  EXPECT_EQ(std::strlen(line) + std::strlen(st.gszHtmlOut), 2 * (kIndexFieldSize - 1));
  SetSelfURL(line, long_name.c_str(), "");
  EXPECT_EQ(std::strlen(line) + std::strlen(st.gszSelfURL), 2 * (kIndexFieldSize - 1));
  SetIndexDir(line, long_dir.c_str(), "");
  EXPECT_EQ(std::strlen(line), kIndexFieldSize - 1);
}

}  // namespace
}  // namespace storegen::testing
