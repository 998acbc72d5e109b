#include "storedata/attribute_db.h"

#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string>

#include "storedata/attribute_pool.h"

namespace storegen {

void InsertAttributeInOrder(AttributePool& pool, AttributeNode node) {
  const int32_t index = node.index;
  auto next = pool.first_of_index.lower_bound(index);
  const AttributeIter at = next != pool.first_of_index.end() ? next->second : pool.attributes.end();
  const AttributeIter added = pool.attributes.insert(at, std::move(node));
  // An equal index goes in front, so the new attribute is the first of its index.
  try {
    pool.first_of_index.insert_or_assign(next, index, added);
  } catch (const std::bad_alloc&) {
    pool.attributes.erase(added);
    throw;
  }
}

AttributeNode* FindAttribute(AttributePool& pool, int32_t index) {
  auto found = pool.first_of_index.find(index);
  return found != pool.first_of_index.end() ? &*found->second : nullptr;
}

void EraseAttribute(AttributePool& pool, AttributeIter it) {
  auto first = pool.first_of_index.find(it->index);
  if (first != pool.first_of_index.end() && first->second == it) {
    const AttributeIter after = std::next(it);
    if (after != pool.attributes.end() && after->index == it->index) {
      first->second = after;
    } else {
      pool.first_of_index.erase(first);
    }
  }
  pool.attributes.erase(it);
}

namespace {

// The cursor of one next-label operation: the pool it walks and the attribute
// the next call returns.
struct LabelCursor {
  AttributePool* pool = nullptr;
  AttributeIter next;
};
LabelCursor g_label_cursor;      // AD_GetNextAttributeLabel
LabelCursor g_label_ptr_cursor;  // AD_GetNextAttributeLabelPTR

// The value at 1-based |position|, or null.
std::string* FindValue(AttributePool* pool, int32_t index, int32_t position) {
  AttributeNode* node = FindAttribute(*pool, index);
  if (node == nullptr || position < 1) return nullptr;
  int32_t at = 1;
  for (std::string& value : node->values) {
    if (at++ == position) return &value;
  }
  return nullptr;
}

char* CopyOf(const std::string& text) {
  return strdup(text.c_str());
}

// Returns the label at |cursor| (null at the end) and advances it.
const std::string* StepCursor(LabelCursor* cursor, AttributePool* pool) {
  if (pool != nullptr) {
    cursor->pool = pool;
    cursor->next = pool->attributes.begin();
  }
  if (cursor->pool == nullptr || cursor->next == cursor->pool->attributes.end()) return nullptr;
  static const std::string kNoLabel;
  const AttributeNode& node = *cursor->next++;
  return node.label ? &*node.label : &kNoLabel;
}

// Keeps the cursors valid when |doomed| is unlinked from |pool|.
void MoveCursorsPast(AttributePool* pool, AttributeIter doomed) {
  for (LabelCursor* cursor : {&g_label_cursor, &g_label_ptr_cursor}) {
    if (cursor->pool == pool && cursor->next == doomed) ++cursor->next;
  }
}

void EndCursors(AttributePool* pool) {
  for (LabelCursor* cursor : {&g_label_cursor, &g_label_ptr_cursor}) {
    if (cursor->pool == pool) *cursor = LabelCursor{};
  }
}

}  // namespace

AttributePool* AD_InitAttributePool(const char* path) {
  if (path == nullptr) return nullptr;
  AttributePool* pool = new (std::nothrow) AttributePool;
  if (pool == nullptr) return nullptr;
  try {
    pool->file_name = path;
  } catch (const std::bad_alloc&) {
    delete pool;
    return nullptr;
  }
  if (!ReadAttributeFile(pool)) {
    delete pool;
    return nullptr;
  }
  static uint64_t pools_opened = 0;
  pool->serial = ++pools_opened;
  return pool;
}

int AD_ShutdownAttributePool(AttributePool* pool) {
  if (pool == nullptr) return 0;
  int result = pool->modified ? (WriteAttributeFile(*pool) ? 1 : 0) : 1;
  EndCursors(pool);
  delete pool;
  return result;
}

int32_t AD_AddAttributeLabel(AttributePool* pool, const char* label, int32_t type) {
  if (pool == nullptr || label == nullptr || AD_GetAttributeIndex(pool, label) != 0) return 0;
  // The first gap in the leading run 1, 2, 3, ... of indices.
  int32_t index = 0;
  for (const AttributeNode& node : pool->attributes) {
    if (node.index != index + 1) break;
    ++index;
  }
  ++index;
  try {
    AttributeNode node;
    node.index = index;
    node.type = type;
    node.label = label;
    InsertAttributeInOrder(*pool, std::move(node));
  } catch (const std::bad_alloc&) {
    return 0;
  }
  pool->modified = true;
  return index;
}

int AD_AddAttributeValue(AttributePool* pool, int32_t index, const char* value) {
  if (pool == nullptr || value == nullptr) return 0;
  AttributeNode* node = FindAttribute(*pool, index);
  if (node == nullptr) return 0;
  std::string* empty_slot = nullptr;
  for (std::string& existing : node->values) {
    if (existing == value) return 0;
    if (empty_slot == nullptr && existing.empty()) empty_slot = &existing;
  }
  try {
    if (empty_slot != nullptr) {
      *empty_slot = value;
    } else {
      node->values.emplace_back(value);
    }
  } catch (const std::bad_alloc&) {
    return 0;
  }
  pool->modified = true;
  return 1;
}

int32_t AD_GetAttributeIndex(AttributePool* pool, const char* label) {
  if (pool == nullptr || label == nullptr) return 0;
  for (const AttributeNode& node : pool->attributes) {
    if (node.label && *node.label == label) return node.index;
  }
  return 0;
}

int32_t AD_GetAttributeOffset(AttributePool* pool, int32_t index, const char* value) {
  if (pool == nullptr || value == nullptr) return 0;
  AttributeNode* node = FindAttribute(*pool, index);
  if (node == nullptr) return 0;
  int32_t position = 1;
  for (const std::string& existing : node->values) {
    if (existing == value) return position;
    ++position;
  }
  return 0;
}

char* AD_GetAttributeLabel(AttributePool* pool, int32_t index) {
  if (pool == nullptr) return nullptr;
  AttributeNode* node = FindAttribute(*pool, index);
  return node != nullptr && node->label ? CopyOf(*node->label) : nullptr;
}

char* AD_GetAttributeValue(AttributePool* pool, int32_t index, int32_t position) {
  if (pool == nullptr) return nullptr;
  std::string* value = FindValue(pool, index, position);
  return value != nullptr ? CopyOf(*value) : nullptr;
}

const char* AD_GetAttributeValuePTR(AttributePool* pool, int32_t index, int32_t position) {
  if (pool == nullptr) return nullptr;
  std::string* value = FindValue(pool, index, position);
  return value != nullptr ? value->c_str() : nullptr;
}

uint64_t AD_PoolContentsId(const AttributePool* pool) {
  return pool != nullptr && !pool->modified ? pool->serial : 0;
}

int32_t AD_GetAttributeType(AttributePool* pool, int32_t index) {
  if (pool == nullptr) return 0;
  AttributeNode* node = FindAttribute(*pool, index);
  return node != nullptr ? node->type : 0;
}

char* AD_GetNextAttributeLabel(AttributePool* pool) {
  const std::string* label = StepCursor(&g_label_cursor, pool);
  return label != nullptr ? CopyOf(*label) : nullptr;
}

const char* AD_GetNextAttributeLabelPTR(AttributePool* pool) {
  const std::string* label = StepCursor(&g_label_ptr_cursor, pool);
  return label != nullptr ? label->c_str() : nullptr;
}

int AD_DeleteAttributeLabel(AttributePool* pool, int32_t index) {
  if (pool == nullptr) return 0;
  auto found = pool->first_of_index.find(index);
  if (found == pool->first_of_index.end()) return 0;
  MoveCursorsPast(pool, found->second);
  EraseAttribute(*pool, found->second);
  pool->modified = true;
  return 1;
}

int AD_DeleteAttributeValue(AttributePool* pool, int32_t index, int32_t position) {
  if (pool == nullptr) return 0;
  std::string* value = FindValue(pool, index, position);
  if (value == nullptr) return 0;
  value->clear();
  pool->modified = true;
  return 1;
}

int AD_SetAttributeType(AttributePool* pool, int32_t index, int32_t type) {
  if (pool == nullptr) return 0;
  AttributeNode* node = FindAttribute(*pool, index);
  if (node == nullptr) return 0;
  node->type = type;
  pool->modified = true;
  return 1;
}

int AD_SetAttributeValue(AttributePool* pool, int32_t index, int32_t position, const char* value) {
  if (pool == nullptr || value == nullptr) return 0;
  std::string* slot = FindValue(pool, index, position);
  if (slot == nullptr) return 0;
  try {
    *slot = value;
  } catch (const std::bad_alloc&) {
    return 0;
  }
  pool->modified = true;
  return 1;
}

int AD_SetAttributeName(AttributePool* pool, int32_t index, const char* label) {
  if (pool == nullptr || label == nullptr) return 0;
  AttributeNode* node = FindAttribute(*pool, index);
  if (node == nullptr) return 0;
  try {
    node->label = label;
  } catch (const std::bad_alloc&) {
    return 0;
  }
  pool->modified = true;
  return 1;
}

}  // namespace storegen
