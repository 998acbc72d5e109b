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
char* AD_GetAttributeLabel(AttributePool* pool, int32_t index);                     // copy
char* AD_GetAttributeValue(AttributePool* pool, int32_t index, int32_t position);   // copy
const char* AD_GetAttributeValuePTR(AttributePool* pool, int32_t index, int32_t position);
int32_t AD_GetAttributeType(AttributePool* pool, int32_t index);
char* AD_GetNextAttributeLabel(AttributePool* pool);  // copy; pool restarts, null continues
const char* AD_GetNextAttributeLabelPTR(AttributePool* pool);
int AD_DeleteAttributeLabel(AttributePool* pool, int32_t index);
int AD_DeleteAttributeValue(AttributePool* pool, int32_t index, int32_t position);
int AD_SetAttributeType(AttributePool* pool, int32_t index, int32_t type);
int AD_SetAttributeValue(AttributePool* pool, int32_t index, int32_t position, const char* value);
int AD_SetAttributeName(AttributePool* pool, int32_t index, const char* label);

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_ATTRIBUTE_DB_H_
