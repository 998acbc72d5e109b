// Category and product list blocks: the template text between
// "PAGEGEN_CATEGORYLIST_BEGIN" and "PAGEGEN_CATEGORYLIST_END" is repeated for
// every category of the category database, the text between
// "PAGEGEN_PRODUCTLIST_BEGIN" and "PAGEGEN_PRODUCTLIST_END" for every product
// of the page's product list, page by page. Each pass seeks the template back
// to the block's start and parses it (ParseTemplate) up to the end marker,
// which decrements the block's open counter and ends that pass.
//
// Until the lists are in place a block is parsed exactly once, with the
// page's own product and category, and its markers write nothing.
#ifndef STOREGEN_PAGEGEN_LIST_BLOCKS_H_
#define STOREGEN_PAGEGEN_LIST_BLOCKS_H_

#include <cstdint>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Open category and product list blocks: incremented before every pass over a
// block, decremented by the end marker. Process-wide; back at 0 after every
// page.
extern int32_t CatList;
extern int32_t ProdList;

// Run a list block whose begin marker is |marker|. On entry in->fp stands at
// |offset|, just behind the marker's ">"; on return it stands behind the end
// marker of the last pass (the parser goes on reading from there). |ctx| is
// the page's context: the category block needs ctx.cat_db (the parser checks
// it), the product block lists ctx.sku_list, filtered by ctx.category, from
// ctx.list_start, and may set in->page_number and in->placed for a further
// page. Return 0, -18 when a pass left category tags unresolved (the block
// still ran to its end), or the negative code of a failing pass.
int ProcessCatListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                        const PageContext& ctx);
int ProcessProdListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                         const PageContext& ctx);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_LIST_BLOCKS_H_
