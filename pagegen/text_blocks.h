// Cached text blocks: the template text between "PAGEGEN_TEXT_BEGIN" and
// "PAGEGEN_TEXT_END" is generated once, kept in a ".tmp" cache file named
// after the page and the block's number, and copied into the page by every
// later generation instead of being generated again.
#ifndef STOREGEN_PAGEGEN_TEXT_BLOCKS_H_
#define STOREGEN_PAGEGEN_TEXT_BLOCKS_H_

#include <string>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// The cache file of block |n| of page |page_file|: |dir| (a "/" added when it
// has no trailing separator), the page name without a leading separator and
// without its extension, n, ".tmp". "./" and "list.html" give "./list1.tmp".
std::string TextBlockCacheName(std::string_view dir, std::string_view page_file, int n);

// Handles a begin marker: counts the block and writes |marker|. A block whose
// cache file exists (or can be seeded from the template set's own cache for
// the block) is copied into the page, and the page stream is switched off
// until the end marker; otherwise the cache file is created and gets a copy of
// the block's output. A page without a file name renders the block inline.
// Returns 0, or -8 when the cache file cannot be created (verbose: "Unable to
// open file %s\n").
int BeginTextBlock(PageOutput* out, std::string_view marker, const PageContext& ctx);

// Handles an end marker: completes a cache file being written, switches the
// page stream back on, and writes |marker|.
void EndTextBlock(PageOutput* out, std::string_view marker);

// For a page that ended inside a block: the page stream is switched back on
// and an incomplete cache file is dropped, so no later generation reuses it.
void AbandonTextBlock(PageOutput* out);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TEXT_BLOCKS_H_
