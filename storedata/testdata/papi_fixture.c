/*
 * A product library for tests, written in C against storedata/papi.h alone.
 * It serves the products of the file named by apiCfg (one product a line,
 * TAB-separated "name=value" fields) or, when apiCfg is empty or unreadable,
 * a small fixed table. Every call without the access key is refused.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "storedata/papi.h"

static const char* const kFixedProducts[] = {
    "SKU=F1\tName=First fixture\tPrice=1.50\tTILLBOXCATEGORY=Tools",
    "SKU=F2\tName=Second fixture\tPrice=2.50\tTILLBOXCATEGORY=Toys",
    "SKU=F3\tName=Third fixture\tPrice=3.50",
};

typedef struct {
  int count;
  char** lines;
} Connection;

static int KeyOk(const char* key) {
  return key != NULL && strcmp(key, PAPI_ACCESS_KEY) == 0;
}

static char* CopyText(const char* text, size_t len) {
  char* copy = malloc(len + 1);
  if (copy == NULL) return NULL;
  memcpy(copy, text, len);
  copy[len] = '\0';
  return copy;
}

static int SameText(const char* a, const char* b) {
  for (; *a && *b; ++a, ++b) {
    char ca = (*a >= 'A' && *a <= 'Z') ? (char)(*a - 'A' + 'a') : *a;
    char cb = (*b >= 'A' && *b <= 'Z') ? (char)(*b - 'A' + 'a') : *b;
    if (ca != cb) return 0;
  }
  return *a == *b;
}

static void FreeConnection(Connection* c) {
  int i;
  for (i = 0; i < c->count; ++i)
    free(c->lines[i]);
  free(c->lines);
  free(c);
}

static int AddLine(Connection* c, const char* text, size_t len) {
  char** grown = realloc(c->lines, (size_t)(c->count + 1) * sizeof(char*));
  if (grown == NULL) return 0;
  c->lines = grown;
  c->lines[c->count] = CopyText(text, len);
  if (c->lines[c->count] == NULL) return 0;
  c->count++;
  return 1;
}

static int LoadFile(Connection* c, const char* path) {
  char buf[1024];
  FILE* fp = fopen(path, "r");
  if (fp == NULL) return 0;
  while (fgets(buf, sizeof buf, fp) != NULL) {
    size_t len = strcspn(buf, "\r\n");
    if (len > 0 && !AddLine(c, buf, len)) {
      fclose(fp);
      return -1;
    }
  }
  fclose(fp);
  return 1;
}

/* The value of field |name| in |line| as a malloc'd string, "NA" when the
 * line has no such field. */
static char* FieldValue(const char* line, const char* name) {
  const char* p = line;
  size_t name_len = strlen(name);
  while (*p) {
    size_t len = strcspn(p, "\t");
    const char* eq = memchr(p, '=', len);
    if (eq != NULL && (size_t)(eq - p) == name_len) {
      char* field_name = CopyText(p, name_len);
      int same = field_name != NULL && SameText(field_name, name);
      free(field_name);
      if (same) return CopyText(eq + 1, len - name_len - 1);
    }
    p += len;
    if (*p == '\t') ++p;
  }
  return CopyText("NA", 2);
}

static void FreeRecord(PAPI_Pair* record) {
  PAPI_Pair* pair;
  if (record == NULL) return;
  for (pair = record; pair->name != NULL; ++pair) {
    free(pair->name);
    free(pair->value);
  }
  free(record);
}

/* The record of |line|: every field, or the requested |names| in order. */
static PAPI_Pair* MakeRecord(const char* line, char** names) {
  size_t count = 0, i = 0;
  const char* p;
  PAPI_Pair* record;
  if (names != NULL) {
    while (names[count] != NULL)
      ++count;
  } else {
    for (p = line; *p; ++p)
      count += (*p == '\t');
    count += 1;
  }
  record = calloc(count + 1, sizeof(PAPI_Pair));
  if (record == NULL) return NULL;
  for (p = line; i < count; ++i) {
    if (names != NULL) {
      record[i].name = CopyText(names[i], strlen(names[i]));
      record[i].value = FieldValue(line, names[i]);
    } else {
      size_t len = strcspn(p, "\t");
      const char* eq = memchr(p, '=', len);
      size_t name_len = eq != NULL ? (size_t)(eq - p) : len;
      record[i].name = CopyText(p, name_len);
      record[i].value = eq != NULL ? CopyText(eq + 1, len - name_len - 1) : CopyText("NA", 2);
      p += len;
      if (*p == '\t') ++p;
    }
    if (record[i].name == NULL || record[i].value == NULL) {
      free(record[i].name);
      free(record[i].value);
      record[i].name = NULL;
      FreeRecord(record);
      return NULL;
    }
  }
  return record;
}

void* PAPI_Initialization(const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                          const char* cartDir) {
  Connection* c;
  int loaded = 0;
  size_t i;
  (void)db;
  (void)storeCfg;
  (void)cartDir;
  if (!KeyOk(key)) return NULL;
  c = calloc(1, sizeof(Connection));
  if (c == NULL) return NULL;
  if (apiCfg != NULL && apiCfg[0] != '\0') loaded = LoadFile(c, apiCfg);
  if (loaded == 0) {
    for (i = 0; i < sizeof kFixedProducts / sizeof kFixedProducts[0]; ++i) {
      if (!AddLine(c, kFixedProducts[i], strlen(kFixedProducts[i]))) loaded = -1;
    }
  }
  if (loaded < 0) {
    FreeConnection(c);
    return NULL;
  }
  return c;
}

PAPI_Pair* PAPI_RetrieveInfo(void* h, const char* key, const char* sku, int flag, const char* db,
                             const char* storeCfg, const char* apiCfg, const char* cartDir,
                             char** names) {
  Connection* c = h;
  int i;
  (void)flag;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  if (c == NULL || sku == NULL || !KeyOk(key)) return NULL;
  for (i = 0; i < c->count; ++i) {
    char* value = FieldValue(c->lines[i], "SKU");
    int found = value != NULL && SameText(value, sku);
    free(value);
    if (found) return MakeRecord(c->lines[i], names);
  }
  return NULL;
}

PAPI_Pair* PAPI_RetrieveNextItem(void* h, const char* key, int flag, const char* db,
                                 const char* storeCfg, const char* apiCfg, const char* cartDir,
                                 int32_t* position, char** names) {
  Connection* c = h;
  (void)flag;
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  if (c == NULL || position == NULL || !KeyOk(key)) return NULL;
  if (*position < 0 || *position >= c->count) return NULL;
  return MakeRecord(c->lines[(*position)++], names);
}

PAPI_Pair* PAPI_RetrieveFirstItem(void* h, const char* key, int flag, const char* db,
                                  const char* storeCfg, const char* apiCfg, const char* cartDir,
                                  int32_t* position, char** names) {
  if (position == NULL || !KeyOk(key)) return NULL;
  *position = 0;
  return PAPI_RetrieveNextItem(h, key, flag, db, storeCfg, apiCfg, cartDir, position, names);
}

int PAPI_ReleaseInfo(void* h, const char* key, const char* sku, PAPI_Pair* record) {
  (void)h;
  (void)sku;
  if (!KeyOk(key)) return -1;
  FreeRecord(record);
  return 0;
}

int PAPI_Cleanup(void* h, const char* key, const char* db, const char* storeCfg, const char* apiCfg,
                 const char* cartDir) {
  (void)db;
  (void)storeCfg;
  (void)apiCfg;
  (void)cartDir;
  if (!KeyOk(key)) return -1;
  if (h != NULL) FreeConnection(h);
  return 0;
}
