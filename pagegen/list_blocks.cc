#include "pagegen/list_blocks.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "cgisupport/config_hints.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/form_decode.h"
#include "cgisupport/path_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/cart_links.h"
#include "pagegen/category_index.h"
#include "pagegen/html_page.h"
#include "pagegen/kept_list.h"
#include "pagegen/link_rewrite.h"
#include "pagegen/store_values.h"
#include "pagegen/template_parser.h"
#include "pagegen/text_match.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"

namespace storegen {

int32_t CatList = 0;
int32_t ProdList = 0;

// The parser recurses through nested blocks (parser, block, pass, parser
// ...), so the blocks keep their state on the heap and their frames small.
namespace {

constexpr int32_t kDefaultPageSize = 10;

// Set while a category's own page is written: a category list on that page
// does not write the category pages again, which would never end.
bool g_writing_category_page = false;

// Folds the result of a pass into the block's: a warning is kept and the
// block goes on; an error ends the block (true).
bool Failed(int rc, int* result) {
  if (rc == 0) return false;
  *result = rc;
  return rc != kUnresolvedCategoryTag;
}

// One pass over the block with |ctx|. The counter is put back even when the
// template ends before the end marker.
int ParsePass(TemplateInput* in, PageOutput* out, long offset, const PageContext& ctx,
              int32_t* counter) {
  const int32_t before = *counter;
  ++*counter;
  TemplateSeek(in, offset);
  int rc = ParseTemplate(in, out, ctx);
  *counter = before;
  return rc;
}

// A block that shows nothing is read through to its end marker without
// output, so that the page goes on behind it.
int SkipBlock(TemplateInput* in, long offset, const PageContext& ctx, int32_t* counter) {
  auto discard = std::make_unique<PageOutput>();  // no stream
  auto quiet = std::make_unique<PageContext>(ctx);
  quiet->product = nullptr;
  return ParsePass(in, discard.get(), offset, *quiet, counter);
}

struct CategoryBlock {
  PageContext ctx;            // the pass's context, with the pass's category
  std::string name;           // the pass's category
  std::string page_template;  // template of the categories' own pages
  int32_t position = 0;       // the category database's iteration
};

// A category list whose CategoryTemplate does not exist writes no category
// pages; the links to them lead nowhere.
[[gnu::noinline, gnu::cold]] void WarnMissingCategoryTemplate(const std::string& tmpl) {
  const std::string page_template = CurrentTemplatePath();
  if (!FirstTime("CategoryTemplate\t" + page_template + "\t" + tmpl)) return;
  ReportWarning(
      {AbsolutePathForMessage(page_template), TextLine(page_template.c_str(), "CategoryTemplate")},
      "CategoryTemplate \"" + tmpl + "\" does not exist (" + AbsolutePathForMessage(tmpl) +
          "; relative paths are taken from the template directory), so no category "
          "pages are written");
}

// The marker's "CategoryTemplate" when it names a file that exists. It
// becomes the run's list template, and the template of the category list
// pages that the cart asks the page generator for.
std::string CategoryTemplate(std::string_view marker, const PageContext& ctx) {
  std::string tmpl;
  struct stat st;
  if (!MarkerAttribute(marker, "CategoryTemplate", &tmpl) || tmpl.empty()) return "";
  if (stat(tmpl.c_str(), &st) != 0) {
    WarnMissingCategoryTemplate(tmpl);
    return "";
  }
  CopyTruncated(PageGenState.szTemplateFile, tmpl);
  if ((ctx.options & (kGenDynamicProducts | kGenDynamicLists)) != 0 &&
      StoreConfigValue(ctx.store_cfg, kCategoryListTemplateKey) != tmpl) {
    SetStoreConfigItem(ctx.store_cfg, kCategoryListTemplateKey, tmpl);
  }
  return tmpl;
}

// Writes the category's own page: "c-" + safe name + ".html" in the output
// directory, listing the category's products.
int WriteCategoryPage(const CategoryBlock& block) {
  char file[kPathSize] = "";
  GetSafeFileName(block.name.c_str(), file, sizeof file, "c-", ".html");
  auto page = std::make_unique<PageContext>(block.ctx);
  page->product = nullptr;
  page->output_file = file;
  page->list_start = "";
  page->secure = 0;
  page->product_lists = true;
  std::string path = std::string(block.ctx.out_dir) + file;
  g_writing_category_page = true;
  int rc = GenerateHtmlPage(block.page_template.c_str(), path.c_str(), nullptr, *page);
  g_writing_category_page = false;
  return rc;
}

struct ProductBlock {
  PageContext ctx;   // the pass's context, with the pass's product
  SkuRecord record;  // that product's record
  std::string category;
  std::string previous_image;
  std::string next_image;
};

int32_t PageSize(std::string_view marker, const TemplateSet* set) {
  if (set != nullptr && set->max_prod_per_page != 0) return set->max_prod_per_page;
  std::string value;
  if (MarkerAttribute(marker, "MaxPerPage", &value)) return std::max(0, std::atoi(value.c_str()));
  return kDefaultPageSize;
}

TemplateInput::ListResume* FindResume(TemplateInput* in, long offset, const std::string& category) {
  for (TemplateInput::ListResume& r : in->resume) {
    if (r.offset == offset && r.category == category) return &r;
  }
  return nullptr;
}

void SaveResume(TemplateInput* in, long offset, const std::string& category, int32_t page,
                const SkuList* node, int32_t index) {
  TemplateInput::ListResume* r = FindResume(in, offset, category);
  if (r == nullptr) {
    r = &in->resume.emplace_back();
    r->offset = offset;
    r->category = category;
  }
  r->page = page;
  r->node = node;
  r->index = index;
}

// Where the page's list starts; a negative start is the first position.
int32_t ListStart(const PageContext& ctx) {
  return std::max(0, std::atoi(ctx.list_start));
}

const char* ImageOrNull(const std::string& image) {
  return image.empty() ? nullptr : image.c_str();
}

void WritePagingLink(PageOutput* out, const std::string& target, const char* image,
                     const char* text, const PageContext& ctx) {
  std::string link = "<A HREF=\"" + target + "\">";
  if (image != nullptr && *image != '\0') {
    link += RewriteLinkTag("<IMG SRC=\"" + std::string(image) + "\" BORDER=0>", ctx);
  } else {
    link += text;
  }
  link += "</A>";
  WriteOutput(out, link);
}

// A page of the same series: the page path when it is absolute, and the
// series' path below the store's directory numbered for |page|.
std::string SeriesPage(const PageOutput* out, const PageContext& ctx, int32_t page) {
  std::string link = IsDirSlash(ctx.page_path[0]) ? ctx.page_path : "";
  return link + PageFileName(out->series_name, page);
}

}  // namespace

int ProcessCatListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                        const PageContext& ctx) {
  if (ctx.cat_db == nullptr) return 0;
  auto block = std::make_unique<CategoryBlock>();
  block->ctx = ctx;
  block->page_template = CategoryTemplate(marker, ctx);
  // Category pages belong to static runs that write list pages; the
  // continuation pages of a paged page would only write them again.
  const bool write_pages = !block->page_template.empty() && (ctx.options & kGenDynamicLists) == 0 &&
                           (PageGenState.dynamic & kDynSinglePage) == 0 && in->page_number == 0 &&
                           !g_writing_category_page;

  if (WriteKeptList(in, out, offset, ctx)) return 0;
  ListRecording recording(in, out, offset, ctx);

  PAPI_Pair* record = nullptr;
  if (pdbRetrieveFirstItem != nullptr) {
    record = pdbRetrieveFirstItem(ctx.cat_db, kPapiKey, 1, ctx.cat_db_path, ctx.store_cfg,
                                  ctx.api_cfg, ctx.cart_dir, &block->position, nullptr);
  }
  if (record == nullptr) return kDatabaseError;
  int result = 0;
  bool passed = false;
  while (record != nullptr) {
    const PAPI_Pair* name = FindProdAttr(record, "TILLBOXCATEGORY");
    block->name = name != nullptr && name->value != nullptr ? name->value : "";
    if (pdbRelease != nullptr) pdbRelease(ctx.cat_db, kPapiKey, "", record);
    if (!block->name.empty()) {
      block->ctx.category = block->name.c_str();
      if (write_pages && Failed(WriteCategoryPage(*block), &result)) return result;
      passed = true;
      if (Failed(ParsePass(in, out, offset, block->ctx, &CatList), &result)) return result;
    }
    record = pdbRetrieveNextItem == nullptr
                 ? nullptr
                 : pdbRetrieveNextItem(ctx.cat_db, kPapiKey, 1, ctx.cat_db_path, ctx.store_cfg,
                                       ctx.api_cfg, ctx.cart_dir, &block->position, nullptr);
  }
  if (!passed) Failed(SkipBlock(in, offset, ctx, &CatList), &result);
  if (result == 0) recording.Keep();
  return result;
}

int ProcessProdListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                         const PageContext& ctx) {
  auto block = std::make_unique<ProductBlock>();
  block->ctx = ctx;
  if (ctx.category != nullptr) {
    block->category = ctx.category;
    block->category.erase(block->category.find_last_not_of(" \t\r\n") + 1);
  }
  MarkerAttribute(marker, "Previous", &block->previous_image);
  MarkerAttribute(marker, "Next", &block->next_image);
  const int32_t size = PageSize(marker, ctx.set);
  const int32_t start = ListStart(ctx);
  const int32_t page = in->page_number;

  // Where this page's entries begin: where the previous page stopped, or,
  // counted from the start of the list, behind the entries of earlier pages.
  const SkuList* node = ctx.sku_list;
  int32_t index = start + 1;  // position in the whole list
  int32_t skip = size > 0 ? page * size : 0;
  if (const TemplateInput::ListResume* r = FindResume(in, offset, block->category);
      r != nullptr && r->page == page) {
    node = r->node;
    index = r->index;
    skip = 0;
  }

  int result = 0;
  int32_t placed = 0;
  bool more = false;
  // A category's products come from the page's index when it has one: the
  // same entries, without going through every other category's.
  const std::vector<const SkuList*>* members =
      block->category.empty() || ctx.categories == nullptr
          ? nullptr
          : ctx.categories->Products(ctx.sku_list, block->category);
  // The entry's place among the category's products: its position in the
  // whole list less the list's start, and the entries of earlier pages still
  // to pass over.
  std::size_t slot = 0;
  if (members != nullptr) {
    slot = std::min(members->size(), static_cast<std::size_t>(index - (start + 1) + skip));
    index = start + 1 + static_cast<int32_t>(slot);
    skip = 0;
    node = slot < members->size() ? (*members)[slot] : nullptr;
  }
  auto next = [&](const SkuList* n) -> const SkuList* {
    if (members == nullptr) return NextSkuNode(n);
    return ++slot < members->size() ? (*members)[slot] : nullptr;
  };
  for (; node != nullptr; node = next(node)) {
    if (!block->category.empty() && members == nullptr) {
      const char* category = SkuCategory(node);
      if (category == nullptr) {
        ReportError({PageGenState.szDbName},
                    "a product list of category \"" + block->category +
                        "\" meets products without a TILLBOXCATEGORY column",
                    "Error reading database\n");
        return kDatabaseError;
      }
      if (!EqualsNoCase(category, block->category)) continue;
    }
    if (skip > 0) {
      --skip;
      ++index;
      continue;
    }
    if (size > 0 && placed == size) {
      more = true;  // a further matching product: there is a next page
      break;
    }
    if (!block->record.Read(node, &block->ctx.product)) return kDatabaseError;
    block->ctx.product_layout = block->record.layout();
    if (Failed(ParsePass(in, out, offset, block->ctx, &ProdList), &result)) return result;
    ++placed;
    ++index;
  }
  if (placed == 0 && Failed(SkipBlock(in, offset, ctx, &ProdList), &result)) return result;

  // An unpaged list has no pages to link.
  if (size > 0 && (start > 0 || page > 0))
    CreatePrevious(out, page, ImageOrNull(block->previous_image), ctx, block->category, size);
  if (more) {
    CreateNext(out, page, ImageOrNull(block->next_image), ctx, block->category, size);
    if ((ctx.options & kGenDynamicLists) == 0) {
      SaveResume(in, offset, block->category, page + 1, node, index);
      in->next_page = page + 1;
    }
  }
  return result;
}

