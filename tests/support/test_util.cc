#include "tests/support/test_util.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

namespace storegen::testing {

ScopedTempDir::ScopedTempDir(bool enter) {
  // Without $TMPDIR, a memory file system when there is one: the runs'
  // fsyncs cost nothing there.
  const char* tmp = std::getenv("TMPDIR");
  if (tmp == nullptr || *tmp == '\0')
    tmp = access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : "/tmp";
  std::string templ = std::string(tmp) + "/sgtest.XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) {
    ADD_FAILURE() << "mkdtemp failed: " << std::strerror(errno);
    return;
  }
  path_ = buf.data();
  if (enter) {
    old_cwd_ = fs::current_path().string();
    fs::current_path(path_);
  }
}

ScopedTempDir::~ScopedTempDir() {
  if (!old_cwd_.empty()) {
    std::error_code ec;
    fs::current_path(old_cwd_, ec);
  }
  if (!path_.empty()) {
    // Tests may leave directories without write or search permission.
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(
             path_, fs::directory_options::skip_permission_denied, ec);
         !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
      if (it->is_directory(ec) && !it->is_symlink(ec)) {
        fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
      }
    }
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
    RemoveTree(path_);
  }
}

std::string ScopedTempDir::Path(const std::string& relative) const {
  return path_ + "/" + relative;
}

void WriteFile(const std::string& path, const std::string& content) {
  fs::path p(path);
  std::error_code ec;
  if (p.has_parent_path()) fs::create_directories(p.parent_path(), ec);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) {
    ADD_FAILURE() << "cannot write " << path;
    return;
  }
  out << content;
}

std::string ReadFile(const std::string& path, bool must_exist) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    if (must_exist) ADD_FAILURE() << "cannot read " << path;
    return "";
  }
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool FileExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void RemoveTree(const std::string& path) {
  std::error_code ec;
  fs::remove_all(path, ec);
}

std::vector<std::string> ListDir(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(dir, ec))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

std::string StoregenBinary() {
#ifdef STOREGEN_BIN
  return STOREGEN_BIN;
#else
  return "storegen";
#endif
}

std::string InstallStoregen(const std::string& dir, const std::string& name) {
  std::string link = dir + "/" + name;
  std::error_code ec;
  fs::create_directories(dir, ec);
  fs::remove(link, ec);
  fs::create_symlink(StoregenBinary(), link, ec);
  if (ec) ADD_FAILURE() << "cannot link " << link << ": " << ec.message();
  return link;
}

namespace {

std::string ReadAll(FILE* fp) {
  std::string text;
  char buf[65536];
  std::rewind(fp);
  for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, fp)) > 0;)
    text.append(buf, n);
  return text;
}

}  // namespace

RunResult RunProgram(const std::vector<std::string>& argv, const RunOptions& options) {
  RunResult result;
  // Input, output and error go through unlinked temporary files: nothing the
  // child writes or leaves unread can block either side.
  std::unique_ptr<FILE, int (*)(FILE*)> io[3] = {
      {std::tmpfile(), std::fclose}, {std::tmpfile(), std::fclose}, {std::tmpfile(), std::fclose}};
  if (!io[0] || !io[1] || !io[2]) {
    ADD_FAILURE() << "tmpfile failed";
    return result;
  }
  std::fwrite(options.stdin_data.data(), 1, options.stdin_data.size(), io[0].get());
  std::rewind(io[0].get());
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) {
    ADD_FAILURE() << "fork failed";
    return result;
  }
  if (pid == 0) {
    for (int fd = 0; fd < 3; ++fd)
      dup2(fileno(io[fd].get()), fd);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    for (const auto& name : options.unset_env)
      unsetenv(name.c_str());
    for (const auto& [name, value] : options.set_env)
      setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> args;
    for (const auto& a : argv)
      args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(options.timeout_seconds);
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > deadline) {
      ADD_FAILURE() << "timed out: " << argv[0];
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  result.out = ReadAll(io[1].get());
  result.err = ReadAll(io[2].get());
  if (WIFEXITED(status)) {
    result.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}

bool RunningAsRoot() {
  return geteuid() == 0;
}

int RunUnprivileged(const std::function<int()>& fn) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(125);
    int rc = fn();
    std::fflush(nullptr);
    _exit(rc & 0xff);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

HeldInChild::HeldInChild(const std::function<bool()>& hold) {
  int ready[2], release[2];
  if (pipe(ready) != 0 || pipe(release) != 0) return;
  std::fflush(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    close(ready[0]);
    close(release[1]);
    char c = hold() ? '1' : '0';
    if (write(ready[1], &c, 1) == 1) {
      while (read(release[0], &c, 1) > 0) {
      }
    }
    _exit(0);
  }
  close(ready[1]);
  close(release[0]);
  release_ = release[1];
  char c = '0';
  held_ = pid_ > 0 && read(ready[0], &c, 1) == 1 && c == '1';
  close(ready[0]);
}

HeldInChild::~HeldInChild() {
  if (release_ >= 0) close(release_);
  if (pid_ > 0) waitpid(pid_, nullptr, 0);
}

bool WaitForFile(const std::string& path, int seconds) {
  for (auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
       std::chrono::steady_clock::now() < end;) {
    if (FileExists(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return FileExists(path);
}

}  // namespace storegen::testing
