#include "pagegen/page_generators.h"

#include <string>

#include "cgisupport/config_file.h"
#include "cgisupport/config_hints.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/path_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "index/search_index.h"
#include "pagegen/category_index.h"
#include "pagegen/html_page.h"
#include "pagegen/page_context.h"
#include "pagegen/store_values.h"
#include "pagegen/text_match.h"
#include "storedata/product_api.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr int kDisplayNameSize = 2048;

// The connection a run scope keeps open, with what it was opened with.
struct SharedConnection {
  int scopes = 0;
  void* handle = nullptr;
  std::string path;
  std::string store_cfg;
  std::string api_cfg;
  std::string cart_dir;

  bool Matches(const std::string& db, const GeneratorArgs& args) const {
    return handle != nullptr && path == db && store_cfg == args.store_cfg &&
           api_cfg == args.api_cfg && cart_dir == args.cart_dir;
  }
  void End() {
    if (handle != nullptr && pdbCleanup != nullptr)
      pdbCleanup(handle, kPapiKey, path.c_str(), store_cfg.c_str(), api_cfg.c_str(),
                 cart_dir.c_str());
    handle = nullptr;
  }
};

SharedConnection g_shared;

// A product-API connection on the category database for one page: the run
// scope's, or one of its own; a null handle when it cannot be opened (the
// page is still written).
class CategoryConnection {
 public:
  explicit CategoryConnection(const GeneratorArgs& args)
      : args_(args), path_(CategoryDbPath(args.db_path)) {
    if (g_shared.scopes > 0) {
      if (!g_shared.Matches(path_, args)) {
        g_shared.End();
        g_shared.handle = Open();
        g_shared.path = path_;
        g_shared.store_cfg = args.store_cfg;
        g_shared.api_cfg = args.api_cfg;
        g_shared.cart_dir = args.cart_dir;
      }
      handle_ = g_shared.handle;
      shared_ = true;
    } else {
      handle_ = Open();
    }
  }
  ~CategoryConnection() {
    if (!shared_ && handle_ != nullptr && pdbCleanup != nullptr)
      pdbCleanup(handle_, kPapiKey, path_.c_str(), args_.store_cfg, args_.api_cfg, args_.cart_dir);
  }
  CategoryConnection(const CategoryConnection&) = delete;
  CategoryConnection& operator=(const CategoryConnection&) = delete;

  void* handle() const { return handle_; }
  const char* path() const { return path_.c_str(); }

 private:
  void* Open() const {
    if (pdbInit == nullptr) return nullptr;
    return pdbInit(kPapiKey, path_.c_str(), args_.store_cfg, args_.api_cfg, args_.cart_dir);
  }

  const GeneratorArgs& args_;
  std::string path_;
  void* handle_ = nullptr;
  bool shared_ = false;
};

PageContext BaseContext(const GeneratorArgs& args) {
  PageContext ctx;
  ctx.store_cfg = args.store_cfg;
  ctx.cat_db_path = "";
  ctx.api_cfg = args.api_cfg;
  ctx.cart_dir = args.cart_dir;
  ctx.out_dir = args.out_dir;
  ctx.page_path = args.html_path;
  ctx.attr_db = args.attr_db;
  ctx.sku_list = args.sku_list;
  ctx.set = args.set;
  ctx.options = GenerationOptionsForRun();
  return ctx;
}

PageContext ConnectedContext(const GeneratorArgs& args, const CategoryConnection& conn) {
  PageContext ctx = BaseContext(args);
  ctx.cat_db = conn.handle();
  ctx.cat_db_path = conn.path();
  return ctx;
}

// A page the template set does not give completely: no entry of that kind
// and name, or an entry without its template or output file.
int Unresolved(const GeneratorArgs& args, int kind, const char* name) {
  static constexpr const char* kKeys[] = {
      "",           "ProductPage",        "SitePage",    "ShopHomePage",
      "SearchPage", "DefaultProductPage", "TillboxPage", "SecureFile"};
  const char* key = kind > 0 && kind < 8 ? kKeys[kind] : "";
  char tmpl[kPathSize] = "";
  char file[kPathSize] = "";
  std::string detail;
  Where where{args.set != nullptr ? args.set->file_name : ""};
  if (!PG_TpltGetOutputFile(args.set, name, file, sizeof file, kind)) {
    detail = std::string("the template set has no ") + key + " entry \"" + name + "\"";
  } else {
    PG_TpltGetTemplateFile(args.set, name, tmpl, sizeof tmpl, kind);
    where.line = ConfigValueLine(where.file.c_str(), name);
    detail = std::string("the ") + key + " entry \"" + name + "\" names no " +
             (tmpl[0] == '\0' ? "template file" : "output file") +
             "; an entry reads name;template;output file";
  }
  ReportError(where, detail, "Error resolving template display name\n");
  return kTemplateEntryNotFound;
}

