#include "pagegen/html_page.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "cgisupport/config_file.h"
#include "cgisupport/config_hints.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/file_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "cgisupport/scope_exit.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/list_blocks.h"
#include "pagegen/page_file.h"
#include "pagegen/progress.h"
#include "pagegen/template_parser.h"
#include "pagegen/template_pieces.h"
#include "pagegen/text_blocks.h"
#include "pagegen/text_match.h"
#include "storedata/sku_list.h"

namespace storegen {
namespace {

constexpr char kContentType[] = "Content-type: text/html\n\n";

const char* g_template = "";

// A template that cannot be opened: named with the template-set line that
// names it, when one does.
[[gnu::noinline, gnu::cold]] void ReportTemplateFailed(const char* template_path, int error) {
  const std::string path = AbsolutePathForMessage(template_path);
  std::string detail = "cannot open the template " + path + ": " + std::strerror(error);
  Where where{path};
  const char* set = PageGenState.szTmpltSet;
  if (int line = set[0] != '\0' ? ConfigValueLine(set, template_path) : 0; line > 0) {
    where = {set, line};
    detail +=
        "; relative template paths are taken from the template directory (PageGenTemplateDir)";
  }
  ReportError(where, detail, "Unable to open file %s\n", template_path);
}

[[gnu::noinline, gnu::cold]] void ReportPageFailed(const std::string& page, std::string_view what,
                                                   int error) {
  ReportError({page}, std::string(what) + ": " + std::strerror(error), "Unable to open file %s\n",
              page.c_str());
}

// Templates up to this size are read whole and parsed from memory.
constexpr off_t kMaxTemplateInMemory = 256 * 1024;

// The text of a template file, with what identifies that version of it.
struct TemplateText {
  FileIdentity identity;
  std::string text;
  // Cut as pages are written from this version.
  std::unique_ptr<TemplatePieces> pieces;
};

// The settled templates' texts, by path. A page's stream holds its text, so
// that a newer version kept while the page is written leaves it alone.
std::unordered_map<std::string, std::shared_ptr<const TemplateText>>& KeptTemplates() {
  static auto* kept = new std::unordered_map<std::string, std::shared_ptr<const TemplateText>>();
  return *kept;  // lives until the process ends
}

// The directory of the last page written, made sure of (see EnsurePageDir).
std::string& LastPageDir() {
  static auto* last = new std::string();  // lives until the process ends
  return *last;
}

// The text of the template at |path| when it is a small regular file: the
// kept one while the file is unchanged (one stat), else read anew (and kept
// once settled). Null for a large, empty or unusual file, or a read error.
std::shared_ptr<const TemplateText> TemplateTextOf(const char* path) {
  struct stat st;
  if (stat(path, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0 ||
      st.st_size > kMaxTemplateInMemory) {
    return nullptr;
  }
  auto& kept = KeptTemplates();
  auto it = kept.find(path);
  if (it != kept.end() && it->second->identity == FileIdentity(st)) return it->second;

  int fd = OpenForReading(path);
  if (fd < 0) return nullptr;
  auto text = std::make_shared<TemplateText>();
  struct stat opened;
  const bool ok = fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode) && opened.st_size > 0 &&
                  opened.st_size <= kMaxTemplateInMemory &&
                  ReadWholeFile(fd, opened.st_size, &text->text);
  close(fd);
  if (!ok) return nullptr;
  text->identity = FileIdentity(opened);
  text->pieces = std::make_unique<TemplatePieces>(text->text);
  if (ChangedRecently(text->identity)) {
    if (it != kept.end()) kept.erase(it);
  } else {
    kept[path] = text;
  }
  return text;
}

// The open template: a stream on its text in memory, so that the list
// blocks' returns to their start cost no system call, or, for a large or
// unusual file, the file itself.
class TemplateStream {
 public:
  TemplateStream() = default;
  ~TemplateStream() { Close(); }
  TemplateStream(const TemplateStream&) = delete;
  TemplateStream& operator=(const TemplateStream&) = delete;
  bool Open(const char* path) {
    text_ = TemplateTextOf(path);
    if (text_ != nullptr)
      fp_ = fmemopen(const_cast<char*>(text_->text.data()), text_->text.size(), "r");
    if (fp_ == nullptr) fp_ = FopenForReading(path, "rb");
    return fp_ != nullptr;
  }
  FILE* get() const { return fp_; }
  // The text's version: the same while the file is unchanged; null when the
  // file itself is read.
  std::shared_ptr<const void> version() const { return text_; }
  // The text's pieces; null when the file itself is read.
  TemplatePieces* pieces() const { return text_ != nullptr ? text_->pieces.get() : nullptr; }
  void Close() {
    if (fp_ != nullptr) std::fclose(fp_);
    fp_ = nullptr;
    text_.reset();
  }

