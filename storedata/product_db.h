// The built-in product database reader: the six product-API entry points
// served from a tab-separated text file whose first line names the columns
// and whose further lines are products, the first field being the SKU. The
// name line of the iteration is process-wide; not reentrant.
//
// The entry points have C++ linkage (so a loaded library's C symbols of the
// same names never clash with them) and exactly the types of storedata/papi.h.
// Records are malloc'd like a library's: free() releases every part of them.
// Call PAPI_ReleaseInfo qualified (storegen::): argument-dependent lookup of
// its PAPI_Pair argument also finds the C declaration of storedata/papi.h.
#ifndef STOREGEN_STOREDATA_PRODUCT_DB_H_
#define STOREGEN_STOREDATA_PRODUCT_DB_H_

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <string_view>

#include "storedata/papi.h"

namespace storegen {

inline constexpr int kProductLineSize = 2048;  // longer lines are read in pieces
inline constexpr int kMaxProductAttribs = 99;
inline constexpr const char psz_Tab[] = "\t\r\n";
inline constexpr const char psz_NA[] = "NA";

// Opens |db| for reading; the open file is the handle. Null when it cannot be
// opened. The other arguments are ignored.
void* PAPI_Initialization(const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                          const char* cartDir);
// The record of the first line whose SKU equals |sku| without regard to case,
// or null (also when memory runs out). A large file's line is found through
// the SKU index of |db|, the path the handle was opened with
// (storedata/sku_index.h); without |db| the file is read up to the line.
PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int flag, const char* db,
                             const char* storeCfg, const char* apiCfg, const char* cartDir,
                             char** names);
// Reads the name line and then does what PAPI_RetrieveNextItem does; null
// when the file has no name line or no product.
PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int flag, const char* db,
                                  const char* storeCfg, const char* apiCfg, const char* cartDir,
                                  int32_t* position, char** names);
// The record of the next non-empty line after the byte offset *position (when
// given), or null at the end; *position is set after that line.
PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* key, int flag, const char* db,
                                 const char* storeCfg, const char* apiCfg, const char* cartDir,
                                 int32_t* position, char** names);
// PAPI_RetrieveFirstItem and PAPI_RetrieveNextItem (all names) for a walk
// that keeps the records: each comes as one block, as CopyProdRecord makes
// it, to be freed with FreeProdRecord.
PAPI_Pair* RetrieveFirstItemBlock(void* h, int32_t* position);
PAPI_Pair* RetrieveNextItemBlock(void* h, int32_t* position);
// The file descriptor of the handle |h|, for reading the file in ways of
// its own (storedata/product_file.h); -1 for null.
int ProductDbFd(void* h);
// RetrieveNextItemBlock for a walk that looks at a few columns: the record
// holds only the first column of each name of |only| (ASCII case ignored)
// that the name line has, with the value the whole record gives it (the
// whole record when |only| is empty). The line is read and warned about as
// ever.
PAPI_Pair* RetrieveNextItemColumns(void* h, int32_t* position,
                                   std::initializer_list<const char*> only);
// Frees every name and value up to the null pair, then the array; null is
// ignored. Returns 0.
int PAPI_ReleaseInfo(void* h, const char* key, const char* sku, PAPI_Pair* record);
// Closes the file. Returns 0.
int PAPI_Cleanup(void* h, const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                 const char* cartDir);

// One lookup's result: up to 99 name/value pairs (malloc'd strings) and a
// null pair after the last.
struct ProductInfo {
  FILE* fp;
  char* sku;  // copy of the SKU searched for; "" for iteration
  int32_t count;
  PAPI_Pair pairs[kMaxProductAttribs + 1];
};

// Rewinds |fp|, reads the name line and the first line whose SKU matches, and
// fills a new ProductInfo. Null when the name line or the SKU is missing or
// memory runs out. Free with FreeProductInfo(info, 1). With |db|, the path
// |fp| was opened with, a large file's line is found by its SKU index
// (storedata/sku_index.h).
ProductInfo* GetProductInfo(FILE* fp, const char* sku, char** names, const char* db = nullptr);
// Fills a new ProductInfo from two lines already read (SKU copy ""); null
// when memory runs out.
ProductInfo* GetProductInfoNoRead(FILE* fp, char** names, int unused, const char* name_line,
                                  const char* sku_line);
// Fills |info|'s pairs: without |names| (count -1) every column of the name
// line with the file's names; with them, each requested name (as given) and
// its column's value. Missing values are "NA". Returns the number of pairs,
// or -1 when memory runs out (the pairs made so far stay for
// FreeProductInfo).
int FillAttributeInfo(ProductInfo* info, int count, char** names, const char* name_line,
                      const char* sku_line);

// Seeks to the start, reads one line into |buf| (|size| bytes) and trims its
// line end. Returns 1, or 0 at end of file.
int GetNameLine(char* buf, int size, FILE* fp);
// Reads lines from the current position into |buf| (at most 2048 bytes used)
// until one whose first field equals |sku| without regard to case; trims it
// and returns 1. 0 at end of file (|buf| then holds the last line read).
int GetSKULine(char* buf, int size, FILE* fp, const char* sku);

// -1 for null; else the entries before the first null, at most 99.
int GetAttribCount(char** names);
// The 0-based column of |name| in the name line (case ignored), or -1.
int GetAttribIndex(const char* name_line, const char* name);
// Puts copies of the name line's first 99 names into |pairs|' names. Returns
// how many, or -1 when memory runs out.
int GetAllAttribName(const char* name_line, PAPI_Pair* pairs);
// Puts copies of the SKU line's first |n| fields (n <= 99) into |pairs|'
// values, "NA" for missing ones. Returns how many fields the line had (at
// most n), or -1 when memory runs out.
int GetAllValue(const char* sku_line, PAPI_Pair* pairs, int n);
// A malloc'd copy of the field at 0-based |position|, or of "NA" when the line
// is shorter; null only when memory runs out.
char* GetAttribValue(const char* sku_line, int position);

// The name line of the walk in progress (what PAPI_RetrieveFirstItem read
// last), and setting it back: a walk paused while another file is walked
// sets its own again before it goes on.
std::string WalkNameLine();
void SetWalkNameLine(std::string_view line);

// Forgets what the reader keeps between lookups (the texts of small files, the
// SKU indexes, the name line of the last walk): the next lookup reads its
// file again.
void ForgetProductFiles();

// Removes every trailing CR and LF.
void TrimEnd(char* text);
// strcmp without regard to ASCII case.
int my_stricmp(const char* a, const char* b);
// Frees the SKU copy and the record; with |deep|, also every pair's name and
// value up to the null pair. Null is ignored.
void FreeProductInfo(ProductInfo* info, int deep);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_PRODUCT_DB_H_
