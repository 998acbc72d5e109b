// Product libraries seen through the six entry points of storedata/papi.h:
// a library loaded with dlopen, or storegen's built-in reader, and one
// connection used the way the generator uses it. Header-only; a test binary
// that names kBuiltin links storegen_storedata.
#ifndef STOREGEN_TESTS_SUPPORT_PAPI_CONN_H_
#define STOREGEN_TESTS_SUPPORT_PAPI_CONN_H_

#include <dlfcn.h>

#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "storedata/product_db.h"

namespace storegen::testing {

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct Api {
  PAPI_InitializationFn init;
  PAPI_RetrieveInfoFn retrieve;
  PAPI_ReleaseInfoFn release;
  PAPI_RetrieveItemFn first, next;
  PAPI_CleanupFn cleanup;
};

inline const Api kBuiltin = {&storegen::PAPI_Initialization,   &storegen::PAPI_RetrieveInfo,
                             &storegen::PAPI_ReleaseInfo,      &storegen::PAPI_RetrieveFirstItem,
                             &storegen::PAPI_RetrieveNextItem, &storegen::PAPI_Cleanup};

// The entry points of the library |path|, loaded for good.
inline Api LoadApi(const char* path) {
  void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  return {reinterpret_cast<PAPI_InitializationFn>(dlsym(lib, "PAPI_Initialization")),
          reinterpret_cast<PAPI_RetrieveInfoFn>(dlsym(lib, "PAPI_RetrieveInfo")),
          reinterpret_cast<PAPI_ReleaseInfoFn>(dlsym(lib, "PAPI_ReleaseInfo")),
          reinterpret_cast<PAPI_RetrieveItemFn>(dlsym(lib, "PAPI_RetrieveFirstItem")),
          reinterpret_cast<PAPI_RetrieveItemFn>(dlsym(lib, "PAPI_RetrieveNextItem")),
          reinterpret_cast<PAPI_CleanupFn>(dlsym(lib, "PAPI_Cleanup"))};
}

// One connection of either kind, used as the generator uses it.
class Conn {
 public:
  Conn(const Api& api, const std::string& db, const std::string& api_cfg = "")
      : api_(api), h_(api.init(PAPI_ACCESS_KEY, db.c_str(), "", api_cfg.c_str(), "")) {}
  ~Conn() {
    if (h_ != nullptr) api_.cleanup(h_, PAPI_ACCESS_KEY, "", "", "", "");
  }
  Conn(const Conn&) = delete;
  Conn& operator=(const Conn&) = delete;
  void* handle() const { return h_; }

  Pairs Take(PAPI_Pair* record) {
    Pairs pairs;
    for (PAPI_Pair* p = record; p != nullptr && p->name != nullptr; ++p)
      pairs.emplace_back(p->name, p->value);
    api_.release(h_, PAPI_ACCESS_KEY, "", record);
    return pairs;
  }
  Pairs Lookup(const std::string& sku, char** names = nullptr) {
    return Take(api_.retrieve(h_, PAPI_ACCESS_KEY, sku.c_str(), 1, "", "", "", "", names));
  }
  Pairs First() {
    return Take(api_.first(h_, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr));
  }
  Pairs Next() {
    return Take(api_.next(h_, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr));
  }
  std::vector<Pairs> All() {
    std::vector<Pairs> items;
    for (Pairs item = First(); !item.empty(); item = Next())
      items.push_back(item);
    return items;
  }

  int32_t position = 0;

 private:
  const Api& api_;
  void* h_;
};

// Product databases that a library must read as the built-in reader does:
// (what, text) pairs, each text both a product and a category database.
inline std::vector<std::pair<const char*, std::string>> ReaderCases() {
  std::string wide_names, wide_values;
  for (int i = 0; i < 120; ++i) {
    wide_names += "Col" + std::to_string(i) + "\t";
    wide_values += "v" + std::to_string(i) + "\t";
  }
  return {
      {"CRLF, short lines, empty fields, empty lines",
       "SKU\tName\t\tPrice\r\nA1\tShirt\r\n\r\nB2\t\t9.99\t\r\n\nC3\t\t\r\nNA\tNA\tNA\r\n"},
      {"repeated SKUs in other letter case", "SKU\tName\nA1\tfirst\na1\tsecond\nb2\tx\nB2\ty\n"},
      {"only a name line", "SKU\tName\n"},
      {"120 columns", wide_names + "\n" + wide_values + "\nshort\n"},
      {"no line end at the end", "Sku\tname\tPRICE\nZ9\tlast\t1"},
      {"a line of 2047 bytes", "SKU\tName\r\nA\t" + std::string(2045, 'x') + "\r\nB\tb\r\n"}};
}

// Expects |library| to give what |builtin| gives: every item in order, and
// for each SKU (as it stands and in lower case) and for a missing one the
// whole record and the record of a list of names.
inline void ExpectSameRecords(Conn& library, Conn& builtin) {
  ASSERT_NE(library.handle(), nullptr);
  std::vector<Pairs> items = builtin.All();
  EXPECT_EQ(library.All(), items);
  items.push_back({{"SKU", "missing"}});
  char* wanted[] = {const_cast<char*>("price"), const_cast<char*>("NoSuch"),
                    const_cast<char*>("sku"), nullptr};
  for (const Pairs& item : items) {
    std::string sku = item[0].second, lower = sku;
    for (char& c : lower)
      c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const std::string& key : {sku, lower}) {
      EXPECT_EQ(library.Lookup(key), builtin.Lookup(key)) << key;
      EXPECT_EQ(library.Lookup(key, wanted), builtin.Lookup(key, wanted)) << key;
    }
  }
}

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_PAPI_CONN_H_
