/*
 * storegen product API: the six entry points a product-database library
 * exports so that storegen can read a store's products (and its categories)
 * from any database.
 *
 * Conventions:
 *  - Build a shared library that exports the six functions below with C
 *    linkage, and name it in the store configuration (key ProductAPILibrary;
 *    ProductAPILibConfig names a file of the library's own, passed through).
 *  - Every call carries the access key PAPI_ACCESS_KEY ("qrst5820"); a
 *    library may refuse calls that do not.
 *  - A product record is an array of PAPI_Pair allocated with malloc, one pair
 *    per attribute, ended by a pair whose name is NULL. Every name and value
 *    is a separate NUL-terminated string allocated with malloc (strdup).
 *    A value the database lacks is the string "NA". storegen gives every
 *    record back through PAPI_ReleaseInfo, and may also release records it
 *    keeps by calling free() on each name, each value and the array: never
 *    use another allocator.
 *  - The attribute "SKU" is the product's key; "TILLBOXCATEGORY" its category
 *    and "TILLBOXTEMPLATE" the display name of its page template. A category
 *    database record carries its name in "TILLBOXCATEGORY".
 *  - storegen opens one connection per pass: PAPI_Initialization, then either
 *    PAPI_RetrieveFirstItem followed by PAPI_RetrieveNextItem until NULL, or
 *    single PAPI_RetrieveInfo calls, every record released before the next
 *    retrieval, and PAPI_Cleanup at the end (never for a NULL handle).
 *  - The category database is opened through the same entry points with the
 *    product database path whose extension is replaced by ".cdb" (".cdb"
 *    alone when the store names no product database).
 *  - Nothing here is called from more than one thread.
 */
#ifndef STOREGEN_STOREDATA_PAPI_H_
#define STOREGEN_STOREDATA_PAPI_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define PAPI_ACCESS_KEY "qrst5820"

typedef struct {
  char *name;
  char *value;
} PAPI_Pair;

/* Opens the database |db|. Returns an opaque handle, or NULL on failure. */
void *PAPI_Initialization(const char *key, const char *db, const char *storeCfg,
                          const char *apiCfg, const char *cartDir);

/* The record of the product whose SKU equals |sku| (compared without regard
 * to case), or NULL when there is none. |flag| is 1. |names| is a
 * NULL-terminated list of the attribute names wanted, or NULL for all of them
 * in the database's column order (storegen always passes NULL). */
PAPI_Pair *PAPI_RetrieveInfo(void *h, const char *key, const char *sku, int flag, const char *db,
                             const char *storeCfg, const char *apiCfg, const char *cartDir,
                             char **names);

/* The first product's record, or NULL when there are none. *position is the
 * caller's storage through which the iteration remembers where it is; single
 * lookups may run between two calls without disturbing it. */
PAPI_Pair *PAPI_RetrieveFirstItem(void *h, const char *key, int flag, const char *db,
                                  const char *storeCfg, const char *apiCfg, const char *cartDir,
                                  int32_t *position, char **names);

/* The next product's record, or NULL at the end; *position advances. */
PAPI_Pair *PAPI_RetrieveNextItem(void *h, const char *key, int flag, const char *db,
                                 const char *storeCfg, const char *apiCfg, const char *cartDir,
                                 int32_t *position, char **names);

/* Releases |record| (each name, each value, then the array); NULL is
 * ignored. |sku| may be empty. Returns 0. */
int PAPI_ReleaseInfo(void *h, const char *key, const char *sku, PAPI_Pair *record);

/* Ends the connection; |h| is invalid afterwards. Returns 0. */
int PAPI_Cleanup(void *h, const char *key, const char *db, const char *storeCfg,
                 const char *apiCfg, const char *cartDir);

/* Pointer types of the six entry points, as storegen resolves them. */
typedef void *(*PAPI_InitializationFn)(const char *, const char *, const char *, const char *,
                                       const char *);
typedef PAPI_Pair *(*PAPI_RetrieveInfoFn)(void *, const char *, const char *, int, const char *,
                                          const char *, const char *, const char *, char **);
typedef PAPI_Pair *(*PAPI_RetrieveItemFn)(void *, const char *, int, const char *, const char *,
                                          const char *, const char *, int32_t *, char **);
typedef int (*PAPI_ReleaseInfoFn)(void *, const char *, const char *, PAPI_Pair *);
typedef int (*PAPI_CleanupFn)(void *, const char *, const char *, const char *, const char *,
                              const char *);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* STOREGEN_STOREDATA_PAPI_H_ */
