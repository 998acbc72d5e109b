// ConfigItemList: an ordered in-memory list of name/value pairs, filled from a
// configuration file, searched, changed and handed to SetConfigItems.
//
// The walk cursor used by CIL_GetNextNVP is process-wide (one walk at a time;
// nested walks save and restore it with CIL_PushGetNextNVP/CIL_PopGetNextNVP).
// Not reentrant.
#ifndef STOREGEN_CGISUPPORT_CONFIG_ITEM_LIST_H_
#define STOREGEN_CGISUPPORT_CONFIG_ITEM_LIST_H_

#include <cstdint>

namespace storegen {

struct ConfigItem {
  char* name;       // owned copy, may be null; case kept as given
  char* value;      // owned copy, may be null
  int32_t written;  // scratch flag of SetConfigItems, 0 outside it
  ConfigItem* next;
};

struct ConfigItemList {
  ConfigItem* first;
  ConfigItem** tail;  // where CIL_AddItem hooks the next item; starts at &first
  int32_t count;      // items added, never decreased
};

// New empty list, or null when memory is short. Free with CIL_FreeList.
ConfigItemList* CIL_CreateList();
// New list of every line of |file| with both key and value, in file order
// (duplicates kept); null when memory is short or the file cannot be opened.
ConfigItemList* CIL_CreateListFromFile(const char* file);
// Non-zero when the list holds no item.
int CIL_IsListEmpty(const ConfigItemList* list);
// Appends copies of the pair at the tail. 1 on success; 0 on a null list or a
// failed allocation. Null name or value are stored as null.
int CIL_AddItem(ConfigItemList* list, const char* name, const char* value);
// Puts copies of the pair in front. Leaves the tail link alone, so on a list
// that is empty at that moment a later CIL_AddItem replaces this item.
int CIL_AddItemAtStart(ConfigItemList* list, const char* name, const char* value);
// Sets the value of the first item named |name| (case ignored), or appends.
int CIL_SetItem(ConfigItemList* list, const char* name, const char* value);
// Points *value_out at the stored value of the first item named |name| (first
// set to ""; may end null for an item stored with a null value). Returns 1
// found, 0 not found (-2 if |must_exist| is 1), -1 for a null list.
int CIL_GetItemValueP(ConfigItemList* list, const char* name, char** value_out, int must_exist);
// As CIL_GetItemValueP, then copies the value into |buf| cut to buf_size - 1
// bytes and terminated ("" for a null value). On a miss |buf| is untouched.
int CIL_GetItem(ConfigItemList* list, const char* name, char* buf, int buf_size, int must_exist);
// With |list|: moves the cursor to its first item; with null: to the item
// after the cursor. Returns 1 with the item's pointers stored in the non-null
// out parameters, 0 at the end.
int CIL_GetNextNVP(ConfigItemList* list, char** name_out, char** value_out);
// Saves the cursor on the 10-deep stack; the tenth push and later ones print
// "CIL_Next:Stack exceeded - 10" and pushes beyond the tenth are not stored.
void CIL_PushGetNextNVP();
// Restores the cursor; an empty stack prints "CIL_Next:Stack empty".
void CIL_PopGetNextNVP();
// Frees the list, its items and their strings; null is ignored.
void CIL_FreeList(ConfigItemList* list);
// Puts the cursor and its stack back in their start state: no item, nothing
// saved.
void ResetConfigListCursor();

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CONFIG_ITEM_LIST_H_
