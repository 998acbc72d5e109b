#include "cgisupport/config_item_list.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <vector>

#include "cgisupport/config_line.h"
#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"

namespace storegen {
namespace {

constexpr int kCursorStackSize = 10;

// The process-wide walk cursor and its save stack. The depth may leave the
// stack's range after unbalanced pushes or pops (which are reported); only
// slots inside the range are ever stored or read.
ConfigItem* Next_node = nullptr;
ConfigItem* Next_stack[kCursorStackSize] = {};
int Next_ptr = 0;

char kEmptyValue[1] = "";

char* DupOrNull(const char* s) {
  return s != nullptr ? strdup(s) : nullptr;
}

// A new item holding copies of the pair, or null when memory runs out.
ConfigItem* NewItem(const char* name, const char* value) {
  auto* item = static_cast<ConfigItem*>(std::calloc(1, sizeof(ConfigItem)));
  if (item == nullptr) return nullptr;
  item->name = DupOrNull(name);
  item->value = DupOrNull(value);
  if ((name != nullptr && item->name == nullptr) || (value != nullptr && item->value == nullptr)) {
    std::free(item->name);
    std::free(item->value);
    std::free(item);
    return nullptr;
  }
  return item;
}

void FreeItems(ConfigItem* item) {
  while (item != nullptr) {
    ConfigItem* next = item->next;
    std::free(item->name);
    std::free(item->value);
    std::free(item);
    item = next;
  }
}

ConfigItem* FindItem(ConfigItemList* list, const char* name) {
  for (ConfigItem* it = list->first; it != nullptr; it = it->next) {
    if (it->name != nullptr && name != nullptr && KeysEqual(it->name, name)) return it;
  }
  return nullptr;
}

}  // namespace

ConfigItemList* CIL_CreateList() {
  auto* list = static_cast<ConfigItemList*>(std::calloc(1, sizeof(ConfigItemList)));
  if (list != nullptr) list->tail = &list->first;
  return list;
}

ConfigItemList* CIL_CreateListFromFile(const char* file) {
  if (file == nullptr) return nullptr;
  std::unique_ptr<FILE, int (*)(FILE*)> fp(FopenForReading(file), &std::fclose);
  if (!fp) return nullptr;
  ConfigItemList* list = CIL_CreateList();
  if (list == nullptr) return nullptr;
  // Left uninitialised: fgets writes what is read, and the 64 KB would
  // otherwise be cleared for every list, which a server making page after
  // page feels.
  std::unique_ptr<char[]> line(new char[kConfigLineSize]);
  while (std::fgets(line.get(), kConfigLineSize, fp.get()) != nullptr) {
    ConfigLineTokens tokens = SplitConfigLine(line.get());
    if (tokens.value.empty()) continue;
    std::string name(tokens.key), value(tokens.value);
    CIL_AddItem(list, name.c_str(), value.c_str());  // a failed insertion is passed over
  }
  return list;
}

int CIL_IsListEmpty(const ConfigItemList* list) {
  return list == nullptr || list->first == nullptr;
}

int CIL_AddItem(ConfigItemList* list, const char* name, const char* value) {
  if (list == nullptr) return 0;
  ConfigItem* item = NewItem(name, value);
  if (item == nullptr) return 0;
  if (list->tail == &list->first && list->first != nullptr) {
    // Items put at the start of a list that was empty then are not reachable
    // from the tail link; hooking in here drops them from the list, so they
    // are released now rather than lost.
    FreeItems(list->first);
  }
  *list->tail = item;
  list->tail = &item->next;
  ++list->count;
  return 1;
}

int CIL_AddItemAtStart(ConfigItemList* list, const char* name, const char* value) {
  if (list == nullptr) return 0;
  ConfigItem* item = NewItem(name, value);
  if (item == nullptr) return 0;
  item->next = list->first;
  list->first = item;
  ++list->count;
  return 1;
}

int CIL_SetItem(ConfigItemList* list, const char* name, const char* value) {
  if (list == nullptr) return 0;
  ConfigItem* item = FindItem(list, name);
  if (item == nullptr) return CIL_AddItem(list, name, value);
  char* copy = DupOrNull(value);
  if (value != nullptr && copy == nullptr) return 0;
  std::free(item->value);
  item->value = copy;
  return 1;
}

int CIL_GetItemValueP(ConfigItemList* list, const char* name, char** value_out, int must_exist) {
  if (value_out != nullptr) *value_out = kEmptyValue;
  if (list == nullptr) return -1;
  ConfigItem* item = FindItem(list, name);
  if (item == nullptr) return must_exist == 1 ? -2 : 0;
  if (value_out != nullptr) *value_out = item->value;
  return 1;
}

int CIL_GetItem(ConfigItemList* list, const char* name, char* buf, int buf_size, int must_exist) {
  char* value = nullptr;
  int rc = CIL_GetItemValueP(list, name, &value, must_exist);
  if (rc != 1) return rc;
  if (buf != nullptr && buf_size > 0) {
    CopyTruncated(buf, static_cast<std::size_t>(buf_size), value != nullptr ? value : "");
    buf[buf_size - 1] = '\0';
  }
  return 1;
}

int CIL_GetNextNVP(ConfigItemList* list, char** name_out, char** value_out) {
  if (list != nullptr) {
    Next_node = list->first;
  } else {
    if (Next_node == nullptr) return 0;
    Next_node = Next_node->next;
  }
  if (Next_node == nullptr) return 0;
  if (name_out != nullptr) *name_out = Next_node->name;
  if (value_out != nullptr) *value_out = Next_node->value;
  return 1;
}

void CIL_PushGetNextNVP() {
  if (Next_ptr >= 0 && Next_ptr < kCursorStackSize) Next_stack[Next_ptr] = Next_node;
  ++Next_ptr;
  if (Next_ptr >= kCursorStackSize) std::printf("CIL_Next:Stack exceeded - %d", kCursorStackSize);
}

void CIL_PopGetNextNVP() {
  if (Next_ptr < 1) std::printf("CIL_Next:Stack empty");
  --Next_ptr;
  if (Next_ptr >= 0 && Next_ptr < kCursorStackSize) Next_node = Next_stack[Next_ptr];
}

void ResetConfigListCursor() {
  Next_node = nullptr;
  std::fill(std::begin(Next_stack), std::end(Next_stack), nullptr);
  Next_ptr = 0;
}

void CIL_FreeList(ConfigItemList* list) {
  if (list == nullptr) return;
  FreeItems(list->first);
  std::free(list);
}

}  // namespace storegen
