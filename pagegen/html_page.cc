#include "pagegen/html_page.h"

#include <cstdio>
#include <memory>

#include "cgisupport/config_file.h"
#include "driver/runstate/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/list_blocks.h"
#include "pagegen/template_parser.h"
#include "pagegen/text_blocks.h"
#include "pagegen/text_match.h"
#include "storedata/sku_list.h"

namespace storegen {
namespace {

struct FileCloser {
  void operator()(FILE* fp) const { std::fclose(fp); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

constexpr char kContentType[] = "Content-type: text/html\n\n";

}  // namespace

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
      FileListAdd(&PageGenState.errlist, sku_node->sku, -15);
    return 0;
  }
  const bool dynamic = (PageGenState.dynamic & kDynSinglePage) != 0;
  const bool has_output = output_path != nullptr && *output_path != '\0';

  PageContext ctx = page_ctx;
  if (sku_node != nullptr) ctx.product = sku_node->record;
  TemplateInput in;
  in.base_name = BaseName(template_path);
  PageOutput out;
  if (has_output && !dynamic) {
    // A dynamic request has no page file: no directory, and no text-block
    // caches keyed by the page's name.
    if (EnsurePGPDir(output_path) != 0) {
      VerbosePrintf("Unable to open file %s\n", output_path);
      return -8;
    }
    out.file_name = BaseName(output_path);
  }

  // The page's list blocks start closed; a category page written from a
  // list block of another page leaves that page's counters as they were.
  const int32_t outer_cat_list = CatList;
  const int32_t outer_prod_list = ProdList;
  CatList = ProdList = 0;

  int result = 0;
  bool warned = false;
  for (;;) {
    const int page = in.page_number;
    const std::string name = has_output ? PageFileName(output_path, page) : std::string();
    FilePtr tmpl(std::fopen(template_path, "rb"));
    if (!tmpl) {
      VerbosePrintf("Unable to open file %s\n", template_path);
      result = -7;
      break;
    }
    AtomicFile file;
    if (dynamic) {
      out.fp = stdout;
      std::fputs(kContentType, stdout);
    } else if (has_output) {
      FileListAdd(&PageGenState.dellist, name.c_str(), 0);
      if (!file.Open(name)) {
        VerbosePrintf("Unable to open file %s\n", name.c_str());
        result = -8;
        break;
      }
      out.fp = file.fp();
    } else {
      out.fp = nullptr;
    }
    if (has_output) VerbosePrintf("\nGenerating Page: %s\n", name.c_str());
    VerbosePrintf("Using template %s\n", template_path);

    in.fp = tmpl.get();
    out.text_blocks = 0;
    int rc = ParseTemplate(&in, &out, ctx);
    AbandonTextBlock(&out);
    CatList = ProdList = 0;  // a block left open by a broken template ends with its page
    in.fp = nullptr;
    out.fp = nullptr;
    tmpl.reset();
    if (dynamic) {
      std::fflush(stdout);
    } else if (file.fp() != nullptr && rc != 0 && rc != -18) {
      file.Abandon();  // a page cut short never replaces the older one
    } else if (file.fp() != nullptr && !file.Commit(AtomicFile::Sync::kRename)) {
      VerbosePrintf("Unable to open file %s\n", name.c_str());
      rc = -8;
    }

    if (rc == -18) {
      warned = true;
      rc = 0;
    }
    result = rc;
    // Further pages of a paged list are files of their own: a dynamic
    // request, or a page without output file, is one page.
    if (rc != 0 || in.next_page <= page || dynamic || !has_output) break;
    in.page_number = in.next_page;
  }
  CatList = outer_cat_list;
  ProdList = outer_prod_list;
  return result != 0 ? result : (warned ? -18 : 0);
}

}  // namespace storegen
