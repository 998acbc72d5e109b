/*
 * A product library for the concurrency tests: three products in one
 * category, "Kitchen", which the category database holds. When
 * STOREGEN_TEST_GATE names a FIFO, the first product connection of the
 * process creates "<gate>.reached" and then waits until the test opens the
 * FIFO for writing, so that a test can hold a run in the middle of its work
 * for as long as it needs.
 */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

#include "storedata/papi.h"

static const char* const kProducts[][4] = {{"A-100", "Kettle", "24.50", "Kitchen"},
                                           {"B-200", "Cup", "3.00", "Kitchen"},
                                           {"C-300", "Spoon", "1.00", "Kitchen"}};
enum { kProductCount = 3 };
static const char* const kCategory[4] = {"Kitchen", "Kitchen", "Pots and cups",
                                         "images/cat-kitchen.svg"};

typedef struct {
  int categories; /* the ".cdb" connection: one record, kCategory */
} Connection;

static char* Copy(const char* s) {
  char* c = malloc(strlen(s) + 1);
  if (c != NULL) strcpy(c, s);
  return c;
}

static PAPI_Pair* Make(const char* const names[4], const char* const values[4]) {
  PAPI_Pair* r = calloc(5, sizeof *r);
  if (r == NULL) return NULL;
  for (int k = 0; k < 4; ++k) {
    r[k].name = Copy(names[k]);
    r[k].value = Copy(values[k]);
  }
  return r;
}

static PAPI_Pair* Record(int i) {
  static const char* const kNames[] = {"SKU", "NAME", "PRICE", "TILLBOXCATEGORY"};
  return Make(kNames, kProducts[i]);
}

static PAPI_Pair* CategoryRecord(void) {
  static const char* const kNames[] = {"TILLBOXCATEGORY", "TITLE", "BLURB", "GRAPHIC"};
  return Make(kNames, kCategory);
}

static void WaitAtGate(void) {
  static int passed;
  const char* gate = getenv("STOREGEN_TEST_GATE");
  if (gate == NULL || passed) return;
  passed = 1;
  char reached[4096];
  snprintf(reached, sizeof reached, "%s.reached", gate);
  close(open(reached, O_WRONLY | O_CREAT, 0644));
  int fd = open(gate, O_RDONLY); /* blocks until the test opens it for writing */
  if (fd >= 0) close(fd);
}

void* PAPI_Initialization(const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                          const char* cartDir) {
  (void)key, (void)storeCfg, (void)apiCfg, (void)cartDir;
  Connection* c = calloc(1, sizeof *c);
  if (c == NULL) return NULL;
  size_t n = db != NULL ? strlen(db) : 0;
  c->categories = n >= 4 && strcmp(db + n - 4, ".cdb") == 0;
  if (!c->categories) WaitAtGate();
  return c;
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int flag, const char* db,
                             const char* storeCfg, const char* apiCfg, const char* cartDir,
                             char** names) {
  (void)key, (void)flag, (void)db, (void)storeCfg, (void)apiCfg, (void)cartDir, (void)names;
  if (h == NULL || sku == NULL) return NULL;
  if (((Connection*)h)->categories)
    return strcasecmp(sku, kCategory[0]) == 0 ? CategoryRecord() : NULL;
  for (int i = 0; i < kProductCount; ++i) {
    if (strcasecmp(kProducts[i][0], sku) == 0) return Record(i);
  }
  return NULL;
}

PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* key, int flag, const char* db,
                                 const char* storeCfg, const char* apiCfg, const char* cartDir,
                                 int32_t* position, char** names) {
  (void)key, (void)flag, (void)db, (void)storeCfg, (void)apiCfg, (void)cartDir, (void)names;
  if (h == NULL || position == NULL) return NULL;
  int count = ((Connection*)h)->categories ? 1 : kProductCount;
  if (*position < 0 || *position >= count) return NULL;
  if (((Connection*)h)->categories) return ++*position, CategoryRecord();
  return Record((*position)++);
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int flag, const char* db,
                                  const char* storeCfg, const char* apiCfg, const char* cartDir,
                                  int32_t* position, char** names) {
  if (position != NULL) *position = 0;
  return PAPI_RetrieveNextItem(h, key, flag, db, storeCfg, apiCfg, cartDir, position, names);
}

int PAPI_ReleaseInfo(void* h, const char* key, const char* sku, PAPI_Pair* record) {
  (void)h, (void)key, (void)sku;
  if (record == NULL) return 0;
  for (PAPI_Pair* p = record; p->name != NULL; ++p) {
    free(p->name);
    free(p->value);
  }
  free(record);
  return 0;
}

int PAPI_Cleanup(void* h, const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                 const char* cartDir) {
  (void)key, (void)db, (void)storeCfg, (void)apiCfg, (void)cartDir;
  free(h);
  return 0;
}
