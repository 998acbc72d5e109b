#include "storedata/product_api.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "cgisupport/config_hints.h"
#include "cgisupport/diagnostics.h"
#include "cgisupport/dyn_lib.h"
#include "cgisupport/run_state.h"
#include "cgisupport/str_util.h"
#include "storedata/product_db.h"

namespace storegen {

void* hProdApiLib = nullptr;
PAPI_InitializationFn pdbInit = nullptr;
PAPI_RetrieveInfoFn pdbRetrieve = nullptr;
PAPI_ReleaseInfoFn pdbRelease = nullptr;
PAPI_RetrieveItemFn pdbRetrieveFirstItem = nullptr;
PAPI_RetrieveItemFn pdbRetrieveNextItem = nullptr;
PAPI_CleanupFn pdbCleanup = nullptr;

namespace {

void ClearEntryPoints() {
  pdbInit = nullptr;
  pdbRetrieve = nullptr;
  pdbRelease = nullptr;
  pdbRetrieveFirstItem = nullptr;
  pdbRetrieveNextItem = nullptr;
  pdbCleanup = nullptr;
}

template <typename Fn>
bool Resolve(void* lib, const char* name, Fn* out, const char** missing) {
  void* symbol = GetDynamicLibFunction(lib, name);
  *out = reinterpret_cast<Fn>(symbol);
  if (symbol == nullptr) *missing = name;
  return symbol != nullptr;
}

// The library |path| could not be bound: |why|.
void ReportLibraryFailed(const char* path, const std::string& why) {
  const char* cfg = PageGenState.szConfig;
  std::string detail = "cannot use the product library (ProductAPILibrary";
  if (int line = ConfigKeyLine(cfg, "ProductAPILibrary"); line > 0)
    detail += " in " + std::string(cfg) + ":" + std::to_string(line);
  detail += "): " + why;
  ReportError({path}, detail, "Error initializing product API\n");
}

bool SameNameNoCase(const char* a, const char* b) {
  for (;; ++a, ++b) {
    const char x = AsciiLower(*a);
    if (x != AsciiLower(*b)) return false;
    if (x == '\0') return true;
  }
}

}  // namespace

int InitProdAPI(const char* lib_path) {
  if (hProdApiLib != nullptr) return 1;
  if (lib_path == nullptr || lib_path[0] == '\0') {
    pdbInit = &storegen::PAPI_Initialization;
    pdbRetrieve = &storegen::PAPI_RetrieveInfo;
    pdbRelease = &storegen::PAPI_ReleaseInfo;
    pdbRetrieveFirstItem = &storegen::PAPI_RetrieveFirstItem;
    pdbRetrieveNextItem = &storegen::PAPI_RetrieveNextItem;
    pdbCleanup = &storegen::PAPI_Cleanup;
    return 1;
  }
  void* lib = LoadDynamicLib(lib_path);
  if (lib == nullptr) {
    ReportLibraryFailed(lib_path, DynamicLibError() + "; " + ProgramDirectoryNote());
    return 0;
  }
  // Resolved in this order; the first missing name ends the binding.
  const char* missing = nullptr;
  bool complete = Resolve(lib, lpszInitialization, &pdbInit, &missing) &&
                  Resolve(lib, lpszRetrieveInfo, &pdbRetrieve, &missing) &&
                  Resolve(lib, lpszReleaseInfo, &pdbRelease, &missing) &&
                  Resolve(lib, lpszCleanup, &pdbCleanup, &missing) &&
                  Resolve(lib, lpszRetrieveFirstItem, &pdbRetrieveFirstItem, &missing) &&
                  Resolve(lib, lpszRetrieveNextItem, &pdbRetrieveNextItem, &missing);
  if (!complete) {
    ReportLibraryFailed(lib_path, std::string("it lacks the entry point ") + missing);
    ClearEntryPoints();
    UnloadDynamicLib(lib);
    return 0;
  }
  hProdApiLib = lib;
  return 1;
}

void ShutdownProdAPI() {
  if (hProdApiLib == nullptr) return;
  ClearEntryPoints();
  UnloadDynamicLib(hProdApiLib);
  hProdApiLib = nullptr;
}

void ResetProdAPI() {
  ShutdownProdAPI();
  ClearEntryPoints();
}

PAPI_Pair* FindProdAttr(PAPI_Pair* record, const char* name) {
  if (record == nullptr || name == nullptr) return nullptr;
  // Names are compared in ASCII case, as strcasecmp does in the C locale the
  // program runs in; the first letter decides for most pairs.
  const char first = AsciiLower(name[0]);
  for (PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
    if (AsciiLower(pair->name[0]) == first && SameNameNoCase(pair->name, name)) return pair;
  }
  return nullptr;
}

const PAPI_Pair* FindProdAttr(const PAPI_Pair* record, const char* name) {
  return FindProdAttr(const_cast<PAPI_Pair*>(record), name);
}

void FreeProdRecord(PAPI_Pair* record) {
  std::free(record);  // the strings live in the same block
}

PAPI_Pair* CopyProdRecord(const PAPI_Pair* record) {
  if (record == nullptr) return nullptr;
  std::vector<ProdPairText> pairs;
  for (const PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
    pairs.push_back({pair->name, pair->value != nullptr
                                     ? std::optional<std::string_view>(pair->value)
                                     : std::nullopt});
  }
  return ProdRecordOf(pairs);
}

PAPI_Pair* ProdRecordOf(const std::vector<ProdPairText>& pairs) {
  std::size_t text = 0;
  for (const ProdPairText& pair : pairs)
    text += pair.name.size() + 1 + (pair.value ? pair.value->size() + 1 : 0);
  const std::size_t count = pairs.size();
  const std::size_t array = (count + 1) * sizeof(PAPI_Pair);
  auto* record = static_cast<PAPI_Pair*>(std::malloc(array + text));
  if (record == nullptr) return nullptr;
  char* out = reinterpret_cast<char*>(record) + array;
  auto place = [&out](std::string_view s) {
    char* at = out;
    std::memcpy(out, s.data(), s.size());
    out[s.size()] = '\0';
    out += s.size() + 1;
    return at;
  };
  for (std::size_t i = 0; i < count; ++i) {
    record[i].name = place(pairs[i].name);
    record[i].value = pairs[i].value ? place(*pairs[i].value) : nullptr;
  }
  record[count] = PAPI_Pair{nullptr, nullptr};
  return record;
}

}  // namespace storegen
