// Link rewriting: relative link targets of HTML tags become absolute paths
// under the store's HTML alias (an action keyword of the cart such as
// "ADDTOCART#" stays in front of the target), and the page generator's own
// link keywords ("PG_CATEGORYFILE#", "PG_PRODUCTFILE#", "PG_SSLSWITCH#",
// "PG_NONSSLSWITCH#", "PG_STOREEXITURL#", "PG_STOREENTERURL#",
// "PG_SEARCHPAGE#", "PG_WWWWAIS#", "PG_TILLBOX#") become complete links.
//
// Until the rewriting is in place these entry points leave every markup as it
// is: ExpandLinkKeyword finds no keyword and WriteLinkTag writes the markup
// unchanged.
#ifndef STOREGEN_PAGEGEN_LINK_REWRITE_H_
#define STOREGEN_PAGEGEN_LINK_REWRITE_H_

#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// The template parser offers every closed markup here first. Finds the first
// of the link keywords above present in |markup| (any case, in that order)
// and writes the markup with that keyword expanded. Returns 1 when the markup
// was written, 0 when it holds no keyword (nothing written; the parser goes
// on with the markup), -1 when memory ran out.
int ExpandLinkKeyword(PageOutput* out, std::string_view markup, const PageContext& ctx);

// Writes |markup|, a closed markup that does not begin "<!" (at most 2399
// characters). When it is an HTML tag with a link attribute ("<IMG", "<A",
// "<FORM", "<BODY", "<FRAME", "<AREA", "<BASE", any case, followed by white
// space), its link target is made absolute first. The parser calls this only
// when link rewriting (kGenRewriteLinks) is on. Returns 0, or a negative code.
int WriteLinkTag(PageOutput* out, std::string_view markup, const PageContext& ctx);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_LINK_REWRITE_H_
