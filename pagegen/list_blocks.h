// Category and product list blocks: the template text between
// "PAGEGEN_CATEGORYLIST_BEGIN" and "PAGEGEN_CATEGORYLIST_END" is repeated for
// every category of the category database, the text between
// "PAGEGEN_PRODUCTLIST_BEGIN" and "PAGEGEN_PRODUCTLIST_END" for every product
// of the page's product list, page by page. Each pass seeks the template back
// to the block's start and parses it (ParseTemplate) up to the end marker,
// which decrements the block's open counter and ends that pass.
// Process-wide counters; not reentrant.
#ifndef STOREGEN_PAGEGEN_LIST_BLOCKS_H_
#define STOREGEN_PAGEGEN_LIST_BLOCKS_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "pagegen/page_context.h"

namespace storegen {

// Open category and product list blocks: incremented before every pass over a
// block, decremented by the end marker. Back at their value before the block
// after every pass, and at 0 after every page.
extern int32_t CatList;
extern int32_t ProdList;

// Both run a list block whose begin marker is |marker|. On entry in->fp
// stands at |offset|, just behind the marker's ">"; on return it stands
// behind the end marker of the last pass, where the parser goes on. A block
// that shows no entry at all is read through to its end marker without
// output. Results: 0; -18 when a pass left category tags unresolved (the
// block still ran to its end); or the negative code of a failing pass, which
// ends the block.
//
// Categories: one pass per record of the category database ctx.cat_db, with
// the record's "TILLBOXCATEGORY" as the current category (records without
// one are passed over); 0 at once without a database, -11 when it has no
// record. A "CategoryTemplate" attribute naming an existing file becomes the
// run's list template (szTemplateFile, and the category list template key of
// the store configuration when product or list pages are served dynamically);
// static runs with list pages written statically also write each category's
// own page from it, once per page series: "c-" + safe name + ".html" in
// ctx.out_dir, with that category and ctx.sku_list (GenerateHtmlPage's
// errors end the block).
int ProcessCatListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                        const PageContext& ctx);

// Products: one pass per product of ctx.sku_list in the category ctx.category
// (trailing blanks cut; any case) or every product without one; -11 when
// filtering meets a product without "TILLBOXCATEGORY" (verbose: "Error
// reading database\n"). Pages hold the template set's MaxProdPerPage
// entries, else the marker's "MaxPerPage" when it has one (0: no paging),
// else 10. The list starts at position ctx.list_start + 1; page n of a page
// series passes over the entries of the pages before it. On a paged list, a
// page with earlier pages gets a "Previous" link after its entries, a full
// page followed by a further matching product a "Next" link (after
// "Previous"), and then asks for the next page (in->next_page) unless list
// pages are served dynamically. The marker's "Previous" and "Next"
// attributes name link images.
int ProcessProdListBegin(TemplateInput* in, PageOutput* out, std::string_view marker, long offset,
                         const PageContext& ctx);

// Write one paging link: "<A HREF=\"target\">" with "&lt;&lt;" / "&gt;&gt;",
// or an image tag for |image| (when not null or empty) rewritten like any
// link tag, then "</A>". With list pages served dynamically (kGenDynamicLists)
// the target is DynamicProdListHref for the list start ctx.list_start minus
// (plus) |page_size|. Otherwise it is the page path (when absolute) and
// out->series_name numbered for page |page_number| - 1 (+ 1), the first page
// without number; CreatePrevious writes nothing for a page number below 1.
void CreatePrevious(PageOutput* out, int32_t page_number, const char* image, const PageContext& ctx,
                    std::string_view category, int32_t page_size);
void CreateNext(PageOutput* out, int32_t page_number, const char* image, const PageContext& ctx,
                std::string_view category, int32_t page_size);

// The link that has the page generator write the product list page from
// position |start| (a negative start counts as 0) of |category| (empty: all
// products): PageGenProgramUrl, then "?-c+" with the store configuration's
// file name, "+-C+" and the escaped category when there is one, "+-f+" and
// the start.
std::string DynamicProdListHref(const char* store_cfg, std::string_view category, int32_t start);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_LIST_BLOCKS_H_
