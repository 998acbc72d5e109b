// The product-API binding: the six entry points of a product library loaded
// at run time, or of the built-in tab-separated reader when the store names
// no library. Process-wide; not reentrant.
#ifndef STOREGEN_STOREDATA_PRODUCT_API_H_
#define STOREGEN_STOREDATA_PRODUCT_API_H_

#include <optional>
#include <string_view>
#include <vector>

#include "storedata/papi.h"

namespace storegen {

// The access key every call carries.
inline constexpr const char kPapiKey[] = PAPI_ACCESS_KEY;

// The symbol names looked up in a product library.
inline constexpr const char lpszInitialization[] = "PAPI_Initialization";
inline constexpr const char lpszRetrieveInfo[] = "PAPI_RetrieveInfo";
inline constexpr const char lpszReleaseInfo[] = "PAPI_ReleaseInfo";
inline constexpr const char lpszRetrieveFirstItem[] = "PAPI_RetrieveFirstItem";
inline constexpr const char lpszRetrieveNextItem[] = "PAPI_RetrieveNextItem";
inline constexpr const char lpszCleanup[] = "PAPI_Cleanup";

// The loaded product library, null when none is (the built-in reader needs
// none). ShutdownProdAPI clears it.
extern void* hProdApiLib;

// The bound entry points; null until InitProdAPI succeeded.
extern PAPI_InitializationFn pdbInit;
extern PAPI_RetrieveInfoFn pdbRetrieve;
extern PAPI_ReleaseInfoFn pdbRelease;
extern PAPI_RetrieveItemFn pdbRetrieveFirstItem;
extern PAPI_RetrieveItemFn pdbRetrieveNextItem;
extern PAPI_CleanupFn pdbCleanup;

// Binds the entry points: those of the library at |lib_path|, or the built-in
// reader's when the path is empty. Returns 1 when all six are ready, 0 when
// the library cannot be loaded or lacks one of them (it is then unloaded);
// verbose: "Error initializing product API\n". With a library already
// loaded, returns 1 at once.
int InitProdAPI(const char* lib_path);

// Unloads the library, if one is loaded, and clears the handle and the entry
// points bound to it (the built-in reader's stay bound). Safe to call twice.
void ShutdownProdAPI();

// ShutdownProdAPI, and the built-in reader's entry points unbound too: the
// start state, before any InitProdAPI.
void ResetProdAPI();

// The first pair of |record| whose name equals |name| without regard to case,
// or null; the scan stops at the null name. A null record gives null.
PAPI_Pair* FindProdAttr(PAPI_Pair* record, const char* name);
const PAPI_Pair* FindProdAttr(const PAPI_Pair* record, const char* name);

// Frees a record made by CopyProdRecord or ProdRecordOf. Null is ignored.
void FreeProdRecord(PAPI_Pair* record);

// A deep copy of |record| in one malloc'd block: the pair array, then every
// name and value (a null value stays null). Null for a null record or when
// memory runs out. A run keeps one record per product, so one allocation
// instead of two per pair keeps its memory close to the data's size. The
// copy belongs to the generator and goes back through FreeProdRecord, never
// to the product API.
PAPI_Pair* CopyProdRecord(const PAPI_Pair* record);

// The texts of one pair for ProdRecordOf; a value without text stays null.
struct ProdPairText {
  std::string_view name;
  std::optional<std::string_view> value;
};
// A record of |pairs| in one malloc'd block laid out as CopyProdRecord lays
// it out, to be freed with FreeProdRecord. Null when memory runs out.
PAPI_Pair* ProdRecordOf(const std::vector<ProdPairText>& pairs);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_PRODUCT_API_H_
