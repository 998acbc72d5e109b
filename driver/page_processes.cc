#include "driver/page_processes.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "cgisupport/diagnostics.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"
#include "cgisupport/run_state.h"
#include "cgisupport/temp_files.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/page_generators.h"
#include "pagegen/progress.h"
#include "storedata/product_api.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

// Fewer pages than this are not worth a second process.
constexpr std::size_t kMinPagesForTwo = 1000;

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
  explicit ReportReader(std::string_view data) : data_(data) {}
  bool Number(int64_t* n) {
    if (data_.size() - pos_ < sizeof *n) return false;
    std::memcpy(n, data_.data() + pos_, sizeof *n);
    pos_ += sizeof *n;
    return true;
  }
  bool Text(std::string* s) {
    int64_t n = 0;
    if (!Number(&n) || n < 0 || static_cast<uint64_t>(n) > data_.size() - pos_) return false;
    s->assign(data_.substr(pos_, static_cast<std::size_t>(n)));
    pos_ += static_cast<std::size_t>(n);
    return true;
  }
  bool AtEnd() const { return pos_ == data_.size(); }

 private:
  std::string_view data_;
  std::size_t pos_ = 0;
};

// Which pages each process takes, in memory both processes share: this
// process takes pages from the front, the child from the back, one at a
// time, so that they share the work however it falls and each page is
// taken once. One word holds the next page from the front (low half) and
// the end of the pages not yet taken from the back (high half).
class Claims {
 public:
  static Claims* Create(std::size_t pages) {
    void* mem =
        mmap(nullptr, sizeof(Claims), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return mem == MAP_FAILED ? nullptr : new (mem) Claims(pages);
  }
  static void Destroy(Claims* claims) {
    if (claims == nullptr) return;
    claims->~Claims();
    munmap(claims, sizeof(Claims));
  }
  bool Front(std::size_t* page) { return Take(true, page); }
  bool Back(std::size_t* page) { return Take(false, page); }
  // Where the child's pages begin (all taken pages behind it are its own).
  std::size_t BackStart() const { return word_.load() >> 32; }

 private:
  explicit Claims(std::size_t pages) : word_(static_cast<uint64_t>(pages) << 32) {}
  bool Take(bool front, std::size_t* page) {
    uint64_t word = word_.load();
    for (;;) {
      const uint64_t next = word & 0xffffffffu, end = word >> 32;
      if (next >= end) return false;
      const uint64_t taken = front ? ((end << 32) | (next + 1)) : (((end - 1) << 32) | next);
      if (word_.compare_exchange_weak(word, taken)) {
        *page = front ? next : end - 1;
        return true;
      }
    }
  }
  static_assert(std::atomic<uint64_t>::is_always_lock_free);
  std::atomic<uint64_t> word_;
};

// Moves the entries of |*list| into |report| and empties the list.
void TakeEntries(FileList** list, Report* report) {
  int64_t n = 0;
  for (const FileList* e = *list; e != nullptr; e = e->next)
    ++n;
  report->Number(n);
  for (const FileList* e = *list; e != nullptr; e = e->next) {
    report->Number(e->text != nullptr);
    report->Text(e->text != nullptr ? e->text : "");
    report->Number(e->code);
  }
  FreeFileList(*list);
  *list = nullptr;
}

// An entry of a run's list as the child reported it.
struct Entry {
  bool has_text = false;
  std::string text;
  int64_t code = 0;
};

bool ReadEntries(ReportReader* in, std::vector<Entry>* entries) {
  int64_t n = 0;
  if (!in->Number(&n) || n < 0) return false;
  for (int64_t i = 0; i < n; ++i) {
    Entry& e = entries->emplace_back();
    int64_t has_text = 0;
    if (!in->Number(&has_text) || !in->Text(&e.text) || !in->Number(&e.code)) return false;
    e.has_text = has_text != 0;
  }
  return true;
}

void AddEntries(const std::vector<Entry>& entries, FileList** list) {
  for (const Entry& e : entries)
    FileListAdd(list, e.has_text ? e.text.c_str() : nullptr, static_cast<int32_t>(e.code));
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

using Pages = std::vector<const SkuList*>;
using Writer = std::function<int(const SkuList*)>;

int WriteRange(const Pages& nodes, std::size_t begin, std::size_t end, const Writer& write) {
  int result = 0;
  for (std::size_t i = begin; i < end; ++i) {
    if (int rc = write(nodes[i]); rc != 0) result = rc;
  }
  return result;
}

// What one of the child's pages did: where its standard output lies in the
// capture, and the entries it added to the run's records.
struct ChildPage {
  off_t out_begin = 0;
  off_t out_end = 0;
  Report records;
};

// The child: takes pages from the back with its standard output going to
// |out_fd|, then writes its report to |report_fd|, its pages in page order;
// never returns. Its lists start empty and are emptied after every page,
// and its secure files too (a page's additions are then every name it
// added, for this process to add in page order).
[[noreturn]] void RunChild(const Pages& nodes, Claims* claims, const Writer& write, pid_t parent,
                           int out_fd, int report_fd) {
  // The pages are of no use once the run is gone: the child ends as the run
  // does on SIGTERM, removing its temporary files. The ones that exist now
  // are the parent's.
  DisownLiveTemporaries();
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(1);
  DetachCategoryConnection();
  ProgressSilence();
  const int64_t written = ProgressPagesWritten();
  if (dup2(out_fd, STDOUT_FILENO) < 0) _exit(1);
  RunState& st = PageGenState;
  st.errlist = st.dellist = nullptr;  // the parent's entries stay with the parent
  TemplateList* secure = st.pTpltSet != nullptr ? &st.pTpltSet->secure_files : nullptr;

  std::vector<ChildPage> pages;  // last page first
  std::string messages;          // each page's, shown by this process in page order
  CaptureDiagnostics(&messages);
  int64_t result = 0;
  off_t out_at = 0;
  for (std::size_t i; claims->Back(&i);) {
    if (secure != nullptr) secure->clear();
    const int rc = write(nodes[i]);
    if (rc != 0 && result == 0) result = rc;  // the last failing page in page order
    if (std::fflush(stdout) != 0) _exit(1);
    ChildPage& page = pages.emplace_back();
    page.out_begin = out_at;
    page.out_end = out_at = lseek(out_fd, 0, SEEK_CUR);
    TakeEntries(&st.errlist, &page.records);
    TakeEntries(&st.dellist, &page.records);
    page.records.Number(secure != nullptr ? static_cast<int64_t>(secure->size()) : 0);
    if (secure != nullptr) {
      for (const TemplateNode& node : *secure)
        page.records.Text(EntryValue(node));
    }
    page.records.Text(messages);
    messages.clear();
  }

  Report report;
  report.Number(result);
  report.Number(ProgressPagesWritten() - written);
  report.Number(static_cast<int64_t>(pages.size()));
  std::string out;
  for (auto page = pages.rbegin(); page != pages.rend(); ++page) {
    out.resize(static_cast<std::size_t>(page->out_end - page->out_begin));
    if (!out.empty() && pread(out_fd, out.data(), out.size(), page->out_begin) !=
                            static_cast<ssize_t>(out.size())) {
      _exit(1);
    }
    report.Text(out);
    report.Text(page->records.data());
  }
  _exit(WriteFully(report_fd, report.data()) ? 0 : 1);
}

// Takes the child's report over when it is complete and covers |pages|
// pages; false (nothing taken over) otherwise.
bool TakeOver(const std::string& data, std::size_t pages, int* result) {
  ReportReader in(data);
  int64_t child_result = 0, written = 0, count = 0;
  if (!in.Number(&child_result) || !in.Number(&written) || !in.Number(&count) ||
      count != static_cast<int64_t>(pages)) {
    return false;
  }
  struct Page {
    std::string out;
    std::vector<Entry> errors;
    std::vector<Entry> deletions;
    std::vector<std::string> secure;
    std::string messages;
  };
  std::vector<Page> taken(pages);
  bool ok = true;
  // Everything is read and checked before anything is taken over.
  for (Page& page : taken) {
    std::string records;
    if (!(ok = in.Text(&page.out) && in.Text(&records))) break;
    ReportReader r(records);
    int64_t secure = 0;
    ok = ReadEntries(&r, &page.errors) && ReadEntries(&r, &page.deletions) && r.Number(&secure) &&
         secure >= 0;
    for (int64_t i = 0; ok && i < secure; ++i)
      ok = r.Text(&page.secure.emplace_back());
    if (!(ok = ok && r.Text(&page.messages) && r.AtEnd())) break;
  }
  ok = ok && in.AtEnd();
  if (ok) {
    std::fflush(stdout);
    for (const Page& page : taken) {
      WriteFully(STDOUT_FILENO, page.out);
      AddEntries(page.errors, &PageGenState.errlist);
      AddEntries(page.deletions, &PageGenState.dellist);
      // As the page added them: a name listed already is not listed again.
      for (const std::string& value : page.secure)
        PG_TpltAddSecureFile(PageGenState.pTpltSet, value.c_str());
      ReplayDiagnostics(page.messages);
    }
    ProgressAddWritten(written);
    if (child_result != 0) *result = static_cast<int>(child_result);
  }
  return ok;
}

int WriteInTwo(const std::function<void()>& head, const Pages& nodes, const Writer& write) {
  std::fflush(stdout);
  std::fflush(stderr);
  FilePtr out(std::tmpfile());
  FilePtr report(std::tmpfile());
  Claims* claims = out != nullptr && report != nullptr ? Claims::Create(nodes.size()) : nullptr;
  const pid_t parent = getpid();
  const pid_t pid = claims != nullptr ? fork() : -1;
  if (pid == 0) RunChild(nodes, claims, write, parent, fileno(out.get()), fileno(report.get()));

  head();
  int result = 0;
  std::size_t rest = 0;  // the pages from here on are written below
  if (pid > 0) {
    for (std::size_t i; claims->Front(&i);) {
      if (int rc = write(nodes[i]); rc != 0) result = rc;
    }
    int status = 0;
    const bool done =
        waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    // A child that ended abnormally may have left a temporary file: the next
    // run looks for it.
    if (!done) KeepTemporaryRecord();
    // The child's pages, unless its report is complete.
    rest = claims->BackStart();
    struct stat st;
    std::string data;
    const int report_fd = fileno(report.get());
    if (done && fstat(report_fd, &st) == 0 && ReadWholeFile(report_fd, st.st_size, &data) &&
        TakeOver(data, nodes.size() - rest, &result)) {
      rest = nodes.size();
    }
  }
  if (int rc = WriteRange(nodes, rest, nodes.size(), write); rc != 0) result = rc;
  Claims::Destroy(claims);
  return result;
}

}  // namespace

int PageProcesses(std::size_t pages) {
  // A dynamic request is one page.
  if ((PageGenState.dynamic & kDynSinglePage) != 0) return 1;
  if (const char* forced = std::getenv("STOREGEN_PAGE_PROCESSES")) {
    if (std::strcmp(forced, "1") == 0) return 1;
    if (std::strcmp(forced, "2") == 0) return 2;
  }
  // A product library may hold connections that must not cross a fork.
  const bool dynamic = (GenerationOptionsForRun() & (kGenDynamicProducts | kGenDynamicLists)) != 0;
  return pages >= kMinPagesForTwo && !dynamic && !Verbose() && hProdApiLib == nullptr &&
                 sysconf(_SC_NPROCESSORS_ONLN) > 1
             ? 2
             : 1;
}

int WriteRunPages(const std::function<void()>& head, const std::vector<const SkuList*>& nodes,
                  int processes, const std::function<int(const SkuList*)>& write) {
  // Page numbers are shared between the processes in 32 bits.
  if (processes == 2 && nodes.size() >= 2 && nodes.size() < (uint64_t{1} << 32))
    return WriteInTwo(head, nodes, write);
  head();
  return WriteRange(nodes, 0, nodes.size(), write);
}

}  // namespace storegen
