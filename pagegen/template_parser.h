// The template parser: copies an HTML template to a page, replacing product
// and category tags ("%%PRODUCT.name%%", "%%CATEGORY.name%%" and their
// "%25%25" forms), the "PAGEGEN_" markers inside "<!" markup (store values,
// cached text blocks, list blocks, attribute controls), and handing every
// other markup to link rewriting. A template held in memory is parsed through
// its pieces (template_pieces.h), one read from its file in 1000-byte chunks
// character by character, with the same result. Not reentrant: the nesting
// counter and the list-block counters are process-wide.
#ifndef STOREGEN_PAGEGEN_TEMPLATE_PARSER_H_
#define STOREGEN_PAGEGEN_TEMPLATE_PARSER_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "pagegen/page_context.h"
#include "pagegen/template_pieces.h"

namespace storegen {

// Parser calls under way (list blocks call the parser again for each pass).
// Back at 0 after every page.
extern int32_t g_template_nesting;

// Parses the template |in| from its current position to its end, or to the
// end marker of the list block being repeated, writing the page to |out|.
// Returns 0, or -18 when category tags were left unresolved (warning; the page
// is complete); or an error, after which the page is incomplete:
//   -50 more than 10000 nested calls (verbose: "Tags nested too deeply\n"),
//   -10 the template cannot be read (verbose: "Error reading template
//       file\n"),
//   -17 a category list block on a page without category database (verbose:
//       "No category database exists, and template set uses category
//       tags\n"),
//   -8  a text-block cache file cannot be created,
//   or the code of a failing list block or form control.
// The nesting counter is back at its value on entry when this returns.
int ParseTemplate(TemplateInput* in, PageOutput* out, const PageContext& ctx);

// Parses |text| as a template into |page| (replaced), for tests and fuzzers.
// |page_file| is the page's path below the store's directory, which names
// its text-block caches and its paging links (empty: no caches). With |pieces| the text is parsed
// through its pieces, as templates in memory are; without, character by character, as templates
// read from their files are. Returns what ParseTemplate returned.
int ParseTemplateText(std::string_view text, const PageContext& ctx, std::string* page,
                      std::string_view page_file = "", bool pieces = true);
// The same through |pieces|, the pieces of |text| (null: character by
// character), kept from one call to the next as from one page to the next.
int ParseTemplateText(std::string_view text, const PageContext& ctx, std::string* page,
                      std::string_view page_file, TemplatePieces* pieces);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TEMPLATE_PARSER_H_
