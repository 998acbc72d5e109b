// Helpers for the product libraries built beside storegen: the access-key
// check, which table a database argument selects, and records made as
// papi.h requires (malloc'd pairs, "NA" for a missing value). Header-only
// and written against papi.h alone, so that a library using it links
// nothing of storegen's.
#ifndef STOREGEN_STOREDATA_PAPI_RECORD_H_
#define STOREGEN_STOREDATA_PAPI_RECORD_H_

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "storedata/papi.h"

namespace storegen {

// The most attributes a record holds.
inline constexpr int kPapiMaxAttribs = 99;

inline bool PapiKeyOk(const char* key) {
  return key != nullptr && std::strcmp(key, PAPI_ACCESS_KEY) == 0;
}

// ASCII-only case-insensitive equality, the comparison storegen applies to
// attribute names and SKUs.
inline bool SameIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    char ca = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
    char cb = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
    if (ca != cb) return false;
  }
  return true;
}

// True for the category database: storegen names it after the product
// database with ".cdb" in place of its extension (ASCII case ignored).
inline bool IsCategoryDatabase(const char* db) {
  std::string_view name = db != nullptr ? db : "";
  return name.size() >= 4 && SameIgnoringAsciiCase(name.substr(name.size() - 4), ".cdb");
}

inline void FreePapiRecord(PAPI_Pair* record) {
  if (record == nullptr) return;
  for (PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
    std::free(pair->name);
    std::free(pair->value);
  }
  std::free(record);
}

// A malloc'd record of a row with |columns| columns: without |names|, the
// first 99 columns, each named name_at(i); with |names| (null-terminated,
// the first 99 used), one pair per name in the list's order and spelling,
// from column column_of(name) (-1: none). value_at(i) gives column i's text,
// or null for "NA". Null when memory runs out.
template <class NameAt, class ColumnOf, class ValueAt>
PAPI_Pair* MakePapiRecord(int columns, char** names, NameAt name_at, ColumnOf column_of,
                          ValueAt value_at) {
  auto copy = [](const char* text) {
    std::size_t len = std::strlen(text);
    char* copied = static_cast<char*>(std::malloc(len + 1));
    if (copied != nullptr) std::memcpy(copied, text, len + 1);
    return copied;
  };
  int n = columns < kPapiMaxAttribs ? columns : kPapiMaxAttribs;
  if (names != nullptr) {
    n = 0;
    while (n < kPapiMaxAttribs && names[n] != nullptr)
      ++n;
  }
  auto* record = static_cast<PAPI_Pair*>(std::calloc(n + 1, sizeof(PAPI_Pair)));
  if (record == nullptr) return nullptr;
  for (int i = 0; i < n; ++i) {
    int column = names != nullptr ? column_of(names[i]) : i;
    const char* name = names != nullptr ? names[i] : name_at(i);
    const char* value = column >= 0 ? value_at(column) : nullptr;
    if (name != nullptr) record[i].name = copy(name);
    record[i].value = copy(value != nullptr ? value : "NA");
    if (record[i].name == nullptr || record[i].value == nullptr) {
      std::free(record[i].name);
      std::free(record[i].value);
      record[i] = PAPI_Pair{nullptr, nullptr};
      FreePapiRecord(record);
      return nullptr;
    }
  }
  return record;
}

}  // namespace storegen

#endif  // STOREGEN_STOREDATA_PAPI_RECORD_H_
