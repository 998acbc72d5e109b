#include "pagegen/cart_links.h"

#include <errno.h>

#include <algorithm>
#include <cstdlib>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/path_util.h"
#include "cgisupport/run_state.h"
#include "pagegen/text_match.h"

namespace storegen {

std::string ConfigValue(const char* store_cfg, const char* key, int size) {
  std::string value;
  if (size <= 0 || GetConfigValue(store_cfg, key, &value, 0) != 1) return "";
  // As read into a buffer of |size| bytes and taken as a C string.
  value.resize(std::min({value.size(), value.find('\0'), static_cast<std::size_t>(size) - 1}));
  return value;
}

std::string WithTrailingSlash(std::string_view value) {
  std::string s(value);
  if (!EndsWithDirSlash(s)) s += '/';
  return s;
}

std::string StoreDirSegment(const char* store_cfg) {
  std::string dir = ConfigValue(store_cfg, "StoreDir");
  if (!dir.empty() && IsDirSlash(dir.front())) dir.erase(0, 1);
  return dir.empty() ? dir : WithTrailingSlash(dir);
}

std::string_view ConfigFileName(const char* store_cfg) {
  return BaseName(store_cfg != nullptr ? store_cfg : "");
}

std::string_view StoreShortName(const char* store_cfg) {
  std::string_view name = ConfigFileName(store_cfg);
  std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos ? name : name.substr(0, dot);
}

std::string CartProgramName(const char* store_cfg) {
  char name[256] = "";
  GetTillboxName(store_cfg, name, sizeof name);
  return name;
}

std::string CartHomeEntry(const char* store_cfg, const char* page_path) {
  std::string entry = CartProgramName(store_cfg);
  entry += page_path != nullptr && IsDirSlash(page_path[0]) ? page_path : "/";
  entry += PageGenState.szShopHomeName;
  entry += "?E+";
  entry += StoreShortName(store_cfg);
  return entry;
}

std::string PageGenProgramName(const char* store_cfg) {
  std::string prog = ConfigValue(store_cfg, "PageGenProg");
  if (prog.empty()) return program_invocation_short_name;
  return std::string(BaseName(prog));
}

std::string PageGenProgramUrl(const char* store_cfg) {
  return "USERPROG#" + WithTrailingSlash(ConfigValue(store_cfg, "CGIBinDirectory")) +
         PageGenProgramName(store_cfg);
}

std::string RunningCgiDirectory(const char* store_cfg) {
  const char* script = std::getenv("SCRIPT_NAME");
  if (script == nullptr || *script == '\0') return ConfigValue(store_cfg, "CGIBinDirectory");
  std::string_view s = script;
  std::size_t slash = s.find_last_of("/\\");
  return std::string(slash == std::string_view::npos ? std::string_view() : s.substr(0, slash));
}

}  // namespace storegen
