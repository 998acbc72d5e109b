#include "driver/run_files.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <string_view>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"
#include "cgisupport/temp_files.h"
#include "templateset/management.h"

namespace storegen {
namespace {

std::string g_program_dir;
int g_companion_fd = -1;
// The standard output the program started with, while "-b" output is held.
int g_original_stdout = -1;

int OpenStatusLog() {
  return open(ProgramFile(kStatusLogFile).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

// Copies everything written to file |from| (from its start) to |to|.
void CopyFrom(int from, int to) {
  char buf[8192];
  off_t at = 0;
  ssize_t n;
  while ((n = pread(from, buf, sizeof buf, at)) > 0 &&
         WriteFully(to, std::string_view(buf, static_cast<std::size_t>(n)))) {
    at += n;
  }
}

// The lock file's path and the process holding it, for the signal handler.
char g_lock_path[PATH_MAX];
volatile pid_t g_lock_owner = 0;

extern "C" void OnStopSignal(int sig) {
  RemoveLiveTemporaries();
  if (g_lock_owner == getpid()) unlink(g_lock_path);
  struct sigaction dfl {};
  dfl.sa_handler = SIG_DFL;
  sigaction(sig, &dfl, nullptr);
  raise(sig);  // delivered once the handler returns
}

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
  CopyTruncated(g_lock_path, ProgramFile(kRunLockFile));
  g_lock_owner = getpid();
  BeginTemporaryRecord(ProgramFile(kTemporaryRecordFile));
  return true;
}

void ReleaseRunLock() {
  const bool owner = g_lock_owner == getpid();
  if (owner) {
    RemoveLiveTemporaries();
    EndTemporaryRecord();
  }
  if (PageGenState.fdPID != -1) {
    closelock(PageGenState.fdPID);
    PageGenState.fdPID = -1;
  }
  std::remove(ProgramFile(kRunLockFile).c_str());
  // Until here a stop signal removes the lock file too; from here on it may
  // be another run's.
  if (owner) g_lock_owner = 0;
  // The companion goes last: until the lock file is gone, it keeps a new run
  // from locking a lock file that is about to be removed under it.
  if (g_companion_fd != -1) {
    closelock(g_companion_fd);
    g_companion_fd = -1;
  }
}

void EndOnStopSignals() {
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  for (int sig : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction old {};
    if (sig != SIGTERM && sigaction(sig, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
    sigaction(sig, &action, nullptr);
  }
}

void RedirectOutputToStatusLog() {
  if (PageGenState.fpRedirect != nullptr) return;  // a second "-b" changes nothing
  std::fflush(stdout);
  if (FILE* held = std::tmpfile()) {
    int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved >= 0 && dup2(fileno(held), STDOUT_FILENO) >= 0) {
      g_original_stdout = saved;
      PageGenState.fpRedirect = stdout;
    } else if (saved >= 0) {
      close(saved);
    }
    std::fclose(held);  // standard output keeps the file open
    if (g_original_stdout >= 0) return;
  }
  int fd = OpenStatusLog();
  if (fd < 0) return;
  if (dup2(fd, STDOUT_FILENO) >= 0) PageGenState.fpRedirect = stdout;
  close(fd);
}

void SettleStatusLog() {
  if (g_original_stdout < 0) return;
  // Only a process without the run lock looks at it: looking would release
  // a lock this process holds.
  if (PageGenState.fdPID == -1 && PG_RunLocked(g_program_dir)) {
    WithdrawStatusLog();
    return;
  }
  std::fflush(stdout);
  int log = OpenStatusLog();
  if (log < 0) {
    WithdrawStatusLog();
    return;
  }
  CopyFrom(STDOUT_FILENO, log);
  dup2(log, STDOUT_FILENO);
  close(log);
  close(g_original_stdout);
  g_original_stdout = -1;
}

void WithdrawStatusLog() {
  if (g_original_stdout < 0) return;
  std::fflush(stdout);
  int held = dup(STDOUT_FILENO);
  dup2(g_original_stdout, STDOUT_FILENO);
  close(g_original_stdout);
  g_original_stdout = -1;
  PageGenState.fpRedirect = nullptr;
  if (held >= 0) {
    CopyFrom(held, STDOUT_FILENO);
    close(held);
  }
}

}  // namespace storegen
