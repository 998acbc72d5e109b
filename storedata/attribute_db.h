// The attribute database (".adb"): per attribute an index, a form-control
// type, a label and a list of values, kept in memory as an AttributePool and
// written back at close only when changed. The next-label cursors are
// process-wide; not reentrant.
#ifndef STOREGEN_STOREDATA_ATTRIBUTE_DB_H_
#define STOREGEN_STOREDATA_ATTRIBUTE_DB_H_

#include <cstdint>
#include <cstdio>

namespace storegen {

struct AttributePool;  // defined in attribute_db.cc

// Opens the database at |path|: a missing or unreadable file gives an empty
// pool. Null when |path| is null or memory runs out.
AttributePool* AD_InitAttributePool(const char* path);
// Writes the file back when the pool was changed (1 written or unchanged, 0
// when it cannot be written) and releases the pool; null gives 0.
int AD_ShutdownAttributePool(AttributePool* pool);

// Every operation returns 0 (or null) for a null pool. Strings passed in are
// copied; results marked "copy" are malloc'd and freed by the caller.
int32_t AD_AddAttributeLabel(AttributePool* pool, const char* label, int32_t type);
int AD_AddAttributeValue(AttributePool* pool, int32_t index, const char* value);
int32_t AD_GetAttributeIndex(AttributePool* pool, const char* label);
int32_t AD_GetAttributeOffset(AttributePool* pool, int32_t index, const char* value);
char* AD_GetAttributeLabel(AttributePool* pool, int32_t index);                    // copy
char* AD_GetAttributeValue(AttributePool* pool, int32_t index, int32_t position);  // copy
const char* AD_GetAttributeValuePTR(AttributePool* pool, int32_t index, int32_t position);
int32_t AD_GetAttributeType(AttributePool* pool, int32_t index);
// What identifies the pool's contents, for output made from them that is
// kept: no two pools opened in this process share it, and it is 0 (keep
// nothing) for a null pool or once the pool was changed.
uint64_t AD_PoolContentsId(const AttributePool* pool);
char* AD_GetNextAttributeLabel(AttributePool* pool);  // copy; pool restarts, null continues
const char* AD_GetNextAttributeLabelPTR(AttributePool* pool);
int AD_DeleteAttributeLabel(AttributePool* pool, int32_t index);
int AD_DeleteAttributeValue(AttributePool* pool, int32_t index, int32_t position);
int AD_SetAttributeType(AttributePool* pool, int32_t index, int32_t type);
int AD_SetAttributeValue(AttributePool* pool, int32_t index, int32_t position, const char* value);
int AD_SetAttributeName(AttributePool* pool, int32_t index, const char* label);

// The value lists and the null-string arguments: a null label or value given
// to an add or set operation is refused with 0. An emptied value keeps its
// position (AD_GetAttributeValue gives ""), and the next value added fills the
// first empty position. AD_GetNextAttributeLabel gives a copy of "" for an
// attribute without label (the PTR variant a static ""); both cursors move on
// past an attribute that AD_DeleteAttributeLabel removes, and a closed pool's
// cursors end. Writing at close goes to a temporary file beside the database,
// renamed into place, so a failed write leaves the old file as it was.

// Derives the attribute database name from the store configuration's
// "ProductDatabase" (its three-letter extension replaced by "adb", else ".adb"
// appended) into |db_name|, and the working-copy name (last character "_")
// into |work_name|, both |size| bytes, cut and terminated. When the key is
// missing both buffers are left untouched. Always returns 0.
int AttributeFileName(const char* store_config, char* db_name, char* work_name, int size);

// Opens the pool on the working copy |work_name| when it exists; when it does
// not, copies |db_name| to it first and opens it if |copy| is set, else opens
// |db_name| itself. |unused| is ignored. Null as AD_InitAttributePool.
AttributePool* OpenAttributeDataSource(void* unused, int copy, const char* db_name,
                                       const char* work_name);

// Copies |src| to |dst|: 0 on success, 1 when the copy failed.
int iCopyFile(const char* src, const char* dst);

// Reads one line of any length from |fp|: the LF is kept, every CR dropped.
// Returns the malloc'd line (also stored in *line; the caller frees it), or
// null (and *line null) at end of file, on a read error or when memory runs
// out. The file is left just after the LF.
char* tb_fgets(char** line, FILE* fp);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_ATTRIBUTE_DB_H_
