#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/file_util.h"
#include "templateset/admin_messages.h"
#include "templateset/management.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

std::string Report(int rc, int detail, const char* problems, const char* html_path,
                   const char* store_cfg) {
  ::testing::internal::CaptureStdout();
  PG_PrintGenError(rc, detail, problems, html_path, store_cfg);
  return ::testing::internal::GetCapturedStdout();
}

TEST(PrintGenError, SuccessLinksToTheStore) {
  ScopedTempDir dir;
  std::string with_slash = dir.Path("b.cfg");
  std::string without = dir.Path("c.cfg");
  WriteFile(with_slash, "NonSecureDomain\thttp://shop.example.com/\n");
  WriteFile(without, "StoreDir\t/acme/\n");
  const struct {
    const char* html_path;
    std::string cfg;
    const char* address;
  } cases[] = {{"acme", with_slash, "http://shop.example.com/acme/"},
               {"", without, "/"},
               {"/acme/", dir.Path("missing.cfg"), "/acme/"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Report(0, 1, "", c.html_path, c.cfg.c_str()),
              std::string("<CENTER>\n<B>The store's pages were generated successfully.</B>\n"
                          "<P><A HREF=\"") +
                  c.address + "\">Visit the store</A>\n<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n")
        << c.html_path << " " << c.cfg;
  }
}

TEST(PrintGenError, FailureExplainsTheCode) {
  EXPECT_EQ(Report(-5, 1, nullptr, "/acme/", nullptr),
            std::string("<CENTER>\n<B>The last generation run reported problems. </B>"
                        "Page generation did not finish cleanly: ") +
                GetResultExplanation(-5) + "<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n");
  EXPECT_EQ(Report(-50, 0, nullptr, "/acme/", nullptr),
            "<CENTER>\nPage generation did not finish cleanly: -50"
            "<P><TABLE BORDER=1>\n</TABLE>\n</CENTER>\n");
}

TEST(PrintGenError, ProblemRows) {
  const std::string tag_row =
      std::string("</TD><TD>") + GetAdminMessage(kMsgTagRowExplanation) + "</TD></TR>\n";
  const std::string graphic = GetAdminMessage(kMsgGraphicRowExplanation);
  const std::string thumbnail = GetAdminMessage(kMsgThumbnailRowExplanation);
  const std::string picture = GetAdminMessage(kMsgPictureRowExplanation);
  const struct {
    const char* problems;
    std::string rows;
  } cases[] = {
      {"\r\n%%CATEGORY.Color%%\t-18\n%%CATEGORY.Size%%\t-18\r\np-1.html\t-18\n"
       "no tab here\n\nindex.html\t-7\nReturnCode=-18",
       "<TR><TD>%%CATEGORY.Color%%<BR>%%CATEGORY.Size%%<BR><B>Page:</B> p-1.html" + tag_row},
      {"%%PRODUCT.GRAPHIC%%\t-19\nSKU1\t-19\n%%product.thumbnail%%\t-19\nSKU2\t-19\n"
       "SKU3\t-19\n",
       "<TR><TD><B>Product:</B> SKU1</TD><TD>" + graphic + "</TD></TR>\n" +
           "<TR><TD><B>Product:</B> SKU2</TD><TD>" + thumbnail + "</TD></TR>\n" +
           "<TR><TD><B>Product:</B> SKU3</TD><TD>" + picture + "</TD></TR>\n"},
      // A row whose page never came is closed before the next code's row.
      {"%%CATEGORY.X%%\t-18\n%%PRODUCT.GRAPHIC%%\t-19\nSKU\t-19\n%%CATEGORY.Y%%\t-18",
       "<TR><TD>%%CATEGORY.X%%" + tag_row + "<TR><TD><B>Product:</B> SKU</TD><TD>" + graphic +
           "</TD></TR>\n<TR><TD>%%CATEGORY.Y%%" + tag_row},
      {"c-1.html\t-18\n", "<TR><TD><BR><B>Page:</B> c-1.html" + tag_row}};
  for (const auto& c : cases) {
    std::string out = Report(-18, 1, c.problems, "/", nullptr);
    std::size_t table = out.find("<P><TABLE BORDER=1>\n");
    ASSERT_NE(table, std::string::npos);
    EXPECT_EQ(out.substr(table), "<P><TABLE BORDER=1>\n" + c.rows + "</TABLE>\n</CENTER>\n")
        << c.problems;
  }
}

