#include "driver/admin/admin_config.h"

#include <unistd.h>

#include <memory>

#include "cgisupport/config_file.h"
#include "cgisupport/copy_truncated.h"

namespace storegen {
namespace {

constexpr int kValueSize = 4096;

// The value of |key|, empty when absent.
std::string Item(const std::string& file, const char* key) {
  auto buf = std::make_unique<char[]>(kValueSize);
  buf[0] = '\0';
  GetConfigItem(file.c_str(), key, buf.get(), kValueSize, 0);
  return buf.get();
}

// |path| made absolute against |base| (a directory ending in '/'), with
// trailing separators removed.
std::string Absolute(std::string path, const std::string& base) {
  if (path.empty()) return path;
  if (path.front() != '/') path = base + path;
  while (path.size() > 1 && IsDirSlash(path.back()))
    path.pop_back();
  return path;
}

}  // namespace

bool LoadAdminConfig(const std::string& path, AdminConfig* config, std::string* error) {
  char probe[2];
  if (GetConfigItem(path.c_str(), "StoregenProgram", probe, sizeof probe, 0) == -1) {
    *error = "cannot read " + path;
    return false;
  }
  std::string base;
  std::size_t slash = path.find_last_of('/');
  if (slash != std::string::npos) {
    base = path.substr(0, slash + 1);
  }
  if (base.empty() || base.front() != '/') {
    std::string cwd(4096, '\0');
    if (getcwd(cwd.data(), cwd.size()) != nullptr) {
      cwd.resize(cwd.find('\0'));
      base = cwd + "/" + base;
    }
  }
  config->storegen = Absolute(Item(path, "StoregenProgram"), base);
  config->store_dir = Absolute(Item(path, "StoreConfigDir"), base);
  config->template_dir = Absolute(Item(path, "TemplateDir"), base);
  config->html_root = Absolute(Item(path, "HtmlRoot"), base);
  config->html_alias = Item(path, "HtmlAlias");
  while (!config->html_alias.empty() && IsDirSlash(config->html_alias.back())) {
    config->html_alias.pop_back();
  }
  config->admin_mail = Item(path, "AdminMail");
  const char* missing = config->storegen.empty()       ? "StoregenProgram"
                        : config->store_dir.empty()    ? "StoreConfigDir"
                        : config->template_dir.empty() ? "TemplateDir"
                                                       : nullptr;
  if (missing != nullptr) {
    *error = std::string(missing) + " is not set in " + path;
    return false;
  }
  return true;
}

}  // namespace storegen
