#include "driver/admin/admin_config.h"

#include "cgisupport/copy_truncated.h"
#include "cgisupport/program_config.h"

namespace storegen {

bool LoadAdminConfig(const std::string& path, AdminConfig* config, std::string* error) {
  ProgramConfig file(path);
  if (!file.Readable()) {
    *error = "cannot read " + path;
    return false;
  }
  config->storegen = file.PathValue("StoregenProgram");
  config->store_dir = file.PathValue("StoreConfigDir");
  config->template_dir = file.PathValue("TemplateDir");
  config->html_root = file.PathValue("HtmlRoot");
  config->html_alias = file.Value("HtmlAlias");
  while (!config->html_alias.empty() && IsDirSlash(config->html_alias.back())) {
    config->html_alias.pop_back();
  }
  config->admin_mail = file.Value("AdminMail");
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
