// Runs of one installation side by side. A static run is held before it
// ends, its lock taken and its pages written, by a stand-in indexer that waits
// until the test opens a FIFO, so that every overlap below is certain rather
// than likely: no test depends on timing. The waits are bounded only so that
// a broken build fails instead of hanging.
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

#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

constexpr char kLockMessage[] = "Page generator already running\n";

// Starts storegen with its output going to |out_file|; |gate| (if any) holds
// a static run at its indexer. Returns the child's pid.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& out_file,
            const std::string& gate = "") {
  pid_t pid = fork();
  if (pid == 0) {
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
  return pid;
}

// Waits (at most a minute) for |pid|, or for any child when |pid| is -1.
// Returns the exit status, -1 when killed or not ended; |*who| gets the pid.
int Wait(pid_t pid, pid_t* who = nullptr) {
  for (int i = 0; i < 6000; ++i) {
    int status = 0;
    pid_t done = waitpid(pid, &status, WNOHANG);
    if (done > 0) {
      if (who != nullptr) *who = done;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (pid > 0) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
  return -1;
}

class Concurrency : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = InstallSampleStore(dir_.path());
    gate_ = dir_.Path("gate");
    ASSERT_EQ(mkfifo(gate_.c_str(), 0600), 0);
    // The indexer of a run given a gate says it got there, then waits.
    WriteFile(dir_.Path("swish/swish"),
              "#!/bin/sh\n[ -z \"$STOREGEN_TEST_GATE\" ] && exit 0\n"
              ": > \"$STOREGEN_TEST_GATE.reached\"\nexec cat \"$STOREGEN_TEST_GATE\"\n");
    ASSERT_EQ(chmod(dir_.Path("swish/swish").c_str(), 0755), 0);
  }
  // Lets the run held at the gate go on.
  void OpenGate() {
    int fd = open(gate_.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    close(fd);
  }

  ScopedTempDir dir_;
  SampleStore store_;
  std::string gate_;
};

TEST_F(Concurrency, OfManyStaticRunsStartedAtOnceExactlyOneRuns) {
  constexpr int kRuns = 8;
  std::vector<pid_t> runs;
  for (int i = 0; i < kRuns; ++i)
    runs.push_back(Spawn(store_.StaticRun(), dir_.Path(std::to_string(i)), gate_));
  // The one that took the lock waits at the gate; every other one must end
  // with -50 without waiting for it.
  ASSERT_TRUE(WaitForFile(gate_ + ".reached"));
  for (int ended = 0; ended < kRuns - 1; ++ended) {
    pid_t pid = -1;
    EXPECT_EQ(Wait(-1, &pid), ExitStatusOf(-50));
    ASSERT_GT(pid, 0) << "a refused run is still waiting";
    for (int i = 0; i < kRuns; ++i) {
      if (runs[i] != pid) continue;
      EXPECT_EQ(ReadFile(dir_.Path(std::to_string(i))), kLockMessage);
      runs[i] = -1;
    }
  }
  for (int i = 0; i < kRuns; ++i) {
    if (runs[i] == -1) continue;
    OpenGate();
    EXPECT_EQ(Wait(runs[i]), 0) << ReadFile(dir_.Path(std::to_string(i)));
  }
  EXPECT_TRUE(FileExists(store_.pages + "p-LL-101.html"));
}

// Dynamic requests run beside a held static run, which keeps further static
// runs out until it is killed: the kernel then drops its locks.
TEST_F(Concurrency, DynamicRequestsBesideAStaticRunAndAKilledRunsLock) {
  pid_t runner = Spawn(store_.StaticRun(), dir_.Path("runner"), gate_);
  ASSERT_TRUE(WaitForFile(gate_ + ".reached"));
  const char* const skus[] = {"LL-101", "TX-202", "GD-506"};
  std::vector<pid_t> requests;
  for (int i = 0; i < 12; ++i) {
    std::vector<std::string> argv = store_.ProductPage(skus[i % 3]);
    if (i == 11) argv = {store_.bin, "-c", store_.cfg, "-C", "Garden", "-f", "0"};
    requests.push_back(Spawn(argv, dir_.Path("request" + std::to_string(i))));
  }
  for (int i = 0; i < 12; ++i) {
    EXPECT_EQ(Wait(requests[i]), 0) << i;
    std::string page = ReadFile(dir_.Path("request" + std::to_string(i)));
    EXPECT_EQ(page.rfind("Content-type", 0), 0u) << i;
    EXPECT_NE(page.find(i == 11 ? "<h1>Products</h1>" : skus[i % 3]), std::string::npos) << i;
  }
  EXPECT_EQ(RunProgram(store_.StaticRun()).exit_code, ExitStatusOf(-50));
  kill(runner, SIGKILL);
  EXPECT_EQ(Wait(runner), -1);
  OpenGate();  // the killed run's indexer
  RunResult next = RunProgram(store_.StaticRun());
  EXPECT_EQ(next.exit_code, 0) << next.out;
}

}  // namespace
}  // namespace storegen::testing
