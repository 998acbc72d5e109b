#include "driver/front/front_main.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
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
#include "driver/front/dynamic_request.h"

namespace storegen {
namespace {

constexpr char kConfigName[] = "storegen-cgi.cfg";
constexpr char kConfigEnv[] = "STOREGEN_CGI_CONFIG";
// How long the page generator may take over one page before it is ended.
constexpr auto kPageTime = std::chrono::seconds(60);
// The exit status of a product request for a product that does not exist.
constexpr int kNoSuchProductStatus = 254;

struct FrontConfig {
  std::string storegen;
  std::string store_dir;
  std::vector<std::string> stores;
};

bool LoadConfig(const std::string& path, FrontConfig* config, std::string* error) {
  ProgramConfig file(path);
  if (!file.Readable()) {
    *error = "cannot read " + path;
    return false;
  }
  config->storegen = file.PathValue("StoregenProgram");
  config->store_dir = file.PathValue("StoreConfigDir");
  const std::string list = file.Value("Stores");
  for (std::size_t start = 0; start < list.size();) {
    std::size_t end = list.find_first_of(" \t,;", start);
    if (end == std::string::npos) end = list.size();
    std::string name = list.substr(start, end - start);
    start = end + 1;
    if (name.empty()) continue;
    if (!IsPlainName(name) || name[0] == '-') {
      *error = "Stores in " + path + " names \"" + name + "\", which is not a plain file name";
      return false;
    }
    config->stores.push_back(name);
  }
  const char* missing = config->storegen.empty()    ? "StoregenProgram"
                        : config->store_dir.empty() ? "StoreConfigDir"
                        : config->stores.empty()    ? "Stores"
                                                    : nullptr;
  if (missing != nullptr) {
    *error = std::string(missing) + " is not set in " + path;
    return false;
  }
  return true;
}

// An answer of the front's own. Nothing of the request is repeated in it.
void Answer(const char* status, const char* text, const char* extra_header = "") {
  std::printf(
      "Status: %s\n%sContent-type: text/html\n\n<HTML><HEAD><TITLE>%s</TITLE></HEAD>\n<BODY>\n"
      "<H1>%s</H1>\n<P>%s</P>\n</BODY></HTML>\n",
      status, extra_header, status, status, text);
}

void ServerError() {
  Answer("500 Internal Server Error", "The page cannot be made at the moment.");
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
    ServerError();
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
  if (kind == DynamicRequest::Kind::kProductPage && code == kNoSuchProductStatus && !late) {
    Answer("404 Not Found", "The store has no such product.");
  } else {
    ServerError();
  }
}

bool IsRegularFile(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

int FrontMain(int argc, char** argv) {
  FrontConfig config;
  std::string error;
  if (!LoadConfig(ProgramConfig::Locate(argc > 0 ? argv[0] : nullptr, kConfigName, kConfigEnv),
                  &config, &error)) {
    std::fprintf(stderr, "storegen-cgi: %s\n", error.c_str());
    ServerError();
    return 0;
  }
  const char* method = std::getenv("REQUEST_METHOD");
  if (method == nullptr || (std::strcmp(method, "GET") != 0 && std::strcmp(method, "HEAD") != 0)) {
    Answer("405 Method Not Allowed", "Pages are only fetched here.", "Allow: GET, HEAD\n");
    return 0;
  }
  const char* query = std::getenv("QUERY_STRING");
  std::optional<DynamicRequest> request = ParseDynamicRequest(query != nullptr ? query : "");
  if (!request) {
    Answer("400 Bad Request", "This address does not name a page of the store.");
    return 0;
  }
  std::string store_cfg;
  for (const std::string& name : config.stores) {
    if (name == request->store) store_cfg = config.store_dir + "/" + name;
  }
  if (store_cfg.empty() || !IsRegularFile(store_cfg)) {
    Answer("404 Not Found", "There is no such store here.");
    return 0;
  }
  std::vector<std::string> args = {config.storegen};
  for (std::string& a : DynamicRequestArguments(*request, store_cfg))
    args.push_back(std::move(a));
  // The generator sees the program's name the web server called, as when it
  // is called directly, and nothing else of the request.
  RemoveCgiRequestVariables({"SCRIPT_NAME"});
  RunGenerator(args, request->kind);
  return 0;
}

}  // namespace storegen
