// Runs of one installation side by side. A static run is held in the middle
// of its work by the gate product library (it waits in its first product
// connection until the test opens a FIFO), so that every overlap below is
// certain rather than likely: no test depends on timing. The waits are
// bounded only so that a broken build fails instead of hanging.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/concurrency/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

constexpr char kLockMessage[] = "Page generator already running\n";

// A child storegen whose output goes to files, waited for later.
struct Child {
  pid_t pid = -1;
  std::string out;  // file with its standard output
};

Child Spawn(const std::vector<std::string>& argv, const std::string& out_file,
            const std::string& gate = "") {
  Child child;
  child.out = out_file;
  child.pid = fork();
  if (child.pid == 0) {
    int fd = open(out_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
    if (gate.empty()) {
      unsetenv("STOREGEN_TEST_GATE");
    } else {
      setenv("STOREGEN_TEST_GATE", gate.c_str(), 1);
    }
    std::vector<char*> args;
    for (const std::string& a : argv)
      args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    execv(args[0], args.data());
    _exit(127);
  }
  return child;
}

// Waits for |pid| (at most a minute) and returns its exit status, or -1 when
// it was killed or did not end.
int Wait(pid_t pid) {
  for (int i = 0; i < 6000; ++i) {
    int status = 0;
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return -1;
}

// Waits (at most a minute) until |path| exists.
bool WaitForFile(const std::string& path) {
  for (int i = 0; i < 6000; ++i) {
    if (FileExists(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

// Lets the run held at |gate| go on.
void OpenGate(const std::string& gate) {
  int fd = open(gate.c_str(), O_WRONLY);
  ASSERT_GE(fd, 0);
  close(fd);
}

class Concurrency : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = InstallSampleStore(dir_.path(), {{"ProductAPILibrary", PAPI_GATE_LIB}});
    gate_ = dir_.Path("gate");
    ASSERT_EQ(mkfifo(gate_.c_str(), 0600), 0);
  }

  ScopedTempDir dir_;
  SampleStore store_;
  std::string gate_;
};

TEST_F(Concurrency, OfManyStaticRunsStartedAtOnceExactlyOneRuns) {
  constexpr int kRuns = 8;
  std::vector<Child> runs;
  for (int i = 0; i < kRuns; ++i)
    runs.push_back(Spawn(store_.StaticRun(), dir_.Path("run" + std::to_string(i)), gate_));
  // The one that took the lock waits at the gate; every other one must end
  // with -50 without waiting for it.
  ASSERT_TRUE(WaitForFile(gate_ + ".reached"));
  int refused = 0;
  const Child* runner = nullptr;
  for (int ended = 0; ended < kRuns - 1; ++ended) {
    int status = 0;
    pid_t pid = -1;
    for (int i = 0; i < 6000 && pid <= 0; ++i) {
      pid = waitpid(-1, &status, WNOHANG);
      if (pid == 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_GT(pid, 0) << "a refused run is still waiting";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == ExitStatusOf(-50));
    for (Child& c : runs) {
      if (c.pid == pid) {
        EXPECT_EQ(ReadFile(c.out), kLockMessage);
        c.pid = -1;
        ++refused;
      }
    }
  }
  for (const Child& c : runs) {
    if (c.pid != -1) runner = &c;
  }
  ASSERT_NE(runner, nullptr);
  EXPECT_EQ(refused, kRuns - 1);
  OpenGate(gate_);
  EXPECT_EQ(Wait(runner->pid), 0) << ReadFile(runner->out);
  EXPECT_TRUE(FileExists(store_.pages + "p-A-100.html"));
}

TEST_F(Concurrency, DynamicRequestsBesideAStaticRunAllSucceed) {
  Child runner = Spawn(store_.StaticRun(), dir_.Path("runner"), gate_);
  ASSERT_TRUE(WaitForFile(gate_ + ".reached"));
  constexpr int kRequests = 12;
  const char* const skus[] = {"A-100", "B-200", "C-300"};
  std::vector<Child> requests;
  for (int i = 0; i < kRequests; ++i) {
    requests.push_back(
        Spawn(store_.ProductPage(skus[i % 3]), dir_.Path("request" + std::to_string(i))));
  }
  for (int i = 0; i < kRequests; ++i) {
    EXPECT_EQ(Wait(requests[i].pid), 0) << i;
    std::string page = ReadFile(requests[i].out);
    EXPECT_EQ(page.rfind("Content-type", 0), 0u) << i;
    EXPECT_NE(page.find(skus[i % 3]), std::string::npos) << i;
  }
  // A static run started meanwhile is still refused.
  RunResult second = RunProgram(store_.StaticRun());
  EXPECT_EQ(second.exit_code, ExitStatusOf(-50));
  OpenGate(gate_);
  EXPECT_EQ(Wait(runner.pid), 0) << ReadFile(runner.out);
}

TEST_F(Concurrency, AKilledRunsLockIsReleased) {
  Child victim = Spawn(store_.StaticRun(), dir_.Path("victim"), gate_);
  ASSERT_TRUE(WaitForFile(gate_ + ".reached"));
  EXPECT_EQ(RunProgram(store_.StaticRun()).exit_code, ExitStatusOf(-50));
  kill(victim.pid, SIGKILL);
  EXPECT_EQ(Wait(victim.pid), -1);
  // The kernel dropped the killed run's locks: the next run starts.
  RunResult next = RunProgram(store_.StaticRun());
  EXPECT_EQ(next.exit_code, 0) << next.out;
  EXPECT_TRUE(FileExists(store_.pages + "p-A-100.html"));
}

}  // namespace
}  // namespace storegen::testing
