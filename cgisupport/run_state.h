// The run's state: one process-wide record. Not reentrant.
//
// Who writes which field (every module may read any of them):
// - the driver's command line and start-up: the options and paths (verbose,
//   sz* paths and names, pszShopHome, szCategory, szSitePageIdx,
//   szFirstSkuIdx, szAllowIndex, szExcludeDirs, sitepages, copydirs, dynamic),
//   the objects it opens (pSkuList, pTpltSet, ad_handle) and the process's
//   files (fdPID, fpRedirect);
// - the page generators: szShopHomeName and szTemplateFile, the output file
//   and template of the shop home page or category list being written (the
//   driver sets them first for a list request);
// - errlist and dellist collect failed pages and files to delete: the
//   page generators, the SKU-list builder and the generation run add to them,
//   the driver's page processes move them between processes and report them.
#ifndef STOREGEN_CGISUPPORT_RUN_STATE_H_
#define STOREGEN_CGISUPPORT_RUN_STATE_H_

#include <cstdint>
#include <cstdio>

namespace storegen {

struct SkuList;
struct TemplateSet;
struct AttributePool;
struct FileList;

// Bits of RunState::dynamic.
enum DynamicBits : uint32_t {
  kDynSinglePage = 1,    // "-p" or "-f": one page to standard output
  kDynProductPages = 2,  // the store serves product pages dynamically
  kDynListRequest = 4,   // "-f": this request is a product list page
  kDynListPages = 8,     // the store serves product list pages dynamically
};

// Bits of the template parser's generation options.
enum GenerationOptions : uint32_t {
  kGenRewriteLinks = 1,     // always set by the page generators
  kGenDynamicProducts = 2,  // = kDynProductPages
  kGenDynamicLists = 8,     // = kDynListPages
};

inline constexpr int kPathSize = 256;
inline constexpr int kShopHomeSize = 112;  // strlen("ShopHomePage") + 100

// Store-configuration keys naming the templates of dynamic list pages ("-f"
// without "-t"). A static run writes both when pages are served dynamically:
// the shop home page's template, which its list continues on in a request
// without a category, and the category list template of its category block,
// for a request for one category ("-C"). A category request in a store that
// names no category list template falls back to the shop home page's.
inline constexpr char kShopHomeListTemplateKey[] = "PageGenShopHomeListTplt";
inline constexpr char kCategoryListTemplateKey[] = "PageGenCategoryListTplt";

struct RunState {
  int32_t verbose = 0;
  char szOutPath[kPathSize] = {};
  char szHtmlPath[kPathSize] = {};
  char szHtmlAlias[kPathSize] = {};
  char szDbName[kPathSize] = {};
  char szAttrDb[kPathSize] = {};
  char szAPILib[kPathSize] = {};
  char szTmpltSet[kPathSize] = {};
  char szConfig[kPathSize] = {};
  char szAPIConfig[kPathSize] = {};
  char szCartDir[kPathSize] = {};
  char* pszShopHome = nullptr;  // kShopHomeSize bytes, malloc'd by start-up
  char szSitePageIdx[200] = {};
  char szFirstSkuIdx[200] = {};
  char szTemplateFile[kPathSize] = {};
  char szExcludeDirs[kPathSize] = {};
  char szAllowIndex[2048] = {};
  char szCategory[2048] = {};
  SkuList* pSkuList = nullptr;
  TemplateSet* pTpltSet = nullptr;
  AttributePool* ad_handle = nullptr;
  int32_t sitepages = 0;
  int32_t copydirs = 0;
  uint32_t dynamic = 0;
  FileList* errlist = nullptr;
  FileList* dellist = nullptr;
  int32_t fdPID = -1;
  FILE* fpRedirect = nullptr;
  char szShopHomeName[kPathSize] = {};
};

// The process-wide run state.
extern RunState PageGenState;

// True when "-v" was given: progress and error messages go to standard output.
inline bool Verbose() {
  return PageGenState.verbose != 0;
}

// printf to standard output, only in verbose mode.
void VerbosePrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The template parser's generation options for this run: link rewriting plus
// the store's dynamic product/list bits.
uint32_t GenerationOptionsForRun();

// Puts the record back in its start state; what it owns must have been freed.
void ResetRunState();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_RUN_STATE_H_
