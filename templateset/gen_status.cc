// Generation runs started from the web: launching one, telling whether one
// is under way, and reporting a finished run's outcome.
#include <fcntl.h>
#include <strings.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"
#include "cgisupport/result_codes.h"
#include "templateset/admin_messages.h"
#include "templateset/management.h"

namespace storegen {
namespace {

constexpr int kMaxWords = 100;
constexpr auto kStartWait = std::chrono::seconds(30);
constexpr int kDomainSize = 65536;

// Points descriptor |fd| at /dev/null.
void ReopenOnDevNull(int fd, int flags) {
  int null_fd = open("/dev/null", flags);
  if (null_fd < 0) return;
  if (null_fd != fd) {
    dup2(null_fd, fd);
    close(null_fd);
  }
}

bool ContainsNoCase(std::string_view text, std::string_view word) {
  for (std::size_t i = 0; i + word.size() <= text.size(); ++i) {
    if (strncasecmp(text.data() + i, word.data(), word.size()) == 0) return true;
  }
  return false;
}

// The address of the store's pages: NonSecureDomain, "/" and the HTML path
// without its leading separator, or the HTML path alone; always ending in a
// separator.
std::string StoreAddress(const char* html_path, const char* store_cfg) {
  std::string_view path = html_path != nullptr ? html_path : "";
  std::string address;
  auto domain = std::make_unique<char[]>(kDomainSize);
  domain[0] = '\0';
  if (store_cfg != nullptr &&
      GetConfigItem(store_cfg, "NonSecureDomain", domain.get(), kDomainSize, 0) == 1) {
    address = domain.get();
    if (!EndsWithDirSlash(address)) address += '/';
    if (!path.empty() && IsDirSlash(path.front())) path.remove_prefix(1);
    address += path;
  } else {
    address = path;
  }
  if (!EndsWithDirSlash(address)) address += '/';
  return address;
}

// Writes the rows of the -18 (unresolved tags) and -19 (missing pictures)
// lines of a run's error list.
class ProblemTable {
 public:
  void Line(std::string_view text, int code) {
    bool tag = text.substr(0, 2) == "%%";
    if (code != kUnresolvedCategoryTag) CloseTagRow();
    if (code == kUnresolvedCategoryTag) {
      if (tag) {
        std::fputs(row_open_ ? "<BR>" : "<TR><TD>", stdout);
        row_open_ = true;
        Write(text);
      } else {
        if (!row_open_) std::fputs("<TR><TD>", stdout);
        std::printf("<BR><B>%s:</B> %.*s</TD><TD>%s</TD></TR>\n", GetAdminMessage(kMsgTagRowLabel),
                    static_cast<int>(text.size()), text.data(),
                    GetAdminMessage(kMsgTagRowExplanation));
        row_open_ = false;
      }
    } else if (code == kDefaultPictureUsed) {
      if (tag) {
        if (ContainsNoCase(text, "GRAPHIC")) {
          picture_ = kMsgGraphicRowExplanation;
        } else if (ContainsNoCase(text, "THUMBNAIL")) {
          picture_ = kMsgThumbnailRowExplanation;
        }
      } else {
        std::printf("<TR><TD><B>%s:</B> %.*s</TD><TD>%s</TD></TR>\n",
                    GetAdminMessage(kMsgPictureRowLabel), static_cast<int>(text.size()),
                    text.data(), GetAdminMessage(picture_));
        picture_ = kMsgPictureRowExplanation;
      }
    }
  }

  // Tags of an unresolved-tag row whose page never came are closed with the
  // row's explanation, so that the table stays whole.
  void CloseTagRow() {
    if (!row_open_) return;
    std::printf("</TD><TD>%s</TD></TR>\n", GetAdminMessage(kMsgTagRowExplanation));
    row_open_ = false;
  }

 private:
  static void Write(std::string_view s) { std::fwrite(s.data(), 1, s.size(), stdout); }

