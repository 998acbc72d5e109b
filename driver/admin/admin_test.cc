// storegen-admin driven as a web server runs a CGI program: the request in
// the environment and on standard input, the answer on standard output.
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "cgisupport/file_util.h"
#include "driver/admin/admin_main.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::InstallStoregen;
using testing::ReadFile;
using testing::RunOptions;
using testing::RunProgram;
using testing::RunResult;
using testing::ScopedTempDir;
using testing::WriteFile;

bool AwaitFile(const std::string& path) {
  for (int i = 0; i < 1200; ++i) {
    if (FileExists(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

struct Cgi {
  const char* method;  // null: REQUEST_METHOD unset
  std::string query;
  std::string body;
  const char* content_type = "application/x-www-form-urlencoded";
  bool content_length = true;
};

class AdminTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(dir_.Path("cgi"));
    std::filesystem::create_directories(dir_.Path("gen"));
    std::filesystem::create_directories(dir_.Path("www"));
    std::filesystem::create_symlink(STOREGEN_ADMIN_BIN, dir_.Path("cgi/storegen-admin"));
    std::filesystem::create_symlink(FAKE_STOREGEN_BIN, dir_.Path("gen/storegen"));
    WriteFile(dir_.Path("cgi/storegen-admin.cfg"),
              "StoregenProgram\t../gen/storegen\nStoreConfigDir\t" + dir_.Path("stores") +
                  "\nTemplateDir\t" + dir_.Path("templates") + "\nHtmlRoot\t" + dir_.Path("www") +
                  "\nHtmlAlias\t/store\nAdminMail\tadmin@example.com\n");
    WriteFile(dir_.Path("stores/acme.cfg"),
              "StoreDir\t/store/acme/\nNonSecureDomain\thttp://shop.example.com\n");
    WriteFile(dir_.Path("templates/basic.cfg"), "InfoPage\tbasic/info.html\n");
    WriteFile(dir_.Path("templates/basic/info.html"), "<IMG SRC=\"logo.gif\">");
    WriteFile(dir_.Path("templates/basic/logo.gif"), "GIF");
  }

  RunResult Run(const Cgi& cgi) {
    RunOptions options;
    options.cwd = dir_.Path("cgi");
    options.unset_env = {"REQUEST_METHOD",       "QUERY_STRING", "CONTENT_TYPE",
                         "CONTENT_LENGTH",       "PATH_INFO",    "PATH_TRANSLATED",
                         "STOREGEN_ADMIN_CONFIG"};
    if (cgi.method != nullptr) options.set_env["REQUEST_METHOD"] = cgi.method;
    if (!cgi.query.empty()) options.set_env["QUERY_STRING"] = cgi.query;
    if (cgi.method != nullptr && std::string(cgi.method) == "POST") {
      if (cgi.content_type != nullptr) options.set_env["CONTENT_TYPE"] = cgi.content_type;
      if (cgi.content_length) options.set_env["CONTENT_LENGTH"] = std::to_string(cgi.body.size());
      options.stdin_data = cgi.body;
    }
    RunResult r = RunProgram({dir_.Path("cgi/storegen-admin")}, options);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    return r;
  }

  RunResult Post(const std::string& body) { return Run({"POST", "", body}); }
  RunResult Get(const std::string& query) { return Run({"GET", query, ""}); }

  std::string Launches() { return ReadFile(dir_.Path("gen/launches.log"), false); }

  ScopedTempDir dir_;
};

std::string Page(const std::string& title, const std::string& body, const std::string& head = "") {
  return "Content-type: text/html\n\n<HTML><HEAD><TITLE>" + title + "</TITLE>" + head +
         "</HEAD>\n<BODY>\n<H1>" + title + "</H1>\n" + body + "</BODY></HTML>\n";
}

TEST(AdminNames, OnlyPlainNamesAreAccepted) {
  for (const char* ok : {"acme", "Acme-2", "my_store.v2", "a"}) {
    EXPECT_TRUE(IsValidAdminName(ok)) << ok;
  }
  for (const char* bad : {"", ".", "..", ".hidden", "a..b", "../acme", "a/b", "a\\b", "/etc", "a b",
                          "a;b", "a|b", "$(id)", "`id`", "a&b", "a\nb"}) {
    EXPECT_FALSE(IsValidAdminName(bad)) << bad;
  }
  EXPECT_FALSE(IsValidAdminName(std::string(65, 'a')));
}

TEST_F(AdminTest, MalformedRequestsGetTheErrorPages) {
  std::string many;
  for (int i = 0; i < 20; ++i)
    many += "f" + std::to_string(i) + "=1&";
  const struct {
    Cgi cgi;
    const char* title;
  } cases[] = {
      {{nullptr, "action=status", ""}, "Bad Script Referencing Method; REQUEST_METHOD"},
      {{"PUT", "action=status", ""}, "Bad Script Referencing Method; REQUEST_METHOD"},
      {{"POST", "", "action=status", "text/plain"}, "Bad Content Type; CONTENT_TYPE"},
      {{"POST", "", "action=status", nullptr}, "Bad Content Type; CONTENT_TYPE"},
      {{"POST", "", "action=status", "application/x-www-form-urlencoded", false},
       "Missing Content Length"},
      {{"GET", "action=generate&store=acme", ""}, "Bad Script Referencing Method; REQUEST_METHOD"},
      {{"GET", "", ""}, "Incomplete request"},
      {{"GET", "action=format", ""}, "Unknown request"},
      {{"GET", many + "action=status", ""}, "Bad request"},
      {{"POST", "", many + "action=status"}, "Bad request"},
      {{"POST", "", "action=generate"}, "Incomplete request"},
      {{"GET", "action=info", ""}, "Incomplete request"},
  };
  for (const auto& c : cases) {
    RunResult r = Run(c.cgi);
    std::string label =
        std::string(c.cgi.method ? c.cgi.method : "(none)") + " " + c.cgi.query + c.cgi.body;
    EXPECT_EQ(r.out.rfind("Content-type: text/html\n\n<HTML>\n<HEAD>\n", 0), 0u) << label;
    EXPECT_NE(r.out.find(std::string("<TITLE>Error - ") + c.title + "</TITLE>"), std::string::npos)
        << label << "\n"
        << r.out;
  }
  EXPECT_EQ(Launches(), "");
}

TEST_F(AdminTest, NamesOutsideTheConfiguredDirectoriesStartNothing) {
  WriteFile(dir_.Path("outside.cfg"), "StoreDir\t/x/\n");
  const struct {
    const char* store;  // as sent, URL-encoded
    const char* title;
  } cases[] = {
      {"..%2Foutside", "Invalid store name"},
      {"%2Fetc%2Fpasswd", "Invalid store name"},
      {"acme%3Btouch+pwned", "Invalid store name"},
      {"acme;touch pwned", "Invalid store name"},
      {"acme%7Cid", "Invalid store name"},
      {"%24(touch+pwned)", "Invalid store name"},
      {"%60touch+pwned%60", "Invalid store name"},
      {"acme%0A", "Invalid store name"},
      {"..", "Invalid store name"},
      {"acme.cfg", "Unknown store"},
      {"nosuch", "Unknown store"},
  };
  for (const auto& c : cases) {
    RunResult r = Post(std::string("action=generate&store=") + c.store);
    EXPECT_NE(r.out.find(std::string("<TITLE>Error - ") + c.title + "</TITLE>"), std::string::npos)
        << c.store << "\n"
        << r.out;
    EXPECT_NE(r.out.find("mailto:admin@example.com"), std::string::npos) << c.store;
    EXPECT_EQ(r.out.find("pwned"), std::string::npos) << c.store;
  }
  for (const char* set : {"..%2Ftemplates%2Fbasic", "basic%3Bls", "nosuch"}) {
    RunResult r = Get(std::string("action=info&set=") + set);
    EXPECT_NE(r.out.find("<TITLE>Error - "), std::string::npos) << set;
    EXPECT_EQ(r.out.find("window.open"), std::string::npos) << set;
  }
  EXPECT_EQ(Launches(), "");
  EXPECT_FALSE(FileExists(dir_.Path("cgi/pwned")));
  EXPECT_FALSE(FileExists(dir_.Path("gen/pwned")));
}

TEST_F(AdminTest, OneGenerationRunAtATimeAndItsReport) {
  EXPECT_EQ(Get("action=status&store=acme").out,
            Page("No generation report",
                 "<P>No generation run has finished since the last one was started here, so "
                 "there is nothing to report yet.</P>\n"));
  const std::string link =
      "<P><A HREF=\"?action=status&amp;store=acme\">Show how the last generation run "
      "ended</A></P>\n";
  EXPECT_EQ(Post("action=generate&store=acme").out,
            Page("Generation started",
                 "<P>The pages of store <B>acme</B> are being generated in the background. A "
                 "large store may take several minutes.</P>\n" +
                     link));
  ASSERT_TRUE(AwaitFile(dir_.Path("gen/running")));
  EXPECT_EQ(Launches(),
            "-b -o " + dir_.Path("www") + " -a /store -c " + dir_.Path("stores/acme.cfg") + "\n");

  EXPECT_EQ(Post("store=acme&action=generate").out,
            Page("Generation already running",
                 "<P>A generation run is already under way, so no new run was started. Wait "
                 "until it has finished, then start the generation again if it is still "
                 "needed.</P>\n" +
                     link));
  EXPECT_EQ(Get("action=status").out,
            Page("Generation running",
                 "<P>A generation run is under way. This page looks again every ten "
                 "seconds.</P>\n",
                 "<META HTTP-EQUIV=\"refresh\" CONTENT=\"10\">"));

  WriteFile(dir_.Path("gen/release"), "");
  ASSERT_TRUE(AwaitFile(dir_.Path("gen/finished")));
  EXPECT_EQ(Launches(),
            "-b -o " + dir_.Path("www") + " -a /store -c " + dir_.Path("stores/acme.cfg") + "\n");
  EXPECT_EQ(Post("action=status&store=acme").out,
            Page("Last generation run",
                 "<CENTER>\n<B>The store's pages were generated successfully.</B>\n"
                 "<P><A HREF=\"http://shop.example.com/store/acme/\">Visit the store</A>\n"
                 "<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n"));
}

// Holds the run locks in a child process, as a generation run does, until
// destroyed.
class RunLocks {
 public:
  explicit RunLocks(const std::string& dir) {
    int ready[2];
    if (pipe(ready) != 0 || pipe(release_) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      bool ok = openlock((dir + "/pgstatus.pid").c_str(), 0, 0644) >= 0 &&
                openlock((dir + "/pgstatus.lck").c_str(), 0, 0644) >= 0;
      char c = ok ? '1' : '0';
      if (write(ready[1], &c, 1) != 1) _exit(1);
      close(release_[1]);
      while (read(release_[0], &c, 1) > 0) {
      }
      _exit(0);
    }
    close(ready[1]);
    close(release_[0]);
    char c = '0';
    locked_ = read(ready[0], &c, 1) == 1 && c == '1';
    close(ready[0]);
  }
  ~RunLocks() {
    close(release_[1]);
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
  }
  bool locked() const { return locked_; }

 private:
  int release_[2] = {-1, -1};
  pid_t pid_ = -1;
  bool locked_ = false;
};

// The page generator itself, started through the management program.
TEST_F(AdminTest, TheRealGeneratorRunsAndReportsSuccess) {
  std::filesystem::remove(dir_.Path("gen/storegen"));
  InstallStoregen(dir_.Path("gen"));
  WriteFile(dir_.Path("stores/acme.cfg"),
            "AllowPagegen\tyes\nShoppingCartDirectory\tcart\nPageGenTmpltSet\tbasic\n"
            "StoreDir\t/acme/\nNonSecureDomain\thttp://shop.example.com\n"
            "PageGenTemplateDir\t" +
                dir_.Path("templates") + "\nProductDatabase\t" + dir_.Path("stores/prod.txt") +
                "\n");
  WriteFile(dir_.Path("stores/prod.txt"), "");
  {
    RunLocks run(dir_.Path("gen"));
    ASSERT_TRUE(run.locked());
    EXPECT_NE(Post("action=generate&store=acme").out.find("Generation already running"),
              std::string::npos);
    EXPECT_FALSE(FileExists(dir_.Path("gen/pgstatus.log")));
  }
  EXPECT_NE(Post("action=generate&store=acme").out.find("Generation started"), std::string::npos);
  std::string report;
  for (int i = 0; i < 600; ++i) {
    if (ReadFile(dir_.Path("gen/pgstatus.log"), false).find("ReturnCode=") != std::string::npos) {
      report = Get("action=status&store=acme").out;
      if (report.find("Generation running") == std::string::npos) break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(report, Page("Last generation run",
                         "<CENTER>\n<B>The store's pages were generated successfully.</B>\n"
                         "<P><A HREF=\"http://shop.example.com/acme/\">Visit the store</A>\n"
                         "<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n"))
      << ReadFile(dir_.Path("gen/pgstatus.log"), false);
  EXPECT_TRUE(std::filesystem::is_directory(dir_.Path("www/acme")));
}

TEST_F(AdminTest, ReportOfARunWithProblems) {
  WriteFile(dir_.Path("gen/release"), "");
  WriteFile(dir_.Path("gen/rc.txt"), "-18");
  WriteFile(dir_.Path("gen/problems.txt"), "%%CATEGORY.Color%%\t-18\nc-shoes.html\t-18\n");
  Post("action=generate&store=acme");
  ASSERT_TRUE(AwaitFile(dir_.Path("gen/finished")));
  std::string out = Get("action=status&store=acme").out;
  EXPECT_NE(out.find("<B>The last generation run reported problems. </B>Page generation did not "
                     "finish cleanly: Some template tags"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("<TR><TD>%%CATEGORY.Color%%<BR><B>Page:</B> c-shoes.html</TD>"),
            std::string::npos)
      << out;
}

TEST_F(AdminTest, InformationPageOfANamedSet) {
  RunResult r = Get("action=info&set=basic&store=acme");
  EXPECT_EQ(r.out.rfind("Content-type: text/html\n\n<HTML><HEAD><SCRIPT>\n"
                        "window.open(\"/store/tb_infodir/info.html?",
                        0),
            0u)
      << r.out;
  std::string copy = ReadFile(dir_.Path("www/tb_infodir/info.html"));
  EXPECT_EQ(copy.rfind("<IMG SRC=\"/store/tb_infodir/logo.gif?", 0), 0u) << copy;
  EXPECT_EQ(ReadFile(dir_.Path("www/tb_infodir/logo.gif")), "GIF");
}

TEST_F(AdminTest, UnusableConfigurationIsReported) {
  WriteFile(dir_.Path("cgi/storegen-admin.cfg"), "StoregenProgram\t/x/storegen\n");
  RunResult r = Get("action=status");
  EXPECT_NE(r.out.find("<TITLE>Error - storegen-admin is not configured</TITLE>"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("StoreConfigDir is not set in"), std::string::npos) << r.out;
}

}  // namespace
}  // namespace storegen
