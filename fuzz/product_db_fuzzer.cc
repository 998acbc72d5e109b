// The built-in product database reader. The input is the database file.
// Walks every product with PAPI_RetrieveFirstItem/PAPI_RetrieveNextItem twice,
// once plainly and once with a single look-up of each product's SKU between
// two steps, and checks that both walks give the same records, that every
// look-up finds a product with that SKU, that records never exceed 99 pairs,
// and that a look-up by a list of names agrees with the full record.
#include <cctype>
#include <string>
#include <vector>

#include "fuzz/fuzz_util.h"
#include "storedata/product_db.h"

namespace storegen {
namespace {

using Record = std::vector<std::pair<std::string, std::string>>;

// Copies |pairs| and gives them back to the reader.
Record Take(void* db, PAPI_Pair* pairs) {
  Record record;
  int n = 0;
  for (PAPI_Pair* p = pairs; p->name != nullptr; ++p, ++n) {
    FUZZ_CHECK(p->value != nullptr, "pair without value");
    record.emplace_back(p->name, p->value);
  }
  FUZZ_CHECK(n <= kMaxProductAttribs, "record of " + std::to_string(n) + " pairs");
  storegen::PAPI_ReleaseInfo(db, PAPI_ACCESS_KEY, "", pairs);
  return record;
}

bool SameText(const std::string& a, const std::string& b) {
  return a.size() == b.size() && my_stricmp(a.c_str(), b.c_str()) == 0;
}

// Looks the product of |r| up by its SKU, then by a list of names, and checks
// both answers against |r|.
void CheckLookUps(void* db, const Record& r) {
  PAPI_Pair* found = storegen::PAPI_RetrieveInfo(db, PAPI_ACCESS_KEY, r[0].second.c_str(), 1, "",
                                                 "", "", "", nullptr);
  // A line without fields (one that starts with a NUL) gives the SKU "NA".
  if (found == nullptr && r[0].second == psz_NA) return;
  FUZZ_CHECK(found != nullptr, "SKU \"" + r[0].second + "\" not found");
  Record one = Take(db, found);
  FUZZ_CHECK(!one.empty() && SameText(one[0].second, r[0].second), "found another SKU");

  // The same product asked for by names: each value is the full record's.
  std::vector<std::string> wanted;
  for (std::size_t i = 0; i < r.size() && wanted.size() < 4; i += 1 + r.size() / 3)
    wanted.push_back(r[i].first);
  wanted.push_back("no\tsuch column");  // a TAB never stands in a name
  std::vector<char*> names;
  for (std::string& w : wanted)
    names.push_back(w.data());
  names.push_back(nullptr);
  found = storegen::PAPI_RetrieveInfo(db, PAPI_ACCESS_KEY, r[0].second.c_str(), 1, "", "", "", "",
                                      names.data());
  FUZZ_CHECK(found != nullptr, "look-up by names failed");
  Record by_names = Take(db, found);
  FUZZ_CHECK(by_names.size() == wanted.size(), "look-up by names: wrong width");
  FUZZ_CHECK(by_names.back().second == psz_NA, "a missing column is not NA");
  for (std::size_t i = 0; i + 1 < wanted.size(); ++i) {
    FUZZ_CHECK(by_names[i].first == wanted[i], "name not kept as asked");
    // The first column of that name (case ignored) gives the value.
    for (const auto& [name, value] : one) {
      if (SameText(name, wanted[i])) {
        FUZZ_CHECK(by_names[i].second == value, "column \"" + name + "\" differs");
        break;
      }
    }
  }
}

std::vector<Record> Walk(void* db, bool look_up_between) {
  std::vector<Record> records;
  int32_t position = 0;
  PAPI_Pair* pairs =
      storegen::PAPI_RetrieveFirstItem(db, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr);
  while (pairs != nullptr) {
    records.push_back(Take(db, pairs));
    FUZZ_CHECK(records.size() < 100000, "the walk does not end");
    const Record& r = records.back();
    FUZZ_CHECK(r.size() == records.front().size(), "records of different widths");
    // An empty SKU is not looked up: a look-up, unlike the walk, takes an
    // empty line for a product whose SKU is empty.
    if (look_up_between && !r.empty() && !r[0].second.empty()) CheckLookUps(db, r);
    pairs =
        storegen::PAPI_RetrieveNextItem(db, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr);
  }
  return records;
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  const std::string path = fuzz::ScratchPath("products.txt");
  fuzz::WriteWholeFile(path, {reinterpret_cast<const char*>(data), size});
  void* db = storegen::PAPI_Initialization(PAPI_ACCESS_KEY, path.c_str(), "", "", "");
  FUZZ_CHECK(db != nullptr, "database not opened");
  std::vector<Record> plain = Walk(db, false);
  std::vector<Record> checked = Walk(db, true);
  FUZZ_CHECK(plain == checked, "look-ups between steps changed the walk");
  storegen::PAPI_Cleanup(db, PAPI_ACCESS_KEY, "", "", "", "");
  return 0;
}
