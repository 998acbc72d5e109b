#include "driver/generation_run.h"

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "cgisupport/config_hints.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/run_state.h"
#include "driver/page_processes.h"
#include "index/search_index.h"
#include "pagegen/filelist/file_list.h"
#include "pagegen/page_generators.h"
#include "pagegen/progress.h"
#include "storedata/sku_list.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr int kDisplayNameSize = 2048;

// The display names of one kind, taken before any page is written so that
// nothing a generator does can move the template set's iteration cursor.
std::vector<std::string> DisplayNames(const TemplateSet* set, int kind) {
  std::vector<std::string> names;
  char name[kDisplayNameSize];
  for (int more = PG_TpltGetNextDisplayName(set, name, sizeof name, kind); more;
       more = PG_TpltGetNextDisplayName(nullptr, name, sizeof name, kind)) {
    names.emplace_back(name);
  }
  return names;
}

// Records a failed page under its output file, when the entry has one.
void RecordFailure(const char* display_name, int kind, int rc) {
  char file[kPathSize] = "";
  if (PG_TpltGetOutputFile(PageGenState.pTpltSet, display_name, file, sizeof file, kind))
    FileListAdd(&PageGenState.errlist, file, rc);
}

bool ShopHomeIsSet() {
  return PageGenState.pszShopHome != nullptr && PageGenState.pszShopHome[0] != '\0';
}

// Looks the shop home page's output file up into szShopHomeName, which the
// links into the cart's home name on every page. False when the template
// set has no such page.
bool ResolveShopHomeName() {
  RunState& st = PageGenState;
  char display[kDisplayNameSize];
  return PG_TpltGetDisplayName(st.pTpltSet, st.pszShopHome, display, sizeof display,
                               kKindShopHomePage) &&
         PG_TpltGetOutputFile(st.pTpltSet, display, st.szShopHomeName, sizeof st.szShopHomeName,
                              kKindShopHomePage);
}

// "-s": the one site page asked for, or all of them; none when the shop home
// page named by the store is not known.
int GenerateSitePages(bool shop_home_known, bool* done) {
  RunState& st = PageGenState;
  if (!shop_home_known) {
    ReportError({st.szConfig, ConfigKeyLine(st.szConfig, "PageGenShopHomePage")},
                std::string("PageGenShopHomePage \"") + st.pszShopHome +
                    "\" names no ShopHomePage entry of the template set that has an output file",
                "Error resolving template display name\n");
    *done = true;
    return -13;
  }
  GeneratorArgs args = GeneratorArgsForRun(nullptr);
  if (std::atoi(st.szSitePageIdx) != 0) {
    *done = true;
    std::string reference = std::string("SitePage") + st.szSitePageIdx;
    char display[kDisplayNameSize];
    if (!PG_TpltGetDisplayName(st.pTpltSet, reference.c_str(), display, sizeof display,
                               kKindSitePage)) {
      return 0;
    }
    ProgressPlanPages(1);
    return GenerateSitePage(display, args, 1);
  }
  int result = 0;
  const std::vector<std::string> names = DisplayNames(st.pTpltSet, kKindSitePage);
  ProgressPlanPages(2 * static_cast<int64_t>(names.size()));
  for (int pass = 0; pass < 2; ++pass) {
    for (const std::string& name : names) {
      int rc = GenerateSitePage(name.c_str(), args, pass);
      if (rc == 0) continue;
      result = rc;
      if (pass == 1) RecordFailure(name.c_str(), kKindSitePage, rc);
    }
  }
  return result;
}

// The run's product list is freed when the next run in this process starts
// (or ReleaseKeptProducts), or not at all when the process ends first:
// freeing tens of thousands of records one by one just before the process
// exits would only delay its end.
SkuList* g_kept_products = nullptr;  // reachable until the process ends

void KeepUntilNextRun(SkuList* list) {
  FreeSkuList(std::exchange(g_kept_products, list));
}

