// The configuration of the management CGI program storegen-admin: which page
// generator it starts and the only directories in which it looks up the
// stores and template sets that a request names.
//
// The file has "key<TAB>value" lines like every configuration file of the
// system. Relative paths are taken relative to the file's own directory.
#ifndef STOREGEN_DRIVER_ADMIN_ADMIN_CONFIG_H_
#define STOREGEN_DRIVER_ADMIN_ADMIN_CONFIG_H_

#include <string>

namespace storegen {

// The file's name beside the program, and the environment variable a web
// server may set to name another file.
inline constexpr char kAdminConfigName[] = "storegen-admin.cfg";
inline constexpr char kAdminConfigEnv[] = "STOREGEN_ADMIN_CONFIG";

struct AdminConfig {
  std::string storegen;      // StoregenProgram: the page generator (required)
  std::string store_dir;     // StoreConfigDir: holds "<store>.cfg" (required)
  std::string template_dir;  // TemplateDir: holds "<set>.cfg" and "<set>/" (required)
  std::string html_root;     // HtmlRoot: web server document root; empty: from CGI variables
  std::string html_alias;    // HtmlAlias: URL path of HtmlRoot, may be empty
  std::string admin_mail;    // AdminMail: address shown on error pages, may be empty
};

// Reads |path| into |config|. Returns true when the file could be read and
// names the three required settings; otherwise false with |error| saying
// what is wrong. Directory paths are kept without a trailing separator.
bool LoadAdminConfig(const std::string& path, AdminConfig* config, std::string* error);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_ADMIN_ADMIN_CONFIG_H_
