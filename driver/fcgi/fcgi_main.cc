#include "driver/fcgi/fcgi_main.h"

#include <fcgiapp.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cgisupport/cgi_request.h"
#include "cgisupport/misc_util.h"
#include "cgisupport/program_config.h"
#include "driver/fcgi/responder.h"

namespace storegen {
namespace {

constexpr char kName[] = "storegen-fcgi";
constexpr char kConfigName[] = "storegen-fcgi.cfg";
constexpr char kConfigEnv[] = "STOREGEN_FCGI_CONFIG";
constexpr int kMaxWorkers = 64;
constexpr int kBacklog = 1024;
// A request that takes longer ends its worker (SIGALRM); another is started.
constexpr unsigned kPageSeconds = 60;
// A worker that ends sooner after its start than this is replaced only after
// this long, so that a worker that cannot serve does not spin.
constexpr int kRespawnSeconds = 1;

constexpr char kUsage[] =
    "Usage: storegen-fcgi [-w WORKERS] [-s ADDRESS]\n"
    "  -w WORKERS  worker processes (1 to 64; default: one per processor)\n"
    "  -s ADDRESS  listen on ADDRESS (\":9000\", \"127.0.0.1:9000\" or a socket file)\n"
    "              instead of the socket passed as standard input\n";

volatile sig_atomic_t g_stop = 0;

// Wakes the supervisor from waiting (SIGALRM, SIGCHLD).
void OnWake(int) {}

void OnStop(int) {
  g_stop = 1;
}

constexpr int kStopSignals[] = {SIGTERM, SIGINT, SIGHUP};

// Stop signals set g_stop and interrupt a blocking call (no SA_RESTART).
void CatchStopSignals() {
  struct sigaction action {};
  action.sa_handler = OnStop;
  sigemptyset(&action.sa_mask);
  for (int sig : kStopSignals)
    sigaction(sig, &action, nullptr);
}

sigset_t StopSignalSet() {
  sigset_t set;
  sigemptyset(&set);
  for (int sig : kStopSignals)
    sigaddset(&set, sig);
  return set;
}

void Log(const std::string& line) {
  std::string text = std::string(kName) + ": " + line + "\n";
  if (write(STDERR_FILENO, text.data(), text.size()) < 0) errno = 0;
}

// Standard output and error open, whatever the starter left closed: the
// page generator's output is put where they are.
void OpenStandardFiles() {
  for (int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) >= 0) continue;
    int null_fd = open("/dev/null", O_RDWR);
    if (null_fd >= 0 && null_fd != fd) {
      dup2(null_fd, fd);
      close(null_fd);
    }
  }
}

// The directory of this program, absolute; "" when unknown.
std::string OwnDirectory() {
  char path[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return "";
  std::string exe(path, static_cast<std::size_t>(n));
  return exe.substr(0, exe.find_last_of('/'));
}

// A worker: accepts request after request until a stop signal.
int ServeRequests(int listen_fd, Responder* responder) {
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  signal(SIGALRM, SIG_DFL);
  signal(SIGCHLD, SIG_DFL);
  // Each worker has a page buffer of its own.
  std::string error;
  if (!responder->Open(&error)) {
    Log(error);
    return 1;
  }
  FCGX_Request request;
  if (FCGX_InitRequest(&request, listen_fd, FCGI_FAIL_ACCEPT_ON_INTR) != 0) {
    Log("cannot set up a request");
    return 1;
  }
  const sigset_t stop_set = StopSignalSet();
  while (!g_stop) {
    if (FCGX_Accept_r(&request) < 0) {
      if (g_stop || errno == EINTR) continue;
      Log(std::string("cannot accept a connection: ") + std::strerror(errno));
      sleep(1);
      continue;
    }
    // A stop signal waits until the request is answered; the page
    // generator's own handlers for them are undone afterwards.
    sigprocmask(SIG_BLOCK, &stop_set, nullptr);
    alarm(kPageSeconds);
    PageRequest page;
    page.method = FCGX_GetParam("REQUEST_METHOD", request.envp);
    page.query = FCGX_GetParam("QUERY_STRING", request.envp);
    page.script_name = FCGX_GetParam("SCRIPT_NAME", request.envp);
    std::string failure;
    const std::string& answer = responder->Answer(page, &failure);
    if (!failure.empty()) Log(failure);
    FCGX_PutStr(answer.data(), static_cast<int>(answer.size()), request.out);
    FCGX_Finish_r(&request);
    alarm(0);
    CatchStopSignals();
    sigprocmask(SIG_UNBLOCK, &stop_set, nullptr);
  }
  FCGX_Free(&request, 1);
  return 0;
}

struct Options {
  int workers = 0;
  std::string address;
};

// 0, or the exit status of a command line that is not served (2) or asked
// for help (0, with |*done|).
int ParseOptions(int argc, char** argv, Options* options, bool* done) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "--version") {
      if (arg == "--help") {
        std::fputs(kUsage, stdout);
      } else {
        std::printf("%s %s\n", kName, GetTillboxVersion());
      }
      *done = true;
      return 0;
    }
    if ((arg == "-w" || arg == "-s") && i + 1 < argc) {
      const char* value = argv[++i];
      if (arg == "-s") {
        options->address = value;
        continue;
      }
      char* end = nullptr;
      long n = std::strtol(value, &end, 10);
      if (*value != '\0' && *end == '\0' && n >= 1 && n <= kMaxWorkers) {
        options->workers = static_cast<int>(n);
        continue;
      }
    }
    std::fprintf(stderr, "%s: bad argument \"%s\"\n%s", kName, arg.c_str(), kUsage);
    return 2;
  }
  return 0;
}

