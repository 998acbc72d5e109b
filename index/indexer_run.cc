// The run of the SWISH indexer over the store's generated pages.
#include <fcntl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/run_state.h"
#include "index/index_files.h"
#include "index/index_lines.h"
#include "index/search_index.h"

namespace storegen {
namespace {

constexpr int kMaxArgs = 20;  // argument slots, the terminating null included

// A descriptor closed on destruction unless released.
class ScopedFd {
 public:
  ScopedFd() = default;
  ~ScopedFd() { Close(); }
  ScopedFd(const ScopedFd&) = delete;
  ScopedFd& operator=(const ScopedFd&) = delete;

  int* receive() { return &fd_; }
  int get() const { return fd_; }
  int release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

// A pipe whose two ends are closed on exec; dup2 makes the copies the child
// keeps.
struct Pipe {
  ScopedFd read_end;
  ScopedFd write_end;
  bool Open() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    *read_end.receive() = fds[0];
    *write_end.receive() = fds[1];
    return true;
  }
};

// The indexer's arguments, at most kMaxArgs - 1 of them.
class ArgList {
 public:
  void Add(std::string arg) {
    if (count_ >= kMaxArgs - 1) {
      ReportError({}, "the indexer's command line has too many arguments", "Max args exceeded\n");
      return;
    }
    args_[count_++] = std::move(arg);
  }
  // Adds |option| and |value| when the value is not empty.
  void AddPair(const char* option, const char* value) {
    if (value[0] == '\0') return;
    Add(option);
    Add(value);
  }
  // The null-terminated argv view; valid while the list lives.
  std::array<char*, kMaxArgs> Argv() {
    std::array<char*, kMaxArgs> argv{};
    for (int i = 0; i < count_; ++i)
      argv[i] = args_[i].data();
    return argv;
  }

 private:
  std::array<std::string, kMaxArgs> args_;
  int count_ = 0;
};

// Reads the child's output until end of file and discards it.
void DrainOutput(int fd) {
  FilePtr out(fdopen(fd, "r"));
  if (!out) {
    close(fd);
    return;
  }
  IndexField line;
  while (std::fgets(line, sizeof line, out.get()) != nullptr) {
  }
}

}  // namespace

int ExecSwish(const char* store_config) {
  const char* config = store_config != nullptr ? store_config : "";
  IndexField dynamic_pages;
  CopyTruncated(dynamic_pages, "no");
  GetConfigItem(config, "PageGenDynamicProductPages", dynamic_pages, kIndexFieldSize, 0);

  const IndexState& st = GetIndexState();
  std::string program = std::string(lpSwishDir) + "swish";
  if (st.szExeExtension[0] != '\0') {
    program += '.';
    program += st.szExeExtension;
  }
  IndexField swish_cfg;
  GetSwishCFGName(swish_cfg, st.szCFG);

  ArgList args;
  args.Add(program);
  args.Add("-c");
  args.Add(swish_cfg);
  if (std::tolower(static_cast<unsigned char>(dynamic_pages[0])) == 'y') {
    IndexField database = "", library = "", library_config = "";
    GetConfigItem(config, "ProductDatabase", database, kIndexFieldSize, 0);
    GetConfigItem(config, "ProductAPILibrary", library, kIndexFieldSize, 0);
    GetConfigItem(config, "ProductAPILibConfig", library_config, kIndexFieldSize, 0);
    args.AddPair("-s", config);
    args.AddPair("-d", database);
    args.AddPair("-L", library);
    args.AddPair("-a", library_config);
  }
  std::array<char*, kMaxArgs> argv = args.Argv();

  Pipe input;
  Pipe output;
  if (!input.Open() || !output.Open()) return 0;
  std::fflush(nullptr);  // nothing buffered may be written twice
  pid_t pid = fork();
  if (pid < 0) {
    ReportError({}, std::string("cannot start the indexer: ") + std::strerror(errno), "%s",
                GetMessageStr(kMsgForkFailed));
    return 0;
  }
  if (pid == 0) {
    // The child: input from the first pipe, output to the second.
    if (dup2(input.read_end.get(), STDIN_FILENO) < 0 ||
        dup2(output.write_end.get(), STDOUT_FILENO) < 0) {
      _exit(0);
    }
    execv(argv[0], argv.data());
    ReportError({AbsolutePathForMessage(argv[0])},
                std::string("cannot run the indexer: ") + std::strerror(errno) +
                    "; the store's search index is not brought up to date",
                "%s", GetMessageStr(kMsgExecFailed));
    std::fflush(stdout);
    _exit(0);
  }

  // The indexer gets no input: its end of file comes at once.
  input.read_end.Close();
  input.write_end.Close();
  output.write_end.Close();
  DrainOutput(output.read_end.release());
  int status;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return 1;
}

int UpdateMasterList(const char* /*store*/) {
  // The master list of stores is kept by hand; nothing is written.
  return 1;
}

}  // namespace storegen
