#include "driver/run_files.h"

#include <fcntl.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"
#include "templateset/management.h"

namespace storegen {
namespace {

std::string g_program_dir;
int g_companion_fd = -1;

// The directory part of |argv0| (up to and including its last separator, at
// most the first 255 bytes considered), or of the running executable when
// |argv0| names no directory.
std::string ProgramDirectoryOf(const char* argv0) {
  std::string path(std::string_view(argv0 != nullptr ? argv0 : "").substr(0, 255));
  std::size_t sep = path.find_last_of("/\\");
  if (sep == std::string::npos) {
    char exe[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) return "";
    path.assign(exe, static_cast<std::size_t>(n));
    sep = path.rfind('/');
    if (sep == std::string::npos) return "";
  }
  return path.substr(0, sep + 1);
}

}  // namespace

std::string CurrentDirectory() {
  char buf[PATH_MAX];
  return getcwd(buf, sizeof buf) != nullptr ? std::string(buf) : std::string();
}

bool EnterProgramDirectory(const char* argv0) {
  std::string dir = ProgramDirectoryOf(argv0);
  bool entered = !dir.empty() && chdir(dir.c_str()) == 0;
  g_program_dir = CurrentDirectory();
  if (g_program_dir.size() > 1 && g_program_dir.back() == '/') g_program_dir.pop_back();
  return entered;
}

const std::string& ProgramDirectory() {
  return g_program_dir;
}

std::string ProgramFile(const char* name) {
  if (g_program_dir.empty()) return name;
  if (g_program_dir == "/") return "/" + std::string(name);
  return g_program_dir + "/" + name;
}

bool TakeRunLock() {
  int pid_fd = openlock(ProgramFile(kRunLockFile).c_str(), 0, 0644);
  if (pid_fd == -1) return false;
  int companion_fd = openlock(ProgramFile(kRunLockCompanionFile).c_str(), 0, 0644);
  if (companion_fd == -1) {
    closelock(pid_fd);
    return false;
  }
  PageGenState.fdPID = pid_fd;
  g_companion_fd = companion_fd;
  return true;
}

void ReleaseRunLock() {
  if (PageGenState.fdPID != -1) {
    closelock(PageGenState.fdPID);
    PageGenState.fdPID = -1;
  }
  std::remove(ProgramFile(kRunLockFile).c_str());
  // The companion goes last: until the lock file is gone, it keeps a new run
  // from locking a lock file that is about to be removed under it.
  if (g_companion_fd != -1) {
    closelock(g_companion_fd);
    g_companion_fd = -1;
  }
}

void RedirectOutputToStatusLog() {
  // Opened apart first, so that a log that cannot be made leaves standard
  // output as it was.
  int fd = open(ProgramFile(kStatusLogFile).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return;
  std::fflush(stdout);
  if (dup2(fd, STDOUT_FILENO) >= 0) PageGenState.fpRedirect = stdout;
  close(fd);
}

}  // namespace storegen