// The output directory followed by |file| without its leading separator.
std::string OutputPath(const GeneratorArgs& args, std::string_view file) {
  if (!file.empty() && IsDirSlash(file.front())) file.remove_prefix(1);
  return std::string(args.out_dir) + std::string(file);
}

// A secure page is copied to the secure server after the run.
bool RegisterIfSecure(const GeneratorArgs& args, const char* display_name, int kind,
                      const char* file) {
  bool secure = PG_TpltIsSecureFile(args.set, display_name, kind) != 0;
  if (secure) PG_TpltAddSecureFile(args.set, file);
  return secure;
}

}  // namespace

CategoryConnectionScope::CategoryConnectionScope() {
  ++g_shared.scopes;
}

CategoryConnectionScope::~CategoryConnectionScope() {
  if (--g_shared.scopes == 0) g_shared.End();
}

void DetachCategoryConnection() {
  g_shared.handle = nullptr;
}

GeneratorArgs GeneratorArgsForRun(SkuList* sku_list) {
  GeneratorArgs args;
  args.html_path = PageGenState.szHtmlPath;
  args.db_path = PageGenState.szDbName;
  args.store_cfg = PageGenState.szConfig;
  args.api_cfg = PageGenState.szAPIConfig;
  args.cart_dir = PageGenState.szCartDir;
  args.out_dir = PageGenState.szOutPath;
  args.set = PageGenState.pTpltSet;
  args.attr_db = PageGenState.ad_handle;
  args.sku_list = sku_list;
  return args;
}

int GenerateSitePage(const char* display_name, const GeneratorArgs& args, int /*pass*/) {
  char tmpl[kPathSize] = "";
  char file[kPathSize] = "";
  if (!PG_TpltGetTemplateFile(args.set, display_name, tmpl, sizeof tmpl, kKindSitePage) ||
      !PG_TpltGetOutputFile(args.set, display_name, file, sizeof file, kKindSitePage) ||
      tmpl[0] == '\0' || file[0] == '\0') {
    return Unresolved(args, kKindSitePage, display_name);
  }
  PageContext ctx = BaseContext(args);
  ctx.sku_list = nullptr;
  ctx.output_file = file;
  ctx.secure = RegisterIfSecure(args, display_name, kKindSitePage, file);
  return GenerateHtmlPage(tmpl, OutputPath(args, file).c_str(), nullptr, ctx);
}

int GenerateSearchPage(const GeneratorArgs& args) {
  const char* html_out = GetIndexHtmlOut();
  if (html_out == nullptr) {
    ReportError({}, "the search index was not set up, so the search page is not written",
                "Index library not initialized, store not indexed\n");
    return kIndexNotSetUp;
  }
  char display[kDisplayNameSize] = "";
  if (!PG_TpltGetDisplayName(args.set, "SearchPage", display, sizeof display, kKindSearchPage)) {
    VerbosePrintf("No search template specified, store not indexed\n");
    return 0;
  }
  bool secure = RegisterIfSecure(args, display, kKindSearchPage, html_out);

  // An index output file below the HTML root must not repeat the store's
  // directory that ends the output directory.
  std::string dir = args.out_dir;
  if (IsDirSlash(html_out[0])) {
    std::string_view html = args.html_path;
    std::string_view alias = PageGenState.szHtmlAlias;
    if (!alias.empty() && html.starts_with(alias)) html.remove_prefix(alias.size());
    if (!html.empty() && std::string_view(dir).ends_with(html))
      dir.resize(dir.size() - html.size());
  }
  std::string path = dir + html_out;
  EnsurePGPDir(path.c_str());

  char tmpl[kPathSize] = "";
  if (!PG_TpltGetTemplateFile(args.set, display, tmpl, sizeof tmpl, kKindSearchPage))
    return Unresolved(args, kKindSearchPage, display);
  if (tmpl[0] == '\0') {
    VerbosePrintf("No search template specified, store not indexed\n");
    return 0;
  }
  CategoryConnection conn(args);
  PageContext ctx = ConnectedContext(args, conn);
  ctx.sku_list = nullptr;
  ctx.output_file = html_out;
  ctx.secure = secure;
  return GenerateHtmlPage(tmpl, path.c_str(), nullptr, ctx);
}

