// SKU lists: the products a run shows, each with the template that renders
// its page and its full product record, in database order.
#ifndef STOREGEN_STOREDATA_SKU_LIST_H_
#define STOREGEN_STOREDATA_SKU_LIST_H_

#include <string>
#include <vector>

#include "storedata/papi.h"

namespace storegen {

struct FileList;
struct SkuListTail;
struct SkuListFile;
struct TemplateSet;

// One node; the strings and the record are malloc'd and owned by the node,
// except on the nodes of a list built from the built-in reader's text file:
// those live with the list (|file|), and their records stay in the file, to
// be read back when a page needs them (SkuRecord). A store of a million
// products then keeps a few dozen bytes per product, not its record.
struct SkuList {
  char* sku;          // copy of the product's "SKU" value
  char* tmplt;        // template file of the product's page
  PAPI_Pair* record;  // every attribute of the product; may be null
  SkuList* next;
  SkuListTail* tail = nullptr;  // on the last node of a list built in part: the
                                // walk that makes the nodes after it (NextSkuNode)
  SkuListFile* file = nullptr;  // set: the node belongs to the list built from this file
};

// A product's record for as long as a page or a list entry shows it: the
// node's own record, or the one read back from the product file.
class SkuRecord {
 public:
  // Points *record at the record of |node| (null when the node has none),
  // valid until the next Read or the end of this object. False (and null)
  // when the node's line can no longer be read as the list read it: the
  // product database changed during the run (reported once).
  bool Read(const SkuList* node, const PAPI_Pair** record);
  // The layout of the names of the record last read: records of one layout
  // have the same names in the same order, and no two product files share
  // one. 0 when it is not known (a node's own record).
  uint64_t layout() const { return layout_; }

 private:
  std::string text_;
  std::vector<PAPI_Pair> pairs_;
  uint64_t layout_ = 0;
};

// The "TILLBOXCATEGORY" value of the node's product (FindProdAttr), or null
// when its record has no such attribute.
const char* SkuCategory(const SkuList* node);

// Allocates a zeroed node (calloc); null when memory runs out.
SkuList* NewSkuNode();

// Builds the list of the products in the database (the first four arguments
// are passed to the product API). |category| (null or "" for none) keeps
// products of that category and products without one; |first_index| (null or
// "" for none) passes over that many qualifying products first; |page_flag|
// (set for a dynamic request's one page) stops after MaxProdPerPage + 1 nodes.
// A dynamic request's list (|page_flag| set, not verbose) is built in part:
// the nodes after the first are made as NextSkuNode reaches them, so that a
// page holds the records it shows and not those of the whole rest of the
// list. Products without a usable template are left out; an empty one is entered
// with -15 under the SKU in *errors (nothing is recorded when |errors| is
// null). Returns the head, or null when nothing was collected.
SkuList* BuildAllSkuList(const char* db, const char* store_cfg, const char* api_cfg,
                         const char* cart_dir, TemplateSet* set, const char* category,
                         const char* first_index, int page_flag, FileList** errors);

// The node after |node|, made now when |node| ends a list built in part
// (null at the list's end). Walks over a list use it instead of ->next.
const SkuList* NextSkuNode(const SkuList* node);

// A one-node list for |sku| through PAPI_RetrieveInfo, with the same template
// choice, messages and |errors| entries, or null.
SkuList* FindSkuData(const char* sku, const char* db, const char* store_cfg, const char* api_cfg,
                     const char* cart_dir, TemplateSet* set, FileList** errors);

// For every node of the command-line list |list| that has a SKU, replaces its
// template and record with those FindSkuData finds. Returns 0 when every SKU
// was filled, else -2: the request cannot show a SKU that the database does
// not know, that has no usable template or that memory ran out for. Such a
// node keeps its template and record (null on a node made from the command
// line).
int FillSkuData(SkuList* list, const char* db, const char* store_cfg, const char* api_cfg,
                const char* cart_dir, TemplateSet* set, FileList** errors);

// For every node of |target|, copies the template and a deep copy of the
// record of the |source| node with the same SKU (exact comparison). Returns 1,
// or 0 when memory runs out.
int CopySkuData(SkuList* target, const SkuList* source);

// Frees every node with its strings and record (and the product file the
// list was built from), and ends the walk of a list built in part; null is
// ignored.
void FreeSkuList(SkuList* list);

// How many times this process could not open a product database ("cannot
// open the product database"). Never reset: a process answering one request
// after another tells by the count going up that a request could not read
// the products at all, as opposed to not finding a product in them.
unsigned long ProductDatabaseOpenFailures();

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_SKU_LIST_H_
