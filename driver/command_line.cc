#include "driver/command_line.h"

#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/path_util.h"
#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "driver/run_files.h"
#include "driver/run_messages.h"
#include "index/search_index.h"
#include "storedata/sku_list.h"

namespace storegen {
namespace {

constexpr int kKeyValueSize = 2048;

bool StartsWithNo(const char* value) {
  return value[0] == 'N' || value[0] == 'n';
}

bool StartsWithYes(const char* value) {
  return value[0] == 'Y' || value[0] == 'y';
}

// A word after "-C" that ends the category: empty, or an option word of
// exactly two characters (so "-10" still counts as a category word).
bool EndsCategory(const char* word) {
  return word[0] == '\0' || (word[0] == '-' && std::strlen(word) == 2);
}

bool TakesValue(char letter) {
  return letter != '\0' && std::strchr("oastfCc", letter) != nullptr;
}

// Appends a node for |sku| at the tail of the command line's SKU list.
int AddSkuArgument(const char* sku) {
  SkuList* node = NewSkuNode();
  if (node == nullptr) {
    ReportOutOfMemory();
    return kOutOfMemory;
  }
  SkuList** tail = &PageGenState.pSkuList;
  while (*tail != nullptr)
    tail = &(*tail)->next;
  *tail = node;  // linked first, so that shut-down frees it on every path
  node->sku = strdup(sku);
  if (node->sku == nullptr) {
    ReportOutOfMemory();
    return kOutOfMemory;
  }
  return kOk;
}

// Appends the words from argv[first] on up to the first word that ends the
// category; returns the index of that word (or argc).
int CollectCategory(int argc, char** argv, int first) {
  int i = first;
  for (; i < argc && !EndsCategory(argv[i]); ++i) {
    if (PageGenState.szCategory[0] != '\0') AppendTruncated(PageGenState.szCategory, " ");
    AppendTruncated(PageGenState.szCategory, argv[i]);
  }
  return i;
}

void ApplyFlag(char letter, CommandLine* cl) {
  RunState& st = PageGenState;
  switch (letter) {
    case 'v':
      st.verbose = 1;
      break;
    case 'b':
      RedirectOutputToStatusLog();
      cl->report = true;
      break;
    case 'd':
      st.copydirs = 1;
      cl->full_run = false;
      break;
    case 'p':
      st.dynamic |= kDynSinglePage;
      break;
    default:
      break;  // letters the program does not know are ignored
  }
}

int ApplyValue(char letter, const char* value, CommandLine* cl) {
  RunState& st = PageGenState;
  switch (letter) {
    case 'o':
      CopyTruncated(st.szOutPath, value);
      ResolvePath(st.szOutPath, kPathSize);
      cl->out_given = true;
      break;
    case 'a':
      CopyTruncated(st.szHtmlAlias, value);
      cl->alias_given = true;
      break;
    case 's':
      st.sitepages = 1;
      CopyTruncated(st.szSitePageIdx, value);
      cl->single_site_page = std::atoi(value) != 0;
      if (cl->single_site_page) cl->full_run = false;
      break;
    case 't':
      CopyTruncated(st.szTemplateFile, value);
      break;
    case 'f':
      CopyTruncated(st.szFirstSkuIdx, value);
      st.dynamic |= kDynSinglePage | kDynListRequest;
      cl->full_run = false;
      break;
    case 'c':
      return ReadStoreConfig(value, cl);
    default:
      break;
  }
  return kOk;
}

// Reads a required key into |buf|; prints "<key> not found in <file>" when it
// is missing (on standard error too when the run cannot go on without it).
// Returns true when the key has a value.
bool ReadRequiredKey(const char* key, char* buf, int size, bool run_needs_it) {
  if (GetConfigItem(PageGenState.szConfig, key, buf, size, 1) == 1) return true;
  if (run_needs_it) {
    ReportMissingKey(PageGenState.szConfig, key);
  } else {
    VerbosePrintf("%s not found in %s\n", key, PageGenState.szConfig);
  }
  return false;
}

void ReadDynamicPageKeys() {
  RunState& st = PageGenState;
  char value[kKeyValueSize] = {};
  if (GetConfigItem(st.szConfig, "PageGenDynamicProductPages", value, sizeof value, 1) == 1 &&
      !StartsWithNo(value)) {
    st.dynamic |= kDynProductPages | kDynListPages;
  }
  value[0] = '\0';
  GetConfigItem(st.szConfig, "PageGenDynamicListPages", value, sizeof value, 0);
  if (StartsWithNo(value)) {
    st.dynamic &= ~static_cast<uint32_t>(kDynListPages);
  } else if (StartsWithYes(value)) {
    st.dynamic |= kDynListPages;
  }
}

}  // namespace

std::string ShortStoreName(const char* cfg_path) {
  std::string_view name(cfg_path);
  name = name.substr(0, name.find('.'));
  std::size_t sep = name.find_last_of("/\\");
  if (sep != std::string_view::npos) name.remove_prefix(sep);
  return std::string(name);
}

int ReadStoreConfig(const char* cfg, CommandLine* cl) {
  RunState& st = PageGenState;
  CopyTruncated(st.szConfig, cfg);
  cl->store_name = ShortStoreName(st.szConfig);
  CopyTruncated(GetIndexSettings().store_config, st.szConfig);
  ResolvePath(st.szConfig, kPathSize);

  struct stat info;
  if (stat(st.szConfig, &info) != 0) {
    ReportStoreConfigNotFound(cfg, st.szConfig, cl->start_dir);
    return kFileNotFound;
  }

  char value[kKeyValueSize] = {};
  if (GetConfigItem(st.szConfig, "AllowPagegen", value, sizeof value, 1) != 1 ||
      StartsWithNo(value)) {
    ReportGeneratorNotAllowed(st.szConfig);
    return kGeneratorNotEnabled;
  }
  ReadDynamicPageKeys();
  if (ReadRequiredKey("ShoppingCartDirectory", st.szCartDir, kPathSize, false)) {
    ResolvePath(st.szCartDir, kPathSize);
  }
  if (!ReadRequiredKey("PageGenTmpltSet", st.szTmpltSet, kPathSize, true)) return kBadCommandLine;
  if (!ReadRequiredKey("StoreDir", st.szHtmlPath, kPathSize, true)) return kBadCommandLine;
  GetConfigItem(st.szConfig, "ProductDatabase", st.szDbName, kPathSize, 0);
  GetConfigItem(st.szConfig, "ProductAPILibrary", st.szAPILib, kPathSize, 0);
  GetConfigItem(st.szConfig, "ProductAPILibConfig", st.szAPIConfig, kPathSize, 0);

  std::free(st.pszShopHome);  // a second "-c" replaces the first one's name
  st.pszShopHome = static_cast<char*>(std::calloc(kShopHomeSize, 1));
  if (st.pszShopHome == nullptr) {
    ReportOutOfMemory();
    return kOutOfMemory;
  }
  GetConfigItem(st.szConfig, "PageGenShopHomePage", st.pszShopHome, kShopHomeSize, 0);
  return kOk;
}

int ParseCommandLine(int argc, char** argv, CommandLine* cl) {
  for (int i = 1; i < argc; ++i) {
    const char* word = argv[i];
    if (word[0] != '-') {
      cl->full_run = false;
      if (int rc = AddSkuArgument(word); rc != kOk) return rc;
      continue;
    }
    char letter = word[1];
    if (!TakesValue(letter)) {
      ApplyFlag(letter, cl);
      continue;
    }
    if (i + 1 >= argc) {
      ReportMissingValue(word);
      return kBadCommandLine;
    }
    if (letter == 'C') {
      i = CollectCategory(argc, argv, i + 1) - 1;
      continue;
    }
    if (int rc = ApplyValue(letter, argv[++i], cl); rc != kOk) return rc;
  }
  return kOk;
}

}  // namespace storegen
