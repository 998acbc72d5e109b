// storegen-admin driven as a web server runs a CGI program: the request in
// the environment and on standard input, the answer on standard output.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/admin/admin_main.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

// The store configurations' directory; its name holds a blank.
const std::string kStores = "my stores";

struct Cgi {
  const char* method;  // null: REQUEST_METHOD unset
  std::string query;
  std::string body;
  const char* content_type = "application/x-www-form-urlencoded";
  bool content_length = true;
  std::map<std::string, std::string> env = {};
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
              "StoregenProgram\t../gen/storegen\nStoreConfigDir\t" + dir_.Path(kStores) +
                  "\nTemplateDir\t" + dir_.Path("templates") + "\nHtmlRoot\t" + dir_.Path("www") +
                  "\nHtmlAlias\t/store\nAdminMail\tadmin@example.com\n");
    WriteFile(dir_.Path(kStores + "/acme.cfg"),
              "StoreDir\t/store/acme/\nNonSecureDomain\thttp://shop.example.com\n"
              "PageGenTemplateDir\t" +
                  dir_.Path("templates") + "\n");
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
    // Variables of the request that a run started from it must not see.
    options.set_env = {{"SCRIPT_NAME", "/cgi-bin/storegen-admin"}, {"HTTP_HOST", "shop"}};
    options.set_env.insert(cgi.env.begin(), cgi.env.end());
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

std::string SuccessReport(const std::string& store_url) {
  return Page("Last generation run",
              "<CENTER>\n<B>The store's pages were generated successfully.</B>\n<P><A HREF=\"" +
                  store_url + "\">Visit the store</A>\n<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n");
}

// The text of a page's TITLE element, or the whole page when it has none.
std::string Title(const std::string& page) {
  std::size_t start = page.find("<TITLE>"), end = page.find("</TITLE>");
  return start == std::string::npos || end == std::string::npos
             ? page
             : page.substr(start + 7, end - start - 7);
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
    EXPECT_EQ(Title(r.out), std::string("Error - ") + c.title) << label;
  }
  EXPECT_EQ(Launches(), "");
}

TEST_F(AdminTest, NamesOutsideTheConfiguredDirectoriesStartNothing) {
  WriteFile(dir_.Path("outside.cfg"), "StoreDir\t/x/\n");
  WriteFile(dir_.Path(kStores + "/bare.cfg"), "StoreDir\t/bare/\n");
  const struct {
    const char* store;  // as sent, URL-encoded
    const char* title;
  } cases[] = {
      {"..%2Foutside", "Invalid store name"},
      {"acme%3Btouch+pwned", "Invalid store name"},
      {"%24(touch+pwned)", "Invalid store name"},
      {"acme%0A", "Bad request"},
      {"acme%00.x", "Bad request"},  // not "acme"
      {"acme%2", "Bad request"},
      {"acme.cfg", "Unknown store"},
      {"nosuch", "Unknown store"},
      {"bare", "Store not ready for generation"},  // no PageGenTemplateDir
  };
  for (const auto& c : cases) {
    RunResult r = Post(std::string("action=generate&store=") + c.store);
    EXPECT_EQ(Title(r.out), std::string("Error - ") + c.title) << c.store;
    EXPECT_NE(r.out.find("mailto:admin@example.com"), std::string::npos) << c.store;
    EXPECT_EQ(r.out.find("pwned"), std::string::npos) << c.store;
  }
  for (const char* set : {"..%2Ftemplates%2Fbasic", "basic%3Bls", "nosuch"}) {
    RunResult r = Get(std::string("action=info&set=") + set);
    EXPECT_EQ(Title(r.out).rfind("Error - ", 0), 0u) << set;
    EXPECT_EQ(r.out.find("window.open"), std::string::npos) << set;
  }
  EXPECT_EQ(Launches(), "");
  EXPECT_FALSE(FileExists(dir_.Path("cgi/pwned")));
  EXPECT_FALSE(FileExists(dir_.Path("gen/pwned")));
}

TEST_F(AdminTest, OneGenerationRunAtATimeAndItsReport) {
  EXPECT_EQ(Title(Get("action=status&store=acme").out), "No generation report");
  EXPECT_EQ(Post("action=generate&store=acme").out,
            Page("Generation started",
                 "<P>The pages of store <B>acme</B> are being generated in the background. A "
                 "large store may take several minutes.</P>\n<P><A "
                 "HREF=\"?action=status&amp;store=acme\">Show how the last generation run "
                 "ended</A></P>\n"));
  ASSERT_TRUE(WaitForFile(dir_.Path("gen/running")));
  EXPECT_EQ(Title(Post("store=acme&action=generate").out), "Generation already running");
  const std::string running = Get("action=status").out;
  EXPECT_EQ(Title(running), "Generation running");
  EXPECT_NE(running.find("<META HTTP-EQUIV=\"refresh\" CONTENT=\"10\">"), std::string::npos);

  WriteFile(dir_.Path("gen/release"), "");
  ASSERT_TRUE(WaitForFile(dir_.Path("gen/finished")));
  // One launch only, with the configured output root and alias.
  EXPECT_EQ(Launches(), "-b|-o|" + dir_.Path("www") + "|-a|/store|-c|" +
                            dir_.Path(kStores + "/acme.cfg") + "|-s|0\n");
  EXPECT_EQ(Post("action=status&store=acme").out,
            SuccessReport("http://shop.example.com/store/acme/"));
}

