// The common page writer of every page generator: opens the template and the
// page (a file of the store, or standard output for a dynamic request) and
// runs the template parser over it, once per page of a product list that
// spreads over several pages.
#ifndef STOREGEN_PAGEGEN_HTML_PAGE_H_
#define STOREGEN_PAGEGEN_HTML_PAGE_H_

#include <string>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

struct SkuList;

// The file name of page |page_number| of a page series: the number goes in
// front of the extension of the last path component ("shop/list.html", 2 gives
// "shop/list2.html"); page 0, and a name without extension, keep |path|.
std::string PageFileName(std::string_view path, int page_number);

// The category database of the product database |db_path|: its extension
// replaced by ".cdb" (".cdb" appended when it has none; ".cdb" for "").
std::string CategoryDbPath(std::string_view db_path);

// Writes the page(s) of |template_path| to |output_path|:
// - a null |template_path| writes nothing: a given |sku_node| is entered in
//   the error list with -15 (no template for the product); returns 0;
// - a dynamic request (kDynSinglePage) writes the page to standard output
//   after "Content-type: text/html\n\n", and nothing to disk;
// - otherwise the page is written under a temporary name beside
//   |output_path| and renamed into place when complete, and its name is
//   entered in the delete list; a null or empty |output_path| parses the
//   template without output.
// |ctx| is the page's context (ctx.product is replaced by the node's record
// when |sku_node| is given). When a product list fills a static page and asks
// for a next page (TemplateInput::next_page), the same template is parsed
// again for that page, written to the output path numbered for it
// ("list1.html", "list2.html" ...). The list-block counters are 0 for each
// page and back at their values on entry when this returns.
// Returns 0; -18 when category tags were left unresolved (every page is
// still written); -7 template not openable, -8 page or its directory not
// creatable (verbose: "Unable to open file %s\n"); or the parser's error,
// which ends the series: earlier pages stay, the failing page is not written
// (an older file of that name stays as it was).
int GenerateHtmlPage(const char* template_path, const char* output_path, const SkuList* sku_node,
                     const PageContext& ctx);

// The template of the page being written (as the template set names it),
// for messages about what it holds; "" between pages.
const char* CurrentTemplatePath();

// Forgets the templates' texts (and their pieces) kept between pages, and the
// page directory last made sure of: the next page reads and checks anew.
void ForgetKeptTemplates();

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_HTML_PAGE_H_
