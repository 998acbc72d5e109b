// Test support: temporary directories, whole-file helpers, and running a
// program (storegen itself) as a child process with its output captured.
#ifndef STOREGEN_TESTS_SUPPORT_TEST_UTIL_H_
#define STOREGEN_TESTS_SUPPORT_TEST_UTIL_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace storegen::testing {

// A fresh directory under $TMPDIR (or /dev/shm, else /tmp), removed with everything in it on
// destruction. With |enter|, the process changes into it and back on
// destruction.
class ScopedTempDir {
 public:
  explicit ScopedTempDir(bool enter = false);
  ~ScopedTempDir();
  ScopedTempDir(const ScopedTempDir&) = delete;
  ScopedTempDir& operator=(const ScopedTempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + relative.
  std::string Path(const std::string& relative) const;

 private:
  std::string path_;
  std::string old_cwd_;
};

// Writes |content| to |path|, creating missing parent directories. Fails the
// test (ADD_FAILURE) when it cannot.
void WriteFile(const std::string& path, const std::string& content);
// The whole content of |path|; "" (and a test failure when |must_exist|) when
// it cannot be read.
std::string ReadFile(const std::string& path, bool must_exist = true);
bool FileExists(const std::string& path);
// Removes |path| and everything below it (no error when absent).
void RemoveTree(const std::string& path);
// Names in directory |dir| (not "." and ".."), sorted.
std::vector<std::string> ListDir(const std::string& dir);

// The storegen program under test (the build's bin/storegen).
std::string StoregenBinary();
// Links the program under test into |dir| as "storegen" (the program works in
// its own directory, so every test gets its own) and returns the link's path.
std::string InstallStoregen(const std::string& dir, const std::string& name = "storegen");

struct RunResult {
  int exit_code = -1;  // exit status (0..255), or -1 when killed by a signal
  int signal = 0;
  std::string out;  // standard output
  std::string err;  // standard error
};

struct RunOptions {
  std::string cwd;                             // empty: current directory
  std::map<std::string, std::string> set_env;  // variables to set
  std::vector<std::string> unset_env;          // variables to remove
  std::string stdin_data;                      // fed to standard input
  int timeout_seconds = 60;                    // killed after this
};

// Runs argv[0] with |argv| (argv[0] included) and waits for it.
RunResult RunProgram(const std::vector<std::string>& argv, const RunOptions& options = {});

// Runs |fn| in a forked child without root's privileges (as user and group
// 65534 when the tests run as root, so that permission bits hold) and returns
// what |fn| returned, or -1 when the child did not exit normally. Files the
// child must reach need permissions for that user.
int RunUnprivileged(const std::function<int()>& fn);
// True when the tests run as root.
bool RunningAsRoot();

// The exit status that a process shows for |code| returned from main.
inline int ExitStatusOf(int code) {
  return code & 0xff;
}

// Runs |hold| in a forked child that then stays alive, keeping what |hold|
// took (file locks, say), until this object is destroyed. held() tells
// whether |hold| returned true.
class HeldInChild {
 public:
  explicit HeldInChild(const std::function<bool()>& hold);
  ~HeldInChild();
  HeldInChild(const HeldInChild&) = delete;
  HeldInChild& operator=(const HeldInChild&) = delete;
  bool held() const { return held_; }

 private:
  int release_ = -1;
  int pid_ = -1;
  bool held_ = false;
};

// Waits until |path| exists; false when it does not within |seconds|.
bool WaitForFile(const std::string& path, int seconds = 60);

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_TEST_UTIL_H_
