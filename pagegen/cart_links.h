// Pieces of the URLs that lead from a generated page to the cart's CGI
// programs (the cart program itself and the page generator called as a CGI
// program), shared by link rewriting, the store entry and exit links and the
// paging links of product lists. Every value is read afresh from the store
// configuration.
#ifndef STOREGEN_PAGEGEN_CART_LINKS_H_
#define STOREGEN_PAGEGEN_CART_LINKS_H_

#include <string>
#include <string_view>

namespace storegen {

// The value of |key| in |store_cfg| as read into a buffer of |size| bytes
// (cut to size - 1); "" when the key or the file is missing.
std::string ConfigValue(const char* store_cfg, const char* key, int size = 256);

// |value| with "/" appended unless it ends in "/" or "\\" (an empty value
// becomes "/").
std::string WithTrailingSlash(std::string_view value);

// The store directory as it stands between a program name and a page: the
// store configuration's "StoreDir" without a leading separator and with a
// trailing "/"; "" when StoreDir is empty or only a separator.
std::string StoreDirSegment(const char* store_cfg);

// The store configuration's file name without its directory.
std::string_view ConfigFileName(const char* store_cfg);
// The same without its extension (cut at the last ".").
std::string_view StoreShortName(const char* store_cfg);

// The cart program's file name ("TillboxName" + "TillboxExtension").
std::string CartProgramName(const char* store_cfg);

// How the cart program enters the shop home page, from behind the directory
// of the cart program: CartProgramName, |page_path| when it is absolute
// (else "/"), the shop home page's file name, "?E+" and StoreShortName.
std::string CartHomeEntry(const char* store_cfg, const char* page_path);

// The last path component of "PageGenProg", the page generator as the web
// server calls it; this program's own name when the key is missing or empty.
std::string PageGenProgramName(const char* store_cfg);

// "USERPROG#", "CGIBinDirectory" with a trailing "/", and
// PageGenProgramName: the start of every link that has the page generator
// write a page on demand.
std::string PageGenProgramUrl(const char* store_cfg);

// The directory of the running CGI program: "SCRIPT_NAME" without its last
// path component (and without the separator before it); the store
// configuration's "CGIBinDirectory" when SCRIPT_NAME is not set or empty.
std::string RunningCgiDirectory(const char* store_cfg);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_CART_LINKS_H_
