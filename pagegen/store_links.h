// Store entry and exit links: "PG_STOREEXITURL#" leaves the cart for a page
// of the store on the non-secure server, "PG_STOREENTERURL#" enters the
// store's home page through the cart program, carrying the shopper's
// affiliate tag. Called by ExpandLinkKeyword (link_rewrite.h) for the markup
// that holds the keyword.
#ifndef STOREGEN_PAGEGEN_STORE_LINKS_H_
#define STOREGEN_PAGEGEN_STORE_LINKS_H_

#include <cstddef>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Both write |markup| with the keyword that starts at |keyword_pos|
// expanded, from the values of the store configuration |store_cfg|, and
// return 1. The link starts "NOPARSE#" and the store's "NonSecureDomain"
// (with a trailing "/" when it is set).
//
// Exit: the store directory ("StoreDir", without its leading separator when
// the domain is set, so the two never form "//", and with a trailing "/"),
// then the markup behind the keyword less one leading separator.
int DoStoreExitURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                   const char* store_cfg);

// Entry: the domain ("/" when not set), the running CGI program's directory
// without a leading separator, the cart program, |page_path| when it is
// absolute (else "/"), the shop home page, "?E+", the store's short name and
// "+%%Tillbox.cart.AffiliateID%%" (a tag the cart fills in), then the markup
// behind the keyword.
int DoStoreEnterURL(PageOutput* out, std::string_view markup, std::size_t keyword_pos,
                    const char* store_cfg, const char* page_path);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_STORE_LINKS_H_