int GenerateTillboxPage(const char* display_name, const GeneratorArgs& args) {
  static constexpr struct {
    const char* display_name;
    const char* key;
  } kAnnounced[] = {
      {"Take Order", "OnlineOrderPage"},
      {"Geography Prompt", "PromptForGeographyPage"},
      {"Show Cart", "PostModCartPage"},
      {"Error", "ErrorPage"},
  };
  char file[kPathSize] = "";
  if (!PG_TpltGetOutputFile(args.set, display_name, file, sizeof file, kKindCartPage))
    return Unresolved(args, kKindCartPage, display_name);
  bool secure = RegisterIfSecure(args, display_name, kKindCartPage, file);

  for (const auto& a : kAnnounced) {
    if (!EqualsNoCase(display_name, a.display_name)) continue;
    char base[kPathSize] = "";
    if (a.key == std::string_view("OnlineOrderPage")) {
      GetConfigItem(args.store_cfg, "SecureStoreDir", base, sizeof base, 0);
      AppendSlashIfMissing(base);
    }
    if (base[0] == '\0') CopyTruncated(base, args.html_path);
    std::string_view name = file;
    if (!name.empty() && IsDirSlash(name.front())) name.remove_prefix(1);
    if (!SetStoreConfigItem(args.store_cfg, a.key, std::string(base) + std::string(name)))
      return kOutOfMemory;
    break;
  }

  char tmpl[kPathSize] = "";
  if (!PG_TpltGetTemplateFile(args.set, display_name, tmpl, sizeof tmpl, kKindCartPage))
    return Unresolved(args, kKindCartPage, display_name);
  CategoryConnection conn(args);
  PageContext ctx = ConnectedContext(args, conn);
  ctx.sku_list = nullptr;
  ctx.output_file = file;
  ctx.secure = secure;
  return GenerateHtmlPage(tmpl, OutputPath(args, file).c_str(), nullptr, ctx);
}

int GenerateShopHomePage(const char* reference, const GeneratorArgs& args) {
  char display[kDisplayNameSize] = "";
  char file[kPathSize] = "";
  char tmpl[kPathSize] = "";
  if (!PG_TpltGetDisplayName(args.set, reference, display, sizeof display, kKindShopHomePage))
    return Unresolved(args, kKindShopHomePage, reference);
  if (!PG_TpltGetOutputFile(args.set, display, file, sizeof file, kKindShopHomePage) ||
      !PG_TpltGetTemplateFile(args.set, display, tmpl, sizeof tmpl, kKindShopHomePage)) {
    return Unresolved(args, kKindShopHomePage, display);
  }
  bool secure = RegisterIfSecure(args, display, kKindShopHomePage, file);
  CopyTruncated(PageGenState.szShopHomeName, file);
  CopyTruncated(PageGenState.szTemplateFile, tmpl);
  if ((PageGenState.dynamic & (kDynProductPages | kDynListPages)) != 0 &&
      !SetStoreConfigItem(args.store_cfg, kShopHomeListTemplateKey, tmpl)) {
    return kOutOfMemory;
  }
  CategoryConnection conn(args);
  PageContext ctx = ConnectedContext(args, conn);
  ctx.output_file = file;
  ctx.secure = secure;
  ctx.product_lists = true;
  // The category pages written from the page's category list each list
  // their category's products.
  CategoryIndex categories(args.sku_list);
  ctx.categories = &categories;
  return GenerateHtmlPage(tmpl, OutputPath(args, file).c_str(), nullptr, ctx);
}

int GenerateProdListPage(const GeneratorArgs& args, const char* list_start, const char* category) {
  CategoryConnection conn(args);
  PageContext ctx = ConnectedContext(args, conn);
  ctx.product_lists = true;
  ctx.list_start = list_start != nullptr ? list_start : "";
  ctx.category = category != nullptr && *category != '\0' ? category : nullptr;
  return GenerateHtmlPage(PageGenState.szTemplateFile, nullptr, nullptr, ctx);
}

int GenerateSkuPage(const SkuList* node, const GeneratorArgs& args) {
  if (node->tmplt == nullptr) return GenerateHtmlPage(nullptr, nullptr, node, BaseContext(args));
  char name[kPathSize] = "";
  GetSafeFileName(node->sku != nullptr ? node->sku : "", name, sizeof name, "p-", ".html");
  CategoryConnection conn(args);
  PageContext ctx = ConnectedContext(args, conn);
  ctx.product_lists = true;
  return GenerateHtmlPage(node->tmplt, OutputPath(args, name).c_str(), node, ctx);
}

}  // namespace storegen
