#include "driver/front/front_main.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/cgi_request.h"
#include "cgisupport/file_util.h"
#include "cgisupport/program_config.h"
#include "driver/front/front_config.h"

namespace storegen {
namespace {

constexpr char kConfigName[] = "storegen-cgi.cfg";
constexpr char kConfigEnv[] = "STOREGEN_CGI_CONFIG";
// How long the page generator may take over one page before it is ended.
constexpr auto kPageTime = std::chrono::seconds(60);

void Print(const std::string& answer) {
  std::fwrite(answer.data(), 1, answer.size(), stdout);
}

// Copies what the generator writes on |from| to standard output until it
// ends, or until |deadline|. Returns whether anything was copied; |*late|
// tells whether the deadline passed.
bool PassPageOn(int from, std::chrono::steady_clock::time_point deadline, bool* late) {
  bool wrote = false;
  char buf[1 << 16];
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      *late = true;
      return wrote;
    }
    pollfd p = {from, POLLIN, 0};
    int ready = poll(&p, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno != EINTR) return wrote;
    if (ready <= 0) continue;
    ssize_t n = read(from, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || !WriteFully(STDOUT_FILENO, std::string_view(buf, static_cast<std::size_t>(n)))) {
      return wrote;
    }
    wrote = true;
  }
}

// Runs the page generator with |argv| and passes its page on; answers
// itself when the generator wrote nothing.
void RunGenerator(const std::vector<std::string>& argv, DynamicRequest::Kind kind) {
  std::vector<char*> args;
  for (const std::string& a : argv)
    args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) {
    Print(ServerErrorAnswer());
    return;
  }
  std::fflush(stdout);
  const auto deadline = std::chrono::steady_clock::now() + kPageTime;
  pid_t child = fork();
  if (child == 0) {
    int null_fd = open("/dev/null", O_RDONLY);
    if (null_fd < 0 || dup2(null_fd, STDIN_FILENO) < 0 || dup2(out[1], STDOUT_FILENO) < 0) {
      _exit(127);
    }
    execv(args[0], args.data());
    _exit(127);
  }
  close(out[1]);
  bool late = false;
  const bool wrote = child > 0 && PassPageOn(out[0], deadline, &late);
  close(out[0]);
  int status = 0;
  if (child > 0) {
    if (late) kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  if (wrote) return;
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::fprintf(stderr, "storegen-cgi: %s %s, and wrote nothing\n", argv[0].c_str(),
               child < 0 ? "could not be started"
               : late    ? "took too long and was ended"
                         : ("ended with status " + std::to_string(code)).c_str());
  const bool missing =
      kind == DynamicRequest::Kind::kProductPage && code == kNoSuchProductStatus && !late;
  Print(missing ? NoSuchProductAnswer() : ServerErrorAnswer());
}

}  // namespace

int FrontMain(int argc, char** argv) {
  FrontConfig config;
  std::string error;
  if (!LoadFrontConfig(ProgramConfig::Locate(argc > 0 ? argv[0] : nullptr, kConfigName, kConfigEnv),
                       true, &config, &error)) {
    std::fprintf(stderr, "storegen-cgi: %s\n", error.c_str());
    Print(ServerErrorAnswer());
    return 0;
  }
  FrontDecision d =
      DecideRequest(config, std::getenv("REQUEST_METHOD"), std::getenv("QUERY_STRING"));
  if (!d.answer.empty()) {
    Print(d.answer);
    return 0;
  }
  std::vector<std::string> args = {config.storegen};
  for (std::string& a : d.args)
    args.push_back(std::move(a));
  // The generator sees the program's name the web server called, as when it
  // is called directly, and nothing else of the request.
  RemoveCgiRequestVariables({"SCRIPT_NAME"});
  RunGenerator(args, d.kind);
  return 0;
}

}  // namespace storegen
