#include "index/search_index.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "cgisupport/copy_truncated.h"
#include "index/index_files.h"
#include "index/index_state.h"

namespace storegen {
namespace {

IndexState g_index_state;
IndexSettings g_index_settings;

// Set-up shared by InitIndex and InitIndexNoCreate: the working directory,
// the WAIS template's settings, the ".wcf" path and whether the store is new.
// Fills the ".wcf" name, the output directory and the template's values.
struct IndexSetup {
  IndexField wcf_name;
  IndexField out_dir;
  IndexField default_url;
  IndexField home_page;
  IndexField index_page;
};

int PrepareIndex(const char* store_name, const char* html_out_dir, const char* root_dir,
                 IndexSetup& setup) {
  IndexState& st = g_index_state;
  char* cwd = getcwd(nullptr, 0);
  CopyTruncated(st.szCurDir, cwd != nullptr ? cwd : "");
  std::free(cwd);
  if (!GetRootDir(root_dir)) return 0;
  if (!GetIndexWhat(st.szIndexWhat, setup.default_url, setup.home_page, setup.index_page)) {
    return 0;
  }
  st.gszSelfURL[0] = '\0';
  st.gszHtmlOut[0] = '\0';
  std::string name = store_name != nullptr ? store_name : "";
  name += ".wcf";
  CopyTruncated(setup.wcf_name, name);
  CopyTruncated(st.szCFG, std::string(lpSwishDir) + name);
  st.nNewStore = access(st.szCFG, F_OK) != 0 ? 1 : 0;

  std::string_view dir = html_out_dir != nullptr ? html_out_dir : "";
  if (EndsWithDirSlash(dir)) dir.remove_suffix(1);
  CopyTruncated(setup.out_dir, dir);
  return 1;
}

}  // namespace

IndexSettings& GetIndexSettings() {
  return g_index_settings;
}

IndexState& GetIndexState() {
  return g_index_state;
}

void ResetIndexState() {
  g_index_state = IndexState{};
  g_index_settings = IndexSettings{};
}

int InitIndex(const char* store_name, const char* html_out_dir, const char* alias,
              const char* root_dir) {
  IndexState& st = g_index_state;
  IndexSetup setup{};
  if (!PrepareIndex(store_name, html_out_dir, root_dir, setup)) return 0;
  IndexField new_page{};
  if (!CreateWaisCfg(st.szCFG, setup.wcf_name, setup.out_dir, setup.home_page, new_page, alias)) {
    return 0;
  }
  if (!WriteDefaultURL(new_page, setup.default_url)) return 0;
  if (!CreateSwishCfg(st.szCFG, setup.out_dir, alias)) return 0;
  ApplySourceRule(st.gszHtmlOut);
  st.Init = 1;
  return 1;
}

int InitIndexNoCreate(const char* store_name, const char* html_out_dir, const char* alias,
                      const char* root_dir) {
  IndexState& st = g_index_state;
  IndexSetup setup{};
  if (!PrepareIndex(store_name, html_out_dir, root_dir, setup)) return 0;
  // Only the values of the two lines are wanted; no file is written.
  IndexField line;
  IndexField new_page;
  SetSelfURL(line, setup.wcf_name, alias);
  SetPageTitle(line, new_page, setup.wcf_name, setup.out_dir, alias);
  ApplySourceRule(st.gszHtmlOut);
  st.Init = 1;
  return 1;
}

void ShutdownIndex() {
  IndexState& st = g_index_state;
  if (!st.Init) return;
  char* here = getcwd(nullptr, 0);
  if (chdir(st.szCurDir) == 0) {
    ExecSwish(g_index_settings.store_config);
    if (st.nNewStore) UpdateMasterList(st.szCFG);
    if (here != nullptr && chdir(here) != 0) {
      // The caller's directory is gone; stay where the indexer ran.
    }
  }
  std::free(here);
}

void ShutdownIndexNoCreate() {}

const char* GetIndexHtmlOut() {
  return g_index_state.Init ? g_index_state.gszHtmlOut : nullptr;
}

const char* GetIndexSelfURL() {
  return g_index_state.Init ? g_index_state.gszSelfURL : nullptr;
}

const char* GetMessageStr(int code) {
  switch (code) {
    case 9002:
      return "Store Index";
    case 9003:
      return "replace";
    case 9007:
      return "Search";
    case 9014:
      return "Can't open Wais configuration file template ( wwwwais.cfg ).\n";
    case 9015:
      return "Can't create Wais configuration file.\n";
    case 9016:
      return "Can't open configuration file.\n";
    case 9017:
      return "Can't create temporary file.\n";
    case 9018:
      return "Can't write default URL to file.\n";
    case 9019:
      return "Can't open Swish configuration file template ( swish.cfg ).\n";
    case 9020:
      return "Can't create Swish configuration file: %s.\n";
    case 9039:
      return "Can't open category list HTML file.\n";
    case 9043:
      return "Can't find end of the category list.\n";
    case 9044:
      return "Can't create category list TEMP file.\n";
    case 9045:
      return "Can't update master list file.\n";
    default:
      return "";
  }
}

void ApplySourceRule(char* path) {
  const char* root = g_index_state.gszRootDir;
  if (path == nullptr || root[0] == '\0') return;
  char* found = std::strstr(path, root);
  if (found == nullptr) return;
  const char* rest = found + std::strlen(root);
  std::memmove(path, rest, std::strlen(rest) + 1);
}

}  // namespace storegen