TEST(ExecutionStatus, AnyRunLockMeansARunIsUnderWay) {
  ScopedTempDir dir(/*enter=*/true);
  EXPECT_EQ(PG_ExecutionStatus(), 2);
  EXPECT_EQ(testing::ListDir(dir.path()), std::vector<std::string>());  // looking creates nothing
  for (const char* lock : {kRunLockFile, kRunLockCompanionFile, kRunLaunchLockFile}) {
    testing::HeldInChild run([lock] { return openlock(lock, 0, 0644) >= 0; });
    ASSERT_TRUE(run.held());
    EXPECT_EQ(PG_ExecutionStatus(), 1) << lock;
  }
  EXPECT_EQ(PG_ExecutionStatus(), 2);
}

// A run starting while the status page is polled in a tight loop must always
// get its locks.
TEST(ExecutionStatus, LookingNeverKeepsARunOut) {
  ScopedTempDir dir(/*enter=*/true);
  pid_t looker = fork();
  if (looker == 0) {
    alarm(60);  // ended by then even if the test fails before it kills the looker
    WriteFile("looking", "");
    for (;;)
      PG_ExecutionStatus();
  }
  ASSERT_TRUE(testing::WaitForFile(dir.Path("looking")));
  int refused = 0;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  while (std::chrono::steady_clock::now() < end) {
    int pid_lock = openlock(kRunLockFile, 0, 0644);
    int companion = openlock(kRunLockCompanionFile, 0, 0644);
    refused += pid_lock < 0 || companion < 0;
    if (pid_lock >= 0) closelock(pid_lock);
    if (companion >= 0) closelock(companion);
  }
  kill(looker, SIGKILL);
  waitpid(looker, nullptr, 0);
  EXPECT_EQ(refused, 0);
}

TEST(LaunchAndForget, AnswersAtOnceAndRunsTheProgramDetached) {
  ScopedTempDir dir;
  std::string script = dir.Path("prog.sh");
  WriteFile(
      script,
      "#!/bin/sh\necho \"$@\" > \"$1/args.tmp\" && mv \"$1/args.tmp\" \"$1/args\"\n"
      "i=0; while [ ! -e \"$1/release\" ] && [ $i -lt 600 ]; do sleep 0.05; i=$((i+1)); done\n"
      "echo done > \"$1/done\"\n");
  chmod(script.c_str(), 0755);
  int out[2];
  ASSERT_EQ(pipe(out), 0);
  pid_t pid = fork();
  if (pid == 0) {
    close(out[0]);
    dup2(out[1], STDOUT_FILENO);
    close(out[1]);
    std::fputs("Content-type: text/html\n\nstarted", stdout);
    PG_LaunchAndForget((script + "  " + dir.path() + "\tsecond word").c_str());
  }
  close(out[1]);
  // The response ends while the program still runs: no copy of the
  // browser's connection is left open.
  std::string response;
  char buf[256];
  ssize_t n;
  while ((n = read(out[0], buf, sizeof buf)) > 0)
    response.append(buf, n);
  close(out[0]);
  // A web server may end the CGI process as soon as the answer is complete.
  kill(pid, SIGTERM);
  int status = -1;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(response, "Content-type: text/html\n\nstarted");
  ASSERT_TRUE(testing::WaitForFile(dir.Path("args")));
  EXPECT_EQ(ReadFile(dir.Path("args")), dir.path() + " second word\n");
  EXPECT_FALSE(FileExists(dir.Path("done")));
  WriteFile(dir.Path("release"), "");
  EXPECT_TRUE(testing::WaitForFile(dir.Path("done")));
}

}  // namespace
}  // namespace storegen
