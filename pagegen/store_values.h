// The store's own values in a page: the "<!" markers "PAGEGEN_STORENAME",
// "PAGEGEN_BODYTAG", "PAGEGEN_STORELOGO", "PAGEGEN_STOREPHONE",
// "PAGEGEN_STOREFAX", "PAGEGEN_STOREADDR1", "PAGEGEN_STOREADDR2",
// "PAGEGEN_STOREEMAIL", "PAGEGEN_CURRENCYSYMBOL" and "PAGEGEN_STOREWELCOME",
// filled from the store configuration.
#ifndef STOREGEN_PAGEGEN_STORE_VALUES_H_
#define STOREGEN_PAGEGEN_STORE_VALUES_H_

#include <string>
#include <string_view>
#include <vector>

#include "pagegen/page_context.h"
#include "pagegen/text_match.h"

namespace storegen {

// The value of |key| in the store configuration |store_cfg| (read with a
// 65536-byte buffer); "" when the key or the file is missing.
std::string StoreConfigValue(const char* store_cfg, const char* key);

// Writes |key| = |value| into the store configuration (SetConfigItems). False
// when the item list cannot be made (out of memory); a configuration that
// cannot be rewritten keeps its old value.
bool SetStoreConfigItem(const char* store_cfg, const char* key, const std::string& value);

// How a page links a store image named in the configuration: a value that
// starts with "/" or "\\", has a scheme (a ":" before any "/"), or already
// starts with |page_path| or |prefix| is used as it stands; any other value
// gets |prefix| (the page path, or the secure prefix on secure pages) in front.
std::string StoreImagePath(std::string_view value, std::string_view page_path,
                           std::string_view prefix);

// The store value marker that |markers| (the "PAGEGEN_" finder of a markup)
// finds first of the markers above (any case, tested in the order listed),
// as a number for StoreValue; -1 when it finds none.
int FindStoreValueMarker(const MarkerFinder& markers);

// The output of the store value marker |marker| (from FindStoreValueMarker).
// |image_prefix| is the prefix of relative store images (see
// StoreImagePath). The images of the body tag and the logo are registered as
// secure files of ctx.set, and their names added to |*secure_files| when it
// is not null. The output depends on the store configuration, ctx.page_path
// and |image_prefix| alone.
std::string StoreValue(int marker, const PageContext& ctx, std::string_view image_prefix,
                       std::vector<std::string>* secure_files = nullptr);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_STORE_VALUES_H_