struct Worker {
  pid_t pid = -1;
  time_t started = 0;
};

pid_t StartWorker(int listen_fd, Responder* responder) {
  pid_t pid = fork();
  // A worker ends through exit(), so that what runs at exit (a leak check)
  // runs for it too.
  if (pid == 0) std::exit(ServeRequests(listen_fd, responder));
  if (pid < 0) Log(std::string("cannot start a worker: ") + std::strerror(errno));
  return pid;
}

// Keeps |count| workers running until a stop signal, then stops them and
// waits for them.
int Supervise(int listen_fd, Responder* responder, int count) {
  std::vector<Worker> workers(static_cast<std::size_t>(count));
  while (!g_stop) {
    for (Worker& w : workers) {
      if (w.pid > 0) continue;
      if (time(nullptr) - w.started < kRespawnSeconds) continue;
      w.started = time(nullptr);
      w.pid = StartWorker(listen_fd, responder);
    }
    int status = 0;
    // Wakes up now and then to start workers that could not be started.
    alarm(kRespawnSeconds);
    pid_t pid = waitpid(-1, &status, 0);
    alarm(0);
    if (pid <= 0) continue;
    for (Worker& w : workers) {
      if (w.pid != pid) continue;
      w.pid = -1;
      if (g_stop) break;
      Log("worker " + std::to_string(pid) +
          (WIFSIGNALED(status) ? " ended by signal " + std::to_string(WTERMSIG(status))
                               : " ended with status " + std::to_string(WEXITSTATUS(status))) +
          "; starting another");
    }
  }
  // A worker serving a request ends when it has answered; one that took the
  // signal just before it began to wait for a connection is told again.
  for (unsigned waited = 0;; ++waited) {
    int left = 0;
    for (Worker& w : workers) {
      if (w.pid <= 0) continue;
      const pid_t r = waitpid(w.pid, nullptr, WNOHANG);
      if (r == w.pid || (r < 0 && errno == ECHILD)) {
        w.pid = -1;
        continue;
      }
      ++left;
      kill(w.pid, waited > kPageSeconds ? SIGKILL : SIGTERM);
    }
    if (left == 0) return 0;
    // Interrupted by SIGALRM or a worker's end; the loop above reaps it.
    alarm(1);
    pause();
    alarm(0);
  }
}

}  // namespace

int FcgiMain(int argc, char** argv) {
  Options options;
  bool done = false;
  if (int rc = ParseOptions(argc, argv, &options, &done); rc != 0 || done) return rc;
  OpenStandardFiles();

  FrontConfig config;
  std::string error;
  if (!LoadFrontConfig(ProgramConfig::Locate(argv[0], kConfigName, kConfigEnv), false, &config,
                       &error)) {
    Log(error);
    return 1;
  }
  std::string program = config.storegen;
  if (program.empty()) program = OwnDirectory() + "/storegen";
  Responder responder(config, program);

  int listen_fd = 0;
  struct stat socket_file {};  // the socket file -s made, when it did
  if (FCGX_Init() != 0) {
    Log("cannot initialise the FastCGI library");
    return 1;
  }
  if (!options.address.empty()) {
    listen_fd = FCGX_OpenSocket(options.address.c_str(), kBacklog);
    if (listen_fd < 0) {
      Log("cannot listen on " + options.address);
      return 1;
    }
    if (options.address[0] == '/' && stat(options.address.c_str(), &socket_file) != 0)
      socket_file.st_ino = 0;
  } else if (FCGX_IsCGI()) {
    Log("standard input is not a listening socket: start it from the web server or spawn-fcgi, "
        "or give -s ADDRESS");
    return 2;
  }
  // A request's variables never come from this process's environment.
  RemoveCgiRequestVariables();

  struct sigaction wake {};
  wake.sa_handler = OnWake;
  sigemptyset(&wake.sa_mask);
  sigaction(SIGALRM, &wake, nullptr);
  sigaction(SIGCHLD, &wake, nullptr);
  CatchStopSignals();
  long cpus = sysconf(_SC_NPROCESSORS_ONLN);
  int workers =
      options.workers > 0 ? options.workers : static_cast<int>(cpus < 1 ? 1 : std::min(cpus, 64L));
  const int rc = Supervise(listen_fd, &responder, workers);
  // The socket file goes, unless a successor started meanwhile has made its
  // own under the same name.
  struct stat now;
  if (socket_file.st_ino != 0 && stat(options.address.c_str(), &now) == 0 &&
      now.st_dev == socket_file.st_dev && now.st_ino == socket_file.st_ino) {
    unlink(options.address.c_str());
  }
  return rc;
}

}  // namespace storegen
