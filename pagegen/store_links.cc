#include "pagegen/store_links.h"

#include <string>

#include "cgisupport/copy_truncated.h"
#include "pagegen/cart_links.h"

namespace storegen {
namespace {

constexpr std::size_t kKeywordLength = 16;  // "PG_STOREEXITURL#"; the entry keyword is 17

// The markup up to the keyword, "NOPARSE#"; returns the non-secure domain
// with a trailing "/" when it is set.
std::string StartLink(std::string_view markup, std::size_t keyword_pos, const char* store_cfg,
                      std::string* link) {
  *link = markup.substr(0, keyword_pos);
  *link += "NOPARSE#";
  std::string domain = ConfigValue(store_cfg, "NonSecureDomain", 65536);
  return domain.empty() ? domain : WithTrailingSlash(domain);
}

std::string_view Behind(std::string_view markup, std::size_t keyword_pos, std::size_t length) {
  return markup.substr(std::min(markup.size(), keyword_pos + length));
}

}  // namespace

int DoStoreExitURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                   const char* store_cfg) {
  std::string link;
  std::string domain = StartLink(markup, keyword_pos, store_cfg, &link);
  link += domain;
  std::string dir = ConfigValue(store_cfg, "StoreDir");
  std::string_view written = dir;
  if (!domain.empty() && !written.empty() && IsDirSlash(written.front())) written.remove_prefix(1);
  link += written;
  if (!EndsWithDirSlash(dir)) link += '/';
  std::string_view rest = Behind(markup, keyword_pos, kKeywordLength);
  if (!rest.empty() && IsDirSlash(rest.front())) rest.remove_prefix(1);
  link += rest;
  WriteOutput(out, link);
  return 1;
}

int DoStoreEnterURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                    const char* store_cfg, const char* page_path) {
  std::string link;
  std::string domain = StartLink(markup, keyword_pos, store_cfg, &link);
  link += domain.empty() ? "/" : domain;
  std::string cgi = RunningCgiDirectory(store_cfg);
  std::string_view dir = cgi;
  if (!dir.empty() && IsDirSlash(dir.front())) dir.remove_prefix(1);
  link += dir;
  if (!dir.empty() && !EndsWithDirSlash(dir)) link += '/';
  link += CartHomeEntry(store_cfg, page_path);
  link += "+%%Tillbox.cart.AffiliateID%%";
  link += Behind(markup, keyword_pos, kKeywordLength + 1);
  WriteOutput(out, link);
  return 1;
}

}  // namespace storegen