// GeneratePages without its category-connection scope and progress display.
int GenerateAllPages() {
  RunState& st = PageGenState;
  const bool single = (st.dynamic & kDynSinglePage) != 0;
  int result = 0;
  // Every page knows the shop home page before any is written: dynamic
  // pages, and product pages written beside the shop home series, name it
  // as the pages written after it do. A set without it is reported where
  // the site pages or the shop home page are written.
  const bool shop_home_known = !ShopHomeIsSet() || ResolveShopHomeName();

  if (st.sitepages) {
    bool done = false;
    int rc = GenerateSitePages(shop_home_known, &done);
    if (done) return rc;
    result = rc;
  }

  SkuList* full = nullptr;  // every product of the store, built here
  SkuList* walk = nullptr;  // the products whose pages are written
  if (st.dynamic & kDynListRequest) {
    SkuList* list = BuildAllSkuList(st.szDbName, st.szConfig, st.szAPIConfig, st.szCartDir,
                                    st.pTpltSet, st.szCategory, st.szFirstSkuIdx, 1, &st.errlist);
    result = GenerateProdListPage(GeneratorArgsForRun(list), st.szFirstSkuIdx, st.szCategory);
    FreeSkuList(list);
    return result;
  }
  if (single && st.pSkuList != nullptr) {
    // A SKU the database does not know keeps no template and record (and
    // gets no page).
    if (int rc = FillSkuData(st.pSkuList, st.szDbName, st.szConfig, st.szAPIConfig, st.szCartDir,
                             st.pTpltSet, &st.errlist);
        rc != 0) {
      result = rc;
    }
    walk = st.pSkuList;
  } else if (!single && (st.dynamic & kDynProductPages) == 0) {
    // Static product pages are wanted also when only the list pages are
    // served dynamically, since those link to them.
    full = BuildAllSkuList(st.szDbName, st.szConfig, st.szAPIConfig, st.szCartDir, st.pTpltSet,
                           nullptr, nullptr, 0, &st.errlist);
    walk = full;
    if (st.pSkuList != nullptr) {
      if (!CopySkuData(st.pSkuList, full)) result = -1;
      walk = st.pSkuList;
    }
  }

  // The shop home series and the product pages: the product pages may be
  // written by two processes, the first of them beginning with the series.
  // The lists of a static run hold every product, also when the product
  // pages are not written: page after page, and in every category.
  const bool home = !single && ShopHomeIsSet();
  if (home && full == nullptr) {
    full = BuildAllSkuList(st.szDbName, st.szConfig, st.szAPIConfig, st.szCartDir, st.pTpltSet,
                           nullptr, nullptr, 0, &st.errlist);
  }
  int product_pages_wanted = home ? PG_TpltAreThereProdPages(st.pTpltSet, st.pszShopHome) : 1;
  if (st.dynamic & kDynProductPages) product_pages_wanted = 0;
  std::vector<const SkuList*> nodes;
  if (single || product_pages_wanted) {
    for (const SkuList* node = walk; node != nullptr; node = node->next) {
      // A SKU the database does not know was reported already.
      if (node->sku != nullptr && !(single && node->tmplt == nullptr && node->record == nullptr))
        nodes.push_back(node);
    }
    ProgressPlanPages(static_cast<int64_t>(nodes.size()));
  }
  auto write_home = [&] {
    if (!home) return;
    ProgressPlanPages(1);
    int rc = GenerateShopHomePage(st.pszShopHome, GeneratorArgsForRun(full));
    if (rc != 0) {
      char display[kDisplayNameSize];
      if (PG_TpltGetDisplayName(st.pTpltSet, st.pszShopHome, display, sizeof display,
                                kKindShopHomePage)) {
        RecordFailure(display, kKindShopHomePage, rc);
      }
      result = rc;
    }
  };
  const GeneratorArgs args = GeneratorArgsForRun(full);
  int rc =
      WriteRunPages(write_home, nodes, PageProcesses(nodes.size()), [&args](const SkuList* node) {
        int rc = GenerateSkuPage(node, args);
        if (rc != 0) FileListAdd(&PageGenState.errlist, node->sku, rc);
        return rc;
      });
  if (rc != 0) result = rc;

  if (!single) {
    GeneratorArgs args = GeneratorArgsForRun(nullptr);
    const std::vector<std::string> cart_pages = DisplayNames(st.pTpltSet, kKindCartPage);
    ProgressPlanPages(static_cast<int64_t>(cart_pages.size()));
    for (const std::string& name : cart_pages) {
      int rc = GenerateTillboxPage(name.c_str(), args);
      if (rc != 0) {
        RecordFailure(name.c_str(), kKindCartPage, rc);
        result = rc;
      }
    }
    if (st.szAllowIndex[0] == 'y') {
      ProgressPlanPages(1);
      int rc = GenerateSearchPage(args);
      if (rc != 0) {
        char display[kDisplayNameSize];
        const char* html_out = GetIndexHtmlOut();
        if (PG_TpltGetDisplayName(st.pTpltSet, "SearchPage", display, sizeof display,
                                  kKindSearchPage) &&
            html_out != nullptr) {
          FileListAdd(&st.errlist, html_out, rc);
        }
        result = rc;
      }
    }
  }

  KeepUntilNextRun(full);
  return result;
}

}  // namespace

void ReleaseKeptProducts() {
  KeepUntilNextRun(nullptr);
}

bool IsStaticRun() {
  return (PageGenState.dynamic & (kDynSinglePage | kDynListRequest)) == 0;
}

int GeneratePages() {
  // The pages of a run share one connection on the category database.
  CategoryConnectionScope category_connection;
  // A static run shows its progress to a person at a terminal, on standard
  // error: standard output carries the run's own messages.
  if (IsStaticRun()) ProgressBegin(STDERR_FILENO);
  int result = GenerateAllPages();
  ProgressEnd();
  return result;
}

}  // namespace storegen