  bool row_open_ = false;
  int picture_ = kMsgPictureRowExplanation;
};

}  // namespace

void PG_LaunchAndForget(const char* command_line) {
  std::vector<std::string> words;
  std::string_view rest = command_line != nullptr ? command_line : "";
  while (static_cast<int>(words.size()) < kMaxWords) {
    std::size_t start = rest.find_first_not_of(" \t");
    if (start == std::string_view::npos) break;
    std::size_t end = rest.find_first_of(" \t", start);
    if (end == std::string_view::npos) end = rest.size();
    words.emplace_back(rest.substr(start, end - start));
    rest.remove_prefix(end);
  }
  PG_LaunchAndForgetArgv(words);
}

void PG_LaunchAndForgetArgv(const std::vector<std::string>& argv,
                            const std::function<bool()>& started, const char* error_file) {
  std::vector<char*> args;
  for (const std::string& a : argv)
    args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  // The web server takes the response as complete once these are closed,
  // and may then signal this process to end: that must not stop the launch.
  std::signal(SIGTERM, SIG_IGN);
  std::signal(SIGHUP, SIG_IGN);
  std::signal(SIGPIPE, SIG_IGN);
  std::fflush(stdout);
  std::fflush(stderr);
  close(STDIN_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  ReopenOnDevNull(STDIN_FILENO, O_RDONLY);
  ReopenOnDevNull(STDOUT_FILENO, O_WRONLY);
  ReopenOnDevNull(STDERR_FILENO, O_WRONLY);
  pid_t child = fork();
  if (child == 0) {
    setsid();
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGHUP, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);
    if (error_file != nullptr) {
      int fd = open(error_file, O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (fd >= 0 && fd != STDERR_FILENO) {
        dup2(fd, STDERR_FILENO);
        close(fd);
      }
    }
    if (args[0] != nullptr) execv(args[0], args.data());
    _exit(0);
  }
  if (child > 0 && started) {
    const auto deadline = std::chrono::steady_clock::now() + kStartWait;
    while (!started() && waitpid(child, nullptr, WNOHANG) == 0 &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  _exit(0);
}

int PG_ExecutionStatus() {
  return PG_RunLocked() || IsLockedElsewhere(kRunLaunchLockFile) ? 1 : 2;
}

bool PG_RunLocked(const std::string& dir) {
  const std::string prefix = dir.empty() ? "" : dir + "/";
  return IsLockedElsewhere((prefix + kRunLockFile).c_str()) ||
         IsLockedElsewhere((prefix + kRunLockCompanionFile).c_str());
}

void PG_PrintGenError(int rc, int detail, const char* problems, const char* html_path,
                      const char* store_cfg) {
  std::fputs("<CENTER>\n", stdout);
  if (rc == kOk) {
    std::printf("<B>%s</B>\n", GetAdminMessage(kMsgGenSucceeded));
    std::printf("<P><A HREF=\"%s\">%s</A>\n", StoreAddress(html_path, store_cfg).c_str(),
                GetAdminMessage(kMsgStoreLinkText));
  } else {
    if (detail != 0) std::printf("<B>%s </B>", GetAdminMessage(kMsgGenFailedHeading));
    std::printf("%s: ", GetAdminMessage(kMsgGenFailed));
    const char* explanation = GetResultExplanation(rc);
    if (explanation != nullptr) {
      std::fputs(explanation, stdout);
    } else {
      std::printf("%d", rc);
    }
  }

  std::fputs("<P><TABLE BORDER=1>\n", stdout);
  ProblemTable table;
  std::string_view text = problems != nullptr ? problems : "";
  while (!text.empty()) {
    std::size_t start = text.find_first_not_of("\r\n");
    if (start == std::string_view::npos) break;
    std::size_t end = text.find_first_of("\r\n", start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    text.remove_prefix(end);
    std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos) continue;
    std::string code(line.substr(tab + 1));
    table.Line(line.substr(0, tab), std::atoi(code.c_str()));
  }
  table.CloseTagRow();
  std::fputs("</TABLE>\n", stdout);
  std::fputs("</CENTER>\n", stdout);
}

}  // namespace storegen
