#include "driver/page_processes.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "driver/runstate/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/page_generators.h"
#include "pagegen/progress.h"
#include "storedata/product_api.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

// Fewer pages than this are not worth a second process.
constexpr std::size_t kMinPagesForTwo = 1000;

struct FileCloser {
  void operator()(FILE* fp) const { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// What the child's pages did to the run's records, written by the child
// and read back by the parent: numbers and length-prefixed texts.
class Report {
 public:
  void Number(int64_t n) { data_.append(reinterpret_cast<const char*>(&n), sizeof n); }
  void Text(std::string_view s) {
    Number(static_cast<int64_t>(s.size()));
    data_.append(s);
  }
  const std::string& data() const { return data_; }

 private:
  std::string data_;
};

class ReportReader {
 public:
  explicit ReportReader(std::string data) : data_(std::move(data)) {}
  bool Number(int64_t* n) {
    if (data_.size() - pos_ < sizeof *n) return false;
    std::memcpy(n, data_.data() + pos_, sizeof *n);
    pos_ += sizeof *n;
    return true;
  }
  bool Text(std::string* s) {
    int64_t n = 0;
    if (!Number(&n) || n < 0 || static_cast<uint64_t>(n) > data_.size() - pos_) return false;
    s->assign(data_, pos_, static_cast<std::size_t>(n));
    pos_ += static_cast<std::size_t>(n);
    return true;
  }
  bool AtEnd() const { return pos_ == data_.size(); }

 private:
  std::string data_;
  std::size_t pos_ = 0;
};

std::size_t Count(const FileList* list) {
  std::size_t n = 0;
  for (; list != nullptr; list = list->next)
    ++n;
  return n;
}

// The state of the run's records when the child is started.
struct Mark {
  std::size_t errors = Count(PageGenState.errlist);
  std::size_t deletions = Count(PageGenState.dellist);
  std::size_t secure_files =
      PageGenState.pTpltSet != nullptr ? PageGenState.pTpltSet->secure_files.size() : 0;
  int64_t written = ProgressPagesWritten();
};

void ReportEntries(const FileList* list, std::size_t skip, Report* report) {
  for (; list != nullptr && skip > 0; list = list->next)
    --skip;
  report->Number(static_cast<int64_t>(Count(list)));
  for (; list != nullptr; list = list->next) {
    report->Number(list->text != nullptr);
    report->Text(list->text != nullptr ? list->text : "");
    report->Number(list->code);
  }
}

bool ReadEntries(ReportReader* in, FileList** list) {
  int64_t n = 0;
  if (!in->Number(&n)) return false;
  for (int64_t i = 0; i < n; ++i) {
    int64_t has_text = 0, code = 0;
    std::string text;
    if (!in->Number(&has_text) || !in->Text(&text) || !in->Number(&code)) return false;
    FileListAdd(list, has_text ? text.c_str() : nullptr, static_cast<int32_t>(code));
  }
  return true;
}

bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = write(fd, data.data(), data.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// The whole content of the temporary file |fp|, from its start.
bool ReadAll(FILE* fp, std::string* data) {
  if (std::fseek(fp, 0, SEEK_SET) != 0) return false;
  char buf[65536];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, fp)) > 0)
    data->append(buf, n);
  return std::ferror(fp) == 0;
}

using Pages = std::vector<const SkuList*>;
using Writer = std::function<int(const SkuList*)>;

int WriteRange(const Pages& nodes, std::size_t begin, std::size_t end, const Writer& write) {
  int result = 0;
  for (std::size_t i = begin; i < end; ++i) {
    if (int rc = write(nodes[i]); rc != 0) result = rc;
  }
  return result;
}

// The child: writes its pages with its standard output going to |out_fd|,
// and its report to |report_fd|; never returns.
[[noreturn]] void RunChild(const Pages& nodes, std::size_t begin, const Writer& write,
                           const Mark& mark, pid_t parent, int out_fd, int report_fd) {
  // The pages are of no use once the run is gone.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  DetachCategoryConnection();
  ProgressSilence();
  if (dup2(out_fd, STDOUT_FILENO) < 0) _exit(1);
  const int result = WriteRange(nodes, begin, nodes.size(), write);
  if (std::fflush(stdout) != 0) _exit(1);

  Report report;
  report.Number(result);
  ReportEntries(PageGenState.errlist, mark.errors, &report);
  ReportEntries(PageGenState.dellist, mark.deletions, &report);
  const TemplateList empty;
  const TemplateList& secure =
      PageGenState.pTpltSet != nullptr ? PageGenState.pTpltSet->secure_files : empty;
  report.Number(static_cast<int64_t>(secure.size() - mark.secure_files));
  for (std::size_t i = mark.secure_files; i < secure.size(); ++i) {
    report.Text(secure[i].display_name);
    report.Text(secure[i].template_file);
    report.Text(secure[i].output_file);
    report.Number(secure[i].flag);
  }
  report.Number(ProgressPagesWritten() - mark.written);
  _exit(WriteAll(report_fd, report.data()) ? 0 : 1);
}

