#include "driver/fcgi/responder.h"

#include <errno.h>  // program_invocation_short_name
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "cgisupport/dyn_lib.h"
#include "driver/request.h"
#include "storedata/sku_list.h"

namespace storegen {

Responder::Responder(FrontConfig config, std::string program)
    : config_(std::move(config)), program_(std::move(program)) {
  // The links of a store without PageGenProg name the program that made the
  // page: the page generator this process answers for, not this process.
  static std::string short_name;
  const std::size_t slash = program_.find_last_of('/');
  short_name = program_.substr(slash == std::string::npos ? 0 : slash + 1);
  program_invocation_short_name = short_name.data();
}

Responder::~Responder() {
  if (page_fd_ >= 0) close(page_fd_);
}

bool Responder::Open(std::string* error) {
  // A product library is loaded once per version of its file, not once per
  // request.
  KeepDynamicLibs(true);
  page_fd_ = memfd_create("storegen-page", MFD_CLOEXEC);
  if (page_fd_ < 0) *error = std::string("cannot make the page buffer: ") + std::strerror(errno);
  return page_fd_ >= 0;
}

const std::string& Responder::Answer(const PageRequest& request, std::string* failure) {
  failure->clear();
  FrontDecision d = DecideRequest(config_, request.method, request.query);
  if (!d.answer.empty()) {
    answer_ = std::move(d.answer);
    return answer_;
  }
  if (page_fd_ < 0) {
    *failure = "no page buffer";
    answer_ = ServerErrorAnswer();
    return answer_;
  }
  d.args.insert(d.args.begin(), program_);
  // The generator sees the program's name the web server called, and
  // nothing else of the request, as under storegen-cgi.
  if (request.script_name != nullptr) {
    setenv("SCRIPT_NAME", request.script_name, 1);
  } else {
    unsetenv("SCRIPT_NAME");
  }
  const unsigned long open_failures = ProductDatabaseOpenFailures();
  const int rc = RunDynamicRequest(d.args, page_fd_, -1, true);
  unsetenv("SCRIPT_NAME");

  const off_t size = lseek(page_fd_, 0, SEEK_CUR);
  answer_.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  std::size_t done = 0;
  while (done < answer_.size()) {
    ssize_t n =
        pread(page_fd_, answer_.data() + done, answer_.size() - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  answer_.resize(done);
  if (ftruncate(page_fd_, 0) != 0 || lseek(page_fd_, 0, SEEK_SET) != 0) {
    // A buffer that cannot be emptied would mix this page into the next.
    close(page_fd_);
    std::string error;
    if (!Open(&error)) *failure = error;
  }
  std::string words;
  for (std::size_t i = 1; i < d.args.size(); ++i)
    words += " " + d.args[i];
  // Products that could not be read at all (a product library whose
  // database server is down) make neither a "no such product" nor a list
  // without products, which caches and search engines would keep: the
  // shopper is asked to come back.
  if (ProductDatabaseOpenFailures() != open_failures) {
    *failure = "storegen" + words + ": the product database cannot be opened";
    answer_ = ProductsUnavailableAnswer();
    return answer_;
  }
  if (!answer_.empty()) return answer_;

  const int status = rc & 0xff;
  *failure =
      "storegen" + words + " ended with status " + std::to_string(status) + ", and wrote nothing";
  const bool missing =
      d.kind == DynamicRequest::Kind::kProductPage && status == kNoSuchProductStatus;
  answer_ = missing ? NoSuchProductAnswer() : ServerErrorAnswer();
  return answer_;
}

}  // namespace storegen