// Requests that arrive together: one starts a run, every other one is told
// that a run is under way, and the running generation's log stays whole.
TEST_F(AdminTest, OfTwentyRequestsArrivingTogetherOneStartsARun) {
  constexpr int kRequests = 20;
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  std::vector<pid_t> requests;
  for (int i = 0; i < kRequests; ++i) {
    pid_t pid = fork();
    if (pid == 0) {
      close(go[1]);
      char c;
      while (read(go[0], &c, 1) > 0) {
      }
      std::string title = Title(Post("action=generate&store=acme").out);
      _exit(title == "Generation started" ? 1 : title == "Generation already running" ? 2 : 3);
    }
    requests.push_back(pid);
  }
  close(go[0]);
  close(go[1]);  // all go at once
  std::map<int, int> answers;
  for (pid_t pid : requests) {
    int status = 0;
    waitpid(pid, &status, 0);
    ++answers[WIFEXITED(status) ? WEXITSTATUS(status) : -1];
  }
  EXPECT_EQ(answers, (std::map<int, int>{{1, 1}, {2, kRequests - 1}}));
  WriteFile(dir_.Path("gen/release"), "");
  ASSERT_TRUE(WaitForFile(dir_.Path("gen/finished")));
  const std::string launches = Launches();
  EXPECT_EQ(std::count(launches.begin(), launches.end(), '\n'), 1) << launches;
  EXPECT_EQ(ReadFile(dir_.Path("gen/pgstatus.log")), "ReturnCode=0");
}

// Without HtmlRoot the output root and its alias come from the web server's
// variables, and without those no run is started.
TEST_F(AdminTest, OutputRootFromTheWebServerWhenNotConfigured) {
  WriteFile(dir_.Path("cgi/storegen-admin.cfg"),
            "StoregenProgram\t../gen/storegen\nStoreConfigDir\t" + dir_.Path(kStores) +
                "\nTemplateDir\t" + dir_.Path("templates") + "\n");
  EXPECT_EQ(Title(Post("action=generate&store=acme").out), "Error - No HTML root");
  WriteFile(dir_.Path("gen/release"), "");
  Cgi cgi{"POST", "", "action=generate&store=acme"};
  cgi.env = {{"PATH_INFO", "/shop/x.html"}, {"PATH_TRANSLATED", "/srv/www/x.html"}};
  EXPECT_EQ(Title(Run(cgi).out), "Generation started");
  ASSERT_TRUE(WaitForFile(dir_.Path("gen/finished")));
  EXPECT_EQ(Launches(),
            "-b|-o|/srv/www|-a|/shop|-c|" + dir_.Path(kStores + "/acme.cfg") + "|-s|0\n");
}

TEST_F(AdminTest, ReportOfARunWithProblems) {
  WriteFile(dir_.Path("gen/release"), "");
  WriteFile(dir_.Path("gen/rc.txt"), "-18");
  WriteFile(dir_.Path("gen/problems.txt"), "%%CATEGORY.Color%%\t-18\nc-shoes.html\t-18\n");
  WriteFile(dir_.Path("gen/messages.txt"), "storegen: <shoes.html> has a tag & more\n");
  Post("action=generate&store=acme");
  ASSERT_TRUE(WaitForFile(dir_.Path("gen/finished")));
  std::string out = Get("action=status&store=acme").out;
  EXPECT_NE(out.find("<B>The last generation run reported problems. </B>Page generation did not "
                     "finish cleanly: Some template tags"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("<TR><TD>%%CATEGORY.Color%%<BR><B>Page:</B> c-shoes.html</TD>"),
            std::string::npos)
      << out;
  // The run's own words on standard error follow the report.
  EXPECT_NE(out.find("<H2>Messages of the run</H2>\n<PRE>storegen: &lt;shoes.html&gt; has a "
                     "tag &amp; more\n</PRE>\n</BODY>"),
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
  EXPECT_EQ(Title(r.out), "Error - storegen-admin is not configured");
  EXPECT_NE(r.out.find("StoreConfigDir is not set in"), std::string::npos) << r.out;
}

}  // namespace
}  // namespace storegen
