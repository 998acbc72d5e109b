// The six entry points of a product library built beside storegen, for the
// library's source to include once, after it has declared
// storegen::LibraryConnection, a class with
//
//   static std::unique_ptr<LibraryConnection> Open(const char* db, const char* api_cfg);
//   PAPI_Pair* Lookup(const char* sku, char** names);
//   PAPI_Pair* First(int32_t* position, char** names);
//   PAPI_Pair* Next(int32_t* position, char** names);
//
// whose destructor ends the connection, and whose records are made with
// MakePapiRecord. The entry points refuse calls without the access key (the
// retrieval calls and PAPI_Initialization give NULL, PAPI_ReleaseInfo and
// PAPI_Cleanup release nothing and return -1) and a connection without an
// API configuration argument, and let no exception cross the C boundary: out
// of memory inside the library reads as "no record" (or "no connection").
// Only they are exported when the library is compiled with hidden
// visibility.
#ifndef STOREGEN_STOREDATA_PAPI_ENTRY_POINTS_H_
#define STOREGEN_STOREDATA_PAPI_ENTRY_POINTS_H_

#include <cstdint>
#include <memory>

#include "storedata/papi.h"
#include "storedata/papi_record.h"

namespace storegen {

inline LibraryConnection* AsLibraryConnection(void* h) {
  return static_cast<LibraryConnection*>(h);
}

}  // namespace storegen

#pragma GCC visibility push(default)
extern "C" {

void* PAPI_Initialization(const char* key, const char* db, const char* /*storeCfg*/,
                          const char* apiCfg, const char* /*cartDir*/) {
  if (!storegen::PapiKeyOk(key) || apiCfg == nullptr || *apiCfg == '\0') return nullptr;
  try {
    return storegen::LibraryConnection::Open(db, apiCfg).release();
  } catch (...) {
    return nullptr;
  }
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int /*flag*/,
                             const char* /*db*/, const char* /*storeCfg*/, const char* /*apiCfg*/,
                             const char* /*cartDir*/, char** names) {
  if (h == nullptr || !storegen::PapiKeyOk(key) || sku == nullptr) return nullptr;
  try {
    return storegen::AsLibraryConnection(h)->Lookup(sku, names);
  } catch (...) {
    return nullptr;
  }
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int /*flag*/, const char* /*db*/,
                                  const char* /*storeCfg*/, const char* /*apiCfg*/,
                                  const char* /*cartDir*/, int32_t* position, char** names) {
  if (h == nullptr || !storegen::PapiKeyOk(key)) return nullptr;
  try {
    return storegen::AsLibraryConnection(h)->First(position, names);
  } catch (...) {
    return nullptr;
  }
}

PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* key, int /*flag*/, const char* /*db*/,
                                 const char* /*storeCfg*/, const char* /*apiCfg*/,
                                 const char* /*cartDir*/, int32_t* position, char** names) {
  if (h == nullptr || !storegen::PapiKeyOk(key)) return nullptr;
  try {
    return storegen::AsLibraryConnection(h)->Next(position, names);
  } catch (...) {
    return nullptr;
  }
}

int PAPI_ReleaseInfo(void* /*h*/, const char* key, const char* /*sku*/, PAPI_Pair* record) {
  if (!storegen::PapiKeyOk(key)) return -1;
  storegen::FreePapiRecord(record);
  return 0;
}

int PAPI_Cleanup(void* h, const char* key, const char* /*db*/, const char* /*storeCfg*/,
                 const char* /*apiCfg*/, const char* /*cartDir*/) {
  if (!storegen::PapiKeyOk(key)) return -1;
  delete storegen::AsLibraryConnection(h);
  return 0;
}

}  // extern "C"
#pragma GCC visibility pop

#endif  // STOREGEN_STOREDATA_PAPI_ENTRY_POINTS_H_
