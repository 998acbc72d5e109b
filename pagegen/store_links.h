// Store entry and exit links: "PG_STOREEXITURL#" leaves the cart for a page
// of the store on the non-secure server, "PG_STOREENTERURL#" enters the
// store's home page through the cart program. Called by ExpandLinkKeyword
// (link_rewrite.h) for the markup that holds the keyword.
//
// Until the links are in place both write the markup unchanged.
#ifndef STOREGEN_PAGEGEN_STORE_LINKS_H_
#define STOREGEN_PAGEGEN_STORE_LINKS_H_

#include <cstddef>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Write |markup| with the keyword that starts at |keyword_pos| expanded, from
// the values of the store configuration |store_cfg| (and, for the entry link,
// the page path |page_path|). Return 1.
int DoStoreExitURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                   const char* store_cfg);
int DoStoreEnterURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                    const char* store_cfg, const char* page_path);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_STORE_LINKS_H_
