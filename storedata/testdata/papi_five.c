/*
 * A product library for tests that exports only five of the six entry points
 * (PAPI_RetrieveNextItem is missing): storegen must refuse and unload it.
 */
#include <stddef.h>

#include "storedata/papi.h"

void* PAPI_Initialization(const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                          const char* cartDir) {
  (void)key;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  return NULL;
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int flag, const char* db,
                             const char* storeCfg, const char* apiCfg, const char* cartDir,
                             char** names) {
  (void)h;
  (void)key;
  (void)sku;
  (void)flag;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  (void)names;
  return NULL;
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int flag, const char* db,
                                  const char* storeCfg, const char* apiCfg, const char* cartDir,
                                  int32_t* position, char** names) {
  (void)h;
  (void)key;
  (void)flag;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  (void)position;
  (void)names;
  return NULL;
}

int PAPI_ReleaseInfo(void* h, const char* key, const char* sku, PAPI_Pair* record) {
  (void)h;
  (void)key;
  (void)sku;
  (void)record;
  return 0;
}

int PAPI_Cleanup(void* h, const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                 const char* cartDir) {
  (void)h;
  (void)key;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  return 0;
}