// The entry value that reads as |node|: its names, and its flag behind the
// third, joined by ";" (a value never reads as an empty name followed by
// another).
std::string EntryValue(const TemplateNode& node) {
  std::string value;
  for (const std::string* field : {&node.display_name, &node.template_file, &node.output_file}) {
    if (field->empty()) break;
    if (!value.empty()) value += ';';
    value += *field;
  }
  if (node.flag != 0) value += std::string(";") + node.flag;
  return value;
}

// Takes the child's report over; false (nothing taken over) when it is
// incomplete.
bool TakeOver(const std::string& data, int* result) {
  ReportReader in(data);
  int64_t child_result = 0;
  if (!in.Number(&child_result)) return false;
  // Everything is checked before anything is taken over.
  FileList* errors = nullptr;
  FileList* deletions = nullptr;
  TemplateList secure;
  int64_t secure_count = 0, written = 0;
  bool ok = ReadEntries(&in, &errors) && ReadEntries(&in, &deletions) && in.Number(&secure_count) &&
            secure_count >= 0;
  for (int64_t i = 0; ok && i < secure_count; ++i) {
    TemplateNode& node = secure.emplace_back();
    int64_t flag = 0;
    ok = in.Text(&node.display_name) && in.Text(&node.template_file) &&
         in.Text(&node.output_file) && in.Number(&flag);
    node.flag = static_cast<char>(flag);
  }
  ok = ok && in.Number(&written) && in.AtEnd();
  if (ok) {
    for (const FileList* e = errors; e != nullptr; e = e->next)
      FileListAdd(&PageGenState.errlist, e->text, e->code);
    for (const FileList* e = deletions; e != nullptr; e = e->next)
      FileListAdd(&PageGenState.dellist, e->text, e->code);
    // Added as the child's pages added them: a name listed already is not
    // listed again.
    for (const TemplateNode& node : secure)
      PG_TpltAddSecureFile(PageGenState.pTpltSet, EntryValue(node).c_str());
    ProgressAddWritten(written);
    if (child_result != 0) *result = static_cast<int>(child_result);
  }
  FreeFileList(errors);
  FreeFileList(deletions);
  return ok;
}

int WriteInTwo(const Pages& nodes, const Writer& write) {
  const std::size_t half = nodes.size() / 2;
  std::fflush(stdout);
  std::fflush(stderr);
  FilePtr out(std::tmpfile());
  FilePtr report(std::tmpfile());
  const Mark mark;
  const pid_t parent = getpid();
  const pid_t pid = out != nullptr && report != nullptr ? fork() : -1;
  if (pid == 0) RunChild(nodes, half, write, mark, parent, fileno(out.get()), fileno(report.get()));

  int result = WriteRange(nodes, 0, half, write);
  int status = 0;
  bool taken = false;
  if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    std::string output, data;
    if (ReadAll(out.get(), &output) && ReadAll(report.get(), &data) && TakeOver(data, &result)) {
      taken = true;
      std::fflush(stdout);
      WriteAll(STDOUT_FILENO, output);
    }
  }
  // Without a complete report from the child, its pages are written here.
  if (!taken) {
    if (int rc = WriteRange(nodes, half, nodes.size(), write); rc != 0) result = rc;
  }
  return result;
}

}  // namespace

int PageProcesses(std::size_t pages) {
  if (const char* forced = std::getenv("STOREGEN_PAGE_PROCESSES")) {
    if (std::strcmp(forced, "1") == 0) return 1;
    if (std::strcmp(forced, "2") == 0) return 2;
  }
  const bool static_run =
      (PageGenState.dynamic & kDynSinglePage) == 0 &&
      (GenerationOptionsForRun() & (kGenDynamicProducts | kGenDynamicLists)) == 0;
  // A product library may hold connections that must not cross a fork.
  return pages >= kMinPagesForTwo && static_run && !Verbose() && hProdApiLib == nullptr &&
                 sysconf(_SC_NPROCESSORS_ONLN) > 1
             ? 2
             : 1;
}

int WriteProductPages(const std::vector<const SkuList*>& nodes, int processes,
                      const std::function<int(const SkuList*)>& write) {
  if (processes == 2 && nodes.size() >= 2) return WriteInTwo(nodes, write);
  return WriteRange(nodes, 0, nodes.size(), write);
}

}  // namespace storegen
