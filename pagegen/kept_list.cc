#include "pagegen/kept_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "cgisupport/config_file.h"
#include "cgisupport/file_identity.h"
#include "cgisupport/run_state.h"
#include "pagegen/list_blocks.h"
#include "storedata/product_api.h"

namespace storegen {

struct KeptListBlock {
  long offset = 0;   // the block's place in the template
  int32_t page = 0;  // the page it was last written on
  std::shared_ptr<const void> text_version;
  FileIdentity categories;  // the category database file it was written from
  ConfigWatch config;       // the configuration lookups made while it was written
  std::string text;
  long end = 0;  // the stream position behind the block
};

namespace {

// The identity of the category database file, when it is a settled regular
// file: only then does an unchanged identity mean unchanged categories.
bool SettledCategories(const PageContext& ctx, FileIdentity* identity) {
  struct stat st;
  if (ctx.cat_db_path == nullptr || stat(ctx.cat_db_path, &st) != 0 || !S_ISREG(st.st_mode))
    return false;
  *identity = FileIdentity(st);
  return !ChangedRecently(*identity);
}

// Whether a block at this point can be kept or reused at all: a list placed
// directly in a static page of a series, its template text in memory, the
// categories read by the built-in reader from their file (a product library
// may read them from anywhere), and no verbose messages to repeat.
bool Reusable(const TemplateInput* in, const PageOutput* out) {
  return in->text_version != nullptr && out->fp != nullptr && out->capture == nullptr &&
         CatList == 0 && ProdList == 0 && hProdApiLib == nullptr && !Verbose() &&
         (PageGenState.dynamic & kDynSinglePage) == 0;
}

}  // namespace

bool WriteKeptList(TemplateInput* in, PageOutput* out, long offset, const PageContext& ctx) {
  if (in->page_number == 0 || !Reusable(in, out)) return false;
  auto it = std::find_if(in->kept_lists.begin(), in->kept_lists.end(),
                         [&](const auto& k) { return k->offset == offset; });
  if (it == in->kept_lists.end()) return false;
  KeptListBlock& kept = **it;
  FileIdentity categories;
  if (kept.page != in->page_number - 1 || kept.text_version != in->text_version ||
      !SettledCategories(ctx, &categories) || !(categories == kept.categories) ||
      !kept.config.Unchanged()) {
    in->kept_lists.erase(it);
    return false;
  }
  WriteOutput(out, kept.text);
  TemplateSeek(in, kept.end);
  kept.page = in->page_number;
  return true;
}

ListRecording::ListRecording(TemplateInput* in, PageOutput* out, long offset,
                             const PageContext& ctx)
    : in_(in), out_(out) {
  if (!Reusable(in, out)) return;
  block_ = std::make_shared<KeptListBlock>();
  if (!SettledCategories(ctx, &block_->categories)) {
    block_.reset();
    return;
  }
  block_->offset = offset;
  block_->page = in->page_number;
  block_->text_version = in->text_version;
  page_dependent_ = g_page_dependent;
  out->capture = &text_;
}

ListRecording::~ListRecording() {
  StopCapture();
}

void ListRecording::StopCapture() {
  if (out_->capture == &text_) out_->capture = nullptr;
}

void ListRecording::Keep() {
  if (block_ == nullptr) return;
  StopCapture();
  block_->config.Stop();
  if (g_page_dependent != page_dependent_) return;
  block_->text = std::move(text_);
  block_->end = TemplateTell(in_);
  // No list of this place is kept: WriteKeptList dropped one it could not
  // write.
  in_->kept_lists.push_back(std::move(block_));
}

}  // namespace storegen
