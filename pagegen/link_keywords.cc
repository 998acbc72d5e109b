// The page generator's own link keywords ("PG_...#"), expanded into complete
// links by ExpandLinkKeyword (declared in link_rewrite.h).
#include <new>
#include <string>
#include <string_view>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/form_decode.h"
#include "cgisupport/path_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "index/search_index.h"
#include "pagegen/cart_links.h"
#include "pagegen/link_rewrite.h"
#include "pagegen/store_links.h"
#include "pagegen/text_match.h"
#include "storedata/product_api.h"

namespace storegen {
namespace {

constexpr std::string_view kSessionTail = "+%%tillbox.sessionid%%";
constexpr std::string_view kSearchPageKeyword = "PG_SEARCHPAGE#";

// A markup with one keyword found in it: what stands before the keyword, and
// what follows the keyword's "#".
struct Found {
  std::string_view markup;
  std::size_t pos;     // where the keyword starts
  std::size_t length;  // the keyword's length

  std::string_view Before() const { return markup.substr(0, pos); }
  std::string_view After() const { return markup.substr(pos + length); }
};

bool IsUsable(const char* value) {
  return value != nullptr && *value != '\0' && !EqualsNoCase(value, "NA");
}

// The product's name in links: its SKU (the record's first field when it
// has no "SKU").
const char* ProductName(const PAPI_Pair* product) {
  const PAPI_Pair* sku = FindProdAttr(product, "SKU");
  if (sku == nullptr) sku = product;
  return sku->name != nullptr && sku->value != nullptr ? sku->value : "";
}

// Appends the link to a generated page of the store: the page path when it
// is absolute, then the safe file name of |name|.
void AppendPageFileLink(std::string* page, const PageContext& ctx, const char* prefix,
                        const char* name) {
  char file[kPathSize] = "";
  GetSafeFileName(name, file, sizeof file, prefix, ".html");
  if (IsDirSlash(ctx.page_path[0])) page->append(ctx.page_path);
  page->append(file);
}

// "PG_CATEGORYFILE#": the current category's page, or the category of the
// current product. False when there is no category to link to.
bool CategoryFile(const Found& f, const PageContext& ctx, std::string* page) {
  const char* category = nullptr;
  if (ctx.category != nullptr && *ctx.category != '\0') {
    category = ctx.category;
  } else if (const PAPI_Pair* p = FindProdAttr(ctx.product, "TILLBOXCATEGORY");
             p != nullptr && IsUsable(p->value)) {
    category = p->value;
  } else {
    return false;
  }
  *page = f.Before();
  if (ctx.options & kGenDynamicLists) {
    *page += PageGenProgramUrl(ctx.store_cfg) + "?-c+" +
             std::string(ConfigFileName(ctx.store_cfg)) + "+-f+0+-C+" + EscapeUrl(category);
  } else {
    AppendPageFileLink(page, ctx, "c-", category);
  }
  *page += f.After();
  return true;
}

// "PG_PRODUCTFILE#": the current product's page.
void ProductFile(const Found& f, const PageContext& ctx, std::string* page) {
  const char* name = ProductName(ctx.product);
  *page = f.Before();
  if (ctx.options & kGenDynamicProducts) {
    *page += PageGenProgramUrl(ctx.store_cfg) + "?-p+-c+" +
             std::string(ConfigFileName(ctx.store_cfg)) + "+" + name;
  } else {
    AppendPageFileLink(page, ctx, "p-", name);
  }
  *page += f.After();
}

// The switch keywords take the target that follows them, up to the closing
// quote when the link is quoted, else up to a blank or ">".
std::size_t TargetEnd(std::string_view markup, std::size_t link_start, std::size_t target_start) {
  char quote = link_start > 0 ? markup[link_start - 1] : '\0';
  std::string ends = (quote == '"' || quote == '\'') ? std::string(1, quote) + ">" : " \t\r\n>";
  return std::min(markup.find_first_of(ends, target_start), markup.size());
}

std::string_view WithoutLeadingSlash(std::string_view s) {
  if (!s.empty() && IsDirSlash(s.front())) s.remove_prefix(1);
  return s;
}

// Where the link starts: at the action keyword |action| when it stands in
// front of the switch keyword (it is dropped; the query marker says what it
// asked for), else at the switch keyword.
std::size_t LinkStart(const Found& f, std::string_view action) {
  std::size_t at = f.markup.find(action);
  return at < f.pos ? at : f.pos;
}

// "PG_SSLSWITCH#": the same store on the secure server, through the cart
// program.
void SslSwitch(const Found& f, const PageContext& ctx, std::string* page) {
  const bool userprog = f.markup.find("USERPROG#") != std::string_view::npos;
  std::size_t start = LinkStart(f, "USERPROG#");
  std::size_t target_start = f.pos + f.length;
  std::size_t target_end = TargetEnd(f.markup, start, target_start);
  std::string cgi = ConfigValue(ctx.store_cfg, "SecureCGIBinDirectory");
  if (cgi.empty()) cgi = ConfigValue(ctx.store_cfg, "CGIBinDirectory");
  std::string config = ConfigValue(ctx.store_cfg, "SecureConfig");
  if (config.empty()) {
    std::string_view name = ConfigFileName(ctx.store_cfg);
    if (name.size() >= 4 && EqualsNoCase(name.substr(name.size() - 4), ".cfg"))
      name.remove_suffix(4);
    config = name;
  }
  *page = f.markup.substr(0, start);
  *page += "NOPARSE#" + ConfigValue(ctx.store_cfg, "SecureDomain", 65536) + WithTrailingSlash(cgi) +
           CartProgramName(ctx.store_cfg) + "/" + StoreDirSegment(ctx.store_cfg);
  *page += WithoutLeadingSlash(f.markup.substr(target_start, target_end - target_start));
  *page += userprog ? "?U+" : "?L+";
  *page += config;
  *page += kSessionTail;
  *page += f.markup.substr(target_end);
}

// The search page as a link: the HTML alias and the index's page ("" before
// the index is set up).
std::string SearchPagePath() {
  const char* search = GetIndexHtmlOut();
  return std::string(PageGenState.szHtmlAlias) + (search != nullptr ? search : "");
}

// "PG_NONSSLSWITCH#": back to the store on the non-secure server, through the
// cart program.
void NonSslSwitch(const Found& f, const PageContext& ctx, std::string* page) {
  std::string_view action;
  std::string_view marker = "?L+";
  if (f.markup.find("GEOGRAPHY#") != std::string_view::npos) {
    action = "GEOGRAPHY#";
    marker = "?R+";
  } else if (f.markup.find("USERPROG#") != std::string_view::npos) {
    action = "USERPROG#";
    marker = "?U+";
  }
  std::size_t start = action.empty() ? f.pos : LinkStart(f, action);
  std::size_t target_start = f.pos + f.length;
  std::size_t target_end = TargetEnd(f.markup, start, target_start);
  std::string_view target = f.markup.substr(target_start, target_end - target_start);

  *page = f.markup.substr(0, start);
  *page += "NOPARSE#" + ConfigValue(ctx.store_cfg, "NonSecureDomain", 65536) +
           WithTrailingSlash(ConfigValue(ctx.store_cfg, "CGIBinDirectory")) +
           CartProgramName(ctx.store_cfg);
  if (StartsWithNoCase(target, kSearchPageKeyword)) {
    *page += SearchPagePath();
  } else {
    *page += "/" + StoreDirSegment(ctx.store_cfg);
    *page += WithoutLeadingSlash(target);
  }
  *page += marker;
  *page += StoreShortName(ctx.store_cfg);
  *page += kSessionTail;
  *page += f.markup.substr(target_end);
}

// "PG_TILLBOX#": the shop home page through the cart program.
void CartHome(const Found& f, const PageContext& ctx, std::string* page) {
  *page = f.Before();
  *page += WithTrailingSlash(RunningCgiDirectory(ctx.store_cfg));
  *page += CartHomeEntry(ctx.store_cfg, ctx.page_path);
  *page += f.After();
}

enum class Keyword {
  kCategoryFile,
  kProductFile,
  kSslSwitch,
  kNonSslSwitch,
  kStoreExit,
  kStoreEnter,
  kSearchPage,
  kWaisGateway,
  kCartHome,
};

constexpr struct {
  std::string_view text;
  Keyword keyword;
} kKeywords[] = {
    {"PG_CATEGORYFILE#", Keyword::kCategoryFile}, {"PG_PRODUCTFILE#", Keyword::kProductFile},
    {"PG_SSLSWITCH#", Keyword::kSslSwitch},       {"PG_NONSSLSWITCH#", Keyword::kNonSslSwitch},
    {"PG_STOREEXITURL#", Keyword::kStoreExit},    {"PG_STOREENTERURL#", Keyword::kStoreEnter},
    {kSearchPageKeyword, Keyword::kSearchPage},   {"PG_WWWWAIS#", Keyword::kWaisGateway},
    {"PG_TILLBOX#", Keyword::kCartHome},
};

// Expands the first keyword of the list found in the markup into |page|.
// False when none applies.
bool Expand(std::string_view markup, const PageContext& ctx, PageOutput* out, std::string* page) {
  // Every keyword ends in "#": most markup has none, and is passed over by
  // that alone.
  if (markup.find('#') == std::string_view::npos) return false;
  const MarkerFinder keywords(markup, "PG_");
  if (!keywords.Any()) return false;
  for (const auto& k : kKeywords) {
    std::size_t pos = keywords.Find(k.text);
    if (pos == std::string_view::npos) continue;
    const Found f{markup, pos, k.text.size()};
    switch (k.keyword) {
      case Keyword::kCategoryFile:
        if (!CategoryFile(f, ctx, page)) continue;
        return true;
      case Keyword::kProductFile:
        if (ctx.product == nullptr) continue;
        ProductFile(f, ctx, page);
        return true;
      case Keyword::kSslSwitch:
        SslSwitch(f, ctx, page);
        return true;
      case Keyword::kNonSslSwitch:
        NonSslSwitch(f, ctx, page);
        return true;
      case Keyword::kStoreExit:
        DoStoreExitURL(out, markup, pos, ctx.store_cfg);
        return true;
      case Keyword::kStoreEnter:
        DoStoreEnterURL(out, markup, pos, ctx.store_cfg, ctx.page_path);
        return true;
      case Keyword::kSearchPage:
        *page = std::string(f.Before()) + SearchPagePath() + std::string(f.After());
        return true;
      case Keyword::kWaisGateway: {
        const char* gateway = GetIndexSelfURL();
        *page = std::string(f.Before()) + (gateway ? gateway : "") + std::string(f.After());
        return true;
      }
      case Keyword::kCartHome:
        CartHome(f, ctx, page);
        return true;
    }
  }
  return false;
}

}  // namespace

int ExpandLinkKeyword(PageOutput* out, std::string_view markup, const PageContext& ctx) {
  try {
    // Written before the buffer serves the next markup.
    static auto* page = new std::string();  // lives until the process ends
    page->clear();
    if (!Expand(markup, ctx, out, page)) return 0;
    WriteOutput(out, *page);
    return 1;
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  }
}

}  // namespace storegen