 private:
  std::shared_ptr<const TemplateText> text_;
  FILE* fp_ = nullptr;
};

// Makes sure the directory of the page |output_path| exists. Pages mostly
// share a directory: one that was made sure of is not looked at again (a
// page whose directory was removed meanwhile makes it again when it is
// written). Only absolute directories are remembered, since the current
// directory may change during a run.
int EnsurePageDir(const char* output_path) {
  std::string* last = &LastPageDir();
  std::string_view path(output_path);
  std::size_t slash = path.find_last_of("/\\");
  std::string_view dir = path.substr(0, slash == std::string_view::npos ? 0 : slash);
  if (!last->empty() && dir == *last) return 0;
  const int rc = EnsurePGPDir(output_path);
  if (rc == 0 && dir.starts_with('/')) {
    last->assign(dir);
  } else {
    last->clear();
  }
  return rc;
}

// The page |output_path| named by its path below the store's output
// directory |out_dir|; a page outside it by its file name.
std::string_view StorePath(std::string_view output_path, std::string_view out_dir) {
  if (!out_dir.empty() && output_path.starts_with(out_dir))
    return output_path.substr(out_dir.size());
  return BaseName(output_path);
}

}  // namespace

void ForgetKeptTemplates() {
  KeptTemplates().clear();
  LastPageDir().clear();
}

std::string PageFileName(std::string_view path, int page_number) {
  std::string name(path);
  std::string_view stem = WithoutExtension(path);
  if (page_number != 0 && stem.size() != path.size())
    name.insert(stem.size(), std::to_string(page_number));
  return name;
}

std::string CategoryDbPath(std::string_view db_path) {
  return std::string(WithoutExtension(db_path)) + ".cdb";
}

int GenerateHtmlPage(const char* template_path, const char* output_path, const SkuList* sku_node,
                     const PageContext& page_ctx) {
  if (template_path == nullptr) {
    if (sku_node != nullptr && sku_node->sku != nullptr)
      FileListAdd(&PageGenState.errlist, sku_node->sku, kNoTemplateForProduct);
    return 0;
  }
  const bool dynamic = (PageGenState.dynamic & kDynSinglePage) != 0;
  const bool has_output = output_path != nullptr && *output_path != '\0';

  PageContext ctx = page_ctx;
  SkuRecord record;
  if (sku_node != nullptr) {
    if (!record.Read(sku_node, &ctx.product)) return kDatabaseError;
    ctx.product_layout = record.layout();
  }
  TemplateInput in;
  in.base_name = BaseName(template_path);
  PageOutput out;
  if (has_output && !dynamic) {
    // A dynamic request has no page file: no directory, and no text-block
    // caches keyed by the page's name.
    if (EnsurePageDir(output_path) != 0) {
      ReportPageFailed(output_path, "cannot create the page's directory", errno);
      return kOutputNotCreatable;
    }
    out.series_name = StorePath(output_path, ctx.out_dir);
  }

  // Pages written from the list block of another page (category pages),
  // and the further pages of a paged list, are not in the run's plan.
  static int s_depth = 0;
  const bool nested = s_depth++ > 0;
  const char* outer_template = std::exchange(g_template, template_path);
  // The page's list blocks start closed; a category page written from a
  // list block of another page leaves that page's counters as they were.
  const int32_t outer_cat_list = std::exchange(CatList, 0);
  const int32_t outer_prod_list = std::exchange(ProdList, 0);
  const ScopeExit restore([outer_cat_list, outer_prod_list, outer_template] {
    CatList = outer_cat_list;
    ProdList = outer_prod_list;
    --s_depth;
    g_template = outer_template;
  });

  int result = 0;
  bool warned = false;
  for (;;) {
    const int page = in.page_number;
    const std::string name = has_output ? PageFileName(output_path, page) : std::string();
    // Every value a page shows comes from one version of the store
    // configuration, looked at once per page.
    ConfigSnapshot config_snapshot;
    TemplateStream tmpl;
    if (!tmpl.Open(template_path)) {
      ReportTemplateFailed(template_path, errno);
      result = kTemplateNotOpenable;
      break;
    }
    if (has_output && !dynamic && (nested || page > 0)) ProgressPlanPages(1);
    PageFile file;
    if (dynamic) {
      out.fp = stdout;
      std::fputs(kContentType, stdout);
    } else if (has_output) {
      FileListAdd(&PageGenState.dellist, name.c_str(), 0);
      if (!file.Open(name)) {
        ReportPageFailed(name, "cannot write the page", errno);
        result = kOutputNotCreatable;
        break;
      }
      out.fp = file.fp();
      out.file = &file;
    } else {
      out.fp = nullptr;
    }
    if (has_output) VerbosePrintf("\nGenerating Page: %s\n", name.c_str());
    VerbosePrintf("Using template %s\n", template_path);

    if (!out.series_name.empty()) out.file_name = PageFileName(out.series_name, page);
    in.fp = tmpl.get();
    in.text_version = tmpl.version();
    in.pieces = tmpl.pieces();
    in.position = 0;
    out.text_blocks = 0;
    int rc = ParseTemplate(&in, &out, ctx);
    AbandonTextBlock(&out);
    CatList = ProdList = 0;  // a block left open by a broken template ends with its page
    in.fp = nullptr;
    out.fp = nullptr;
    out.file = nullptr;
    tmpl.Close();
    if (dynamic) {
      std::fflush(stdout);
    } else if (file.fp() != nullptr && rc != 0 && rc != kUnresolvedCategoryTag) {
      file.Abandon();  // a page cut short never replaces the older one
    } else if (file.fp() != nullptr && !file.Commit()) {
      ReportPageFailed(name, "cannot write the page", errno);
      rc = kOutputNotCreatable;
    } else if (has_output) {
      ProgressPageWritten();
    }

    if (rc == kUnresolvedCategoryTag) {
      warned = true;
      rc = 0;
    }
    result = rc;
    // Further pages of a paged list are files of their own: a dynamic
    // request, or a page without output file, is one page.
    if (rc != 0 || in.next_page <= page || dynamic || !has_output) break;
    in.page_number = in.next_page;
  }
  return result != 0 ? result : (warned ? kUnresolvedCategoryTag : kOk);
}

const char* CurrentTemplatePath() {
  return g_template;
}

}  // namespace storegen
