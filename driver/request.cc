#include "driver/request.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "cgisupport/cgi_pages.h"
#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/dyn_lib.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "cgisupport/str_util.h"
#include "driver/generation_run.h"
#include "driver/startup.h"
#include "index/index_state.h"
#include "pagegen/form_controls.h"
#include "pagegen/html_page.h"
#include "pagegen/list_blocks.h"
#include "pagegen/page_context.h"
#include "pagegen/template_parser.h"
#include "storedata/list_positions.h"
#include "storedata/product_api.h"
#include "storedata/product_db.h"

namespace storegen {

namespace {

// Points |fd| at |to| for the life of the object, and back when it ends.
class Redirect {
 public:
  Redirect(int fd, int to) : fd_(fd) {
    if (to < 0) return;
    saved_ = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (saved_ >= 0 && dup2(to, fd) < 0) {
      close(saved_);
      saved_ = -1;
    }
    ok_ = saved_ >= 0;
  }
  ~Redirect() {
    if (saved_ < 0) return;
    dup2(saved_, fd_);
    close(saved_);
  }
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;
  bool ok() const { return ok_; }

 private:
  int fd_;
  int saved_ = -1;
  bool ok_ = true;
};

// Goes back to the directory current when it was made.
class KeepDirectory {
 public:
  KeepDirectory() : dir_(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
  ~KeepDirectory() {
    if (dir_ < 0) return;
    // A directory removed meanwhile cannot be entered: the program
    // directory then stays current.
    if (fchdir(dir_) != 0) errno = 0;
    close(dir_);
  }
  KeepDirectory(const KeepDirectory&) = delete;
  KeepDirectory& operator=(const KeepDirectory&) = delete;

 private:
  int dir_;
};

int RunRedirected(std::vector<char*>& argv, int out_fd, int err_fd) {
  std::fflush(stdout);
  const KeepDirectory directory;
  const Redirect out(STDOUT_FILENO, out_fd);
  const Redirect err(STDERR_FILENO, err_fd);
  if (!out.ok() || !err.ok()) return kOutOfMemory;
  const int rc = RunPageGen(static_cast<int>(argv.size()) - 1, argv.data(), true);
  ShutdownPageGen();  // the paths that did not end through it
  std::fflush(stdout);
  std::fflush(stderr);
  return rc;
}

}  // namespace

int RunDynamicRequest(const std::vector<std::string>& args, int out_fd, int err_fd,
                      bool keep_file_caches) {
  // The parser may write into its words: they are copies.
  std::vector<std::string> words(args);
  std::vector<char*> argv;
  for (std::string& word : words)
    argv.push_back(word.data());
  argv.push_back(nullptr);
  SetListPositionsKept(keep_file_caches);
  const int rc = RunRedirected(argv, out_fd, err_fd);
  std::clearerr(stdout);
  if (keep_file_caches) {
    ResetRequestState();
  } else {
    ResetProcessState();
  }
  return rc;
}

void ResetRequestState() {
  ReleaseRunObjects();
  ReleaseKeptProducts();
  ResetRunState();
  ResetShutdown();
  ResetProdAPI();
  ResetConfigListCursor();
  ForgetKeptControls();
  ResetIndexState();
  ResetTokenPosition();
  ResetDiagnostics();
  g_template_nesting = 0;
  CatList = ProdList = 0;
  g_page_dependent = 0;
  fpCGI = nullptr;
}

void ResetProcessState() {
  ResetRequestState();
  ForgetProductFiles();
  ResetConfigCache();
  ForgetKeptTemplates();
  ReleaseKeptDynamicLibs();
  ForgetListPositions();
}

}  // namespace storegen