void CreatePrevious(PageOutput* out, int32_t page_number, const char* image, const PageContext& ctx,
                    std::string_view category, int32_t page_size) {
  std::string target;
  if (ctx.options & kGenDynamicLists) {
    target = DynamicProdListHref(ctx.store_cfg, category, ListStart(ctx) - page_size);
  } else if (page_number >= 1) {
    target = SeriesPage(out, ctx, page_number - 1);
  } else {
    return;
  }
  WritePagingLink(out, target, image, "&lt;&lt;", ctx);
}

void CreateNext(PageOutput* out, int32_t page_number, const char* image, const PageContext& ctx,
                std::string_view category, int32_t page_size) {
  std::string target =
      (ctx.options & kGenDynamicLists)
          ? DynamicProdListHref(ctx.store_cfg, category, ListStart(ctx) + page_size)
          : SeriesPage(out, ctx, page_number + 1);
  WritePagingLink(out, target, image, "&gt;&gt;", ctx);
}

std::string DynamicProdListHref(const char* store_cfg, std::string_view category, int32_t start) {
  std::string href = PageGenProgramUrl(store_cfg) + "?-c+" + std::string(ConfigFileName(store_cfg));
  if (!category.empty()) href += "+-C+" + EscapeUrl(category);
  href += "+-f+" + std::to_string(std::max(start, 0));
  return href;
}

}  // namespace storegen
