// The records the template engine passes around while it writes a page: the
// template input handle, the output page handle, and the page context (the
// data a page is about and the run settings it is written with).
#ifndef STOREGEN_PAGEGEN_PAGE_CONTEXT_H_
#define STOREGEN_PAGEGEN_PAGE_CONTEXT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cgisupport/atomic_file.h"
#include "pagegen/page_file.h"
#include "storedata/papi.h"

namespace storegen {

struct AttributePool;
class CategoryIndex;
struct KeptListBlock;
struct SkuList;
class TemplatePieces;
struct TemplateSet;

// The open template. The parser keeps the stream position exact: after a
// list block's begin marker the stream stands just behind its ">", so the
// block can note that offset and seek back to it once per list entry.
struct TemplateInput {
  FILE* fp = nullptr;     // not owned; read in binary mode; null reads as empty
  std::string base_name;  // the template's file name without directory

  // Paging of product lists spread over several pages: the page being
  // written (0 for the first), and the page a list block that filled this
  // one asks for (page_number + 1; the page generator then writes that page
  // from the same template).
  int32_t page_number = 0;
  int32_t next_page = 0;

  // Where a list that filled a page stopped, so that the next page resumes
  // there instead of walking the list from its start again. A list is known
  // by its block's offset and the category it was filtered by.
  struct ListResume {
    long offset = 0;
    std::string category;
    int32_t page = 0;               // the page this resumes
    const SkuList* node = nullptr;  // the first entry of that page
    int32_t index = 0;              // its position in the whole list, from 1
  };
  std::vector<ListResume> resume;

  // The version of the template text being parsed: the same object for
  // every page of a series while the file is unchanged; null when the
  // template is read from its file. Category lists written on one page of a
  // series are kept for the next while it stays the same (kept_list.h).
  std::shared_ptr<const void> text_version;
  std::vector<std::shared_ptr<KeptListBlock>> kept_lists;

  // The pieces of the template text when it is in memory (the text |fp|
  // reads), shared by the pages of that version; null: scanned as read.
  TemplatePieces* pieces = nullptr;
  // Where the parser stands in a text held in memory: kept here instead of
  // in the stream, which is then not read (a seek on it costs more than the
  // piece it leads to). TemplateTell and TemplateSeek use the one that holds.
  long position = 0;
};

// The offset the template is read from next.
inline long TemplateTell(const TemplateInput* in) {
  return in->pieces != nullptr ? in->position : std::ftell(in->fp);
}
inline void TemplateSeek(TemplateInput* in, long offset) {
  if (in->pieces != nullptr) {
    in->position = offset;
  } else {
    std::fseek(in->fp, offset, SEEK_SET);
  }
}

// The page being written. All output goes through WriteOutput.
struct PageOutput {
  FILE* fp = nullptr;  // the page stream, not owned; null discards the output
  // The page file whose stream |fp| is while it is: written to directly.
  PageFile* file = nullptr;
  // The page's path below the store's directory ("sub/list1.html" for the
  // second page of "sub/list.html"), which names its text-block caches;
  // empty: text blocks are not cached (dynamic requests).
  std::string file_name;
  // The first page's path of the page's series, which names the pages its
  // paging links lead to.
  std::string series_name;
  int32_t text_blocks = 0;  // cached text blocks met so far on this page

  // State of an open cached text block (see text_blocks.h).
  FILE* saved_fp = nullptr;  // page stream while a cached block's own text is skipped
  AtomicFile cache;          // cache file being written; gets a copy of all output

  // While a list block's output is recorded: gets a copy of what the page
  // stream gets.
  std::string* capture = nullptr;
};

// Moves whenever a page does something that writing the same template text
// again might not do alike: a product list (which entries a page shows), a
// cached text block, form controls, a category list within another, an
// entry in the run's error list. Output written while it stood still
// depends only on the template text, the page's context and the files the
// page reads.
extern uint64_t g_page_dependent;

// Writes |length| bytes to the page stream (and to a cache file being
// written). Returns 0; a null stream writes nothing.
int WriteOutputToStreams(PageOutput* out, const char* text, std::size_t length);
inline int WriteOutput(PageOutput* out, const char* text, std::size_t length) {
  // Most output goes to the page file's text and nowhere else.
  if (out != nullptr && out->file != nullptr && out->fp == out->file->fp() &&
      out->capture == nullptr && out->cache.fp() == nullptr) {
    out->file->Add(text, length);
    return 0;
  }
  return WriteOutputToStreams(out, text, length);
}
inline int WriteOutput(PageOutput* out, std::string_view text) {
  return WriteOutput(out, text.data(), text.size());
}

// Everything a page is about and written with. Pointers are borrowed; null
// or empty where the page has no such thing. A list block copies the context
// and sets product or category for each entry.
struct PageContext {
  void* cat_db = nullptr;               // category database connection (product API handle)
  const PAPI_Pair* product = nullptr;   // the current product's record
  uint64_t product_layout = 0;          // the layout of its names (SkuRecord::layout); 0:
                                        // not known. Set with |product|.
  const char* category = nullptr;       // the current category's name
  const char* store_cfg = "";           // store configuration file
  const char* cat_db_path = "";         // category database path (".cdb")
  const char* api_cfg = "";             // product-API configuration file
  const char* cart_dir = "";            // the cart's directory
  const char* out_dir = "";             // the store's output directory, ends in "/"
  const char* page_path = "";           // the page's path below the HTML root (StoreDir)
  const char* output_file = "";         // the page's output file as the template set names it
  AttributePool* attr_db = nullptr;     // attribute database, for form controls
  SkuList* sku_list = nullptr;          // products of the page's product lists
  CategoryIndex* categories = nullptr;  // sku_list by category, for filtered lists; null:
                                        // filtered lists go through sku_list
  bool product_lists = false;           // the page lists products (shop home, product list,
                                        // category and product pages), even from an empty
                                        // sku_list; a non-null sku_list says so too
  const char* list_start = "";          // index of the first product of a product list page
  TemplateSet* set = nullptr;           // the template set
  int secure = 0;                       // non-zero: page for the secure server
  uint32_t options = 0;                 // GenerationOptions bits (kGenRewriteLinks ...)
};

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_PAGE_CONTEXT_H_
