#include "pagegen/progress.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

std::string ReadAvailable(int fd) {
  std::string text;
  char buf[256];
  int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  ssize_t n;
  while ((n = read(fd, buf, sizeof buf)) > 0)
    text.append(buf, static_cast<std::size_t>(n));
  return text;
}

// Progress is for a person at a terminal: a pipe or file (a log, a CGI
// caller) gets nothing.
TEST(Progress, ShownOnATerminalOnly) {
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  ProgressBegin(pipe_fds[1]);
  ProgressPlanPages(2);
  ProgressPageWritten();
  ProgressEnd();
  EXPECT_EQ(ReadAvailable(pipe_fds[0]), "");
  close(pipe_fds[0]);
  close(pipe_fds[1]);

  int master = posix_openpt(O_RDWR | O_NOCTTY);
  ASSERT_GE(master, 0);
  ASSERT_EQ(grantpt(master), 0);
  ASSERT_EQ(unlockpt(master), 0);
  int terminal = open(ptsname(master), O_RDWR | O_NOCTTY);
  ASSERT_GE(terminal, 0);
  // Two pages planned, and a further page of a list on the way; the line is
  // drawn at most every tenth of a second, and at the end.
  ProgressBegin(terminal);
  ProgressPlanPages(2);
  ProgressPageWritten();
  ProgressPlanPages(1);
  usleep(120 * 1000);
  ProgressPageWritten();
  ProgressPageWritten();
  ProgressEnd();
  std::string shown = ReadAvailable(master);
  EXPECT_NE(shown.find("2/3 pages, "), std::string::npos) << shown;
  EXPECT_NE(shown.find("3 pages in "), std::string::npos) << shown;
  EXPECT_EQ(shown.back(), '\n') << shown;
  close(terminal);
  close(master);
}

}  // namespace
}  // namespace storegen
