// The built-in product database reader. The input is the database file, held
// in memory. Walks every product through two connections in step: with
// PAPI_RetrieveFirstItem and PAPI_RetrieveNextItem, looking SKUs up between
// two steps, and with the block variants that the SKU list uses. Checks that
// both walks give the same records, that every look-up finds a product with that SKU, that records
// never exceed 99 pairs, and that a look-up by a list of names agrees with
// the full record. A look-up reads the file from its start, so the first
// products are looked up and then those at steps 8, 16, 32, ...: the work
// per input stays near linear in its length. Inputs of more than about 1,000
// name-value pairs are passed over (WorkBounded).
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_util.h"
#include "storedata/product_api.h"
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

bool SamePairs(const PAPI_Pair* a, const PAPI_Pair* b) {
  for (;; ++a, ++b) {
    if (a->name == nullptr || b->name == nullptr) return a->name == b->name;
    FUZZ_CHECK(a->value != nullptr && b->value != nullptr, "pair without value");
    if (std::strcmp(a->name, b->name) != 0 || std::strcmp(a->value, b->value) != 0) return false;
  }
}

int Width(const PAPI_Pair* pairs) {
  int n = 0;
  while (pairs[n].name != nullptr)
    ++n;
  FUZZ_CHECK(n <= kMaxProductAttribs, "record of " + std::to_string(n) + " pairs");
  return n;
}

// Walks the database through two connections in step: |db| with the product
// API's item calls and single look-ups between steps, |blocks| with the
// block variants. Both must give the same records.
void WalkBoth(void* db, void* blocks) {
  int32_t position = 0;
  int32_t block_position = 0;
  PAPI_Pair* pairs =
      storegen::PAPI_RetrieveFirstItem(db, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr);
  PAPI_Pair* block = RetrieveFirstItemBlock(blocks, &block_position);
  int width = pairs != nullptr ? Width(pairs) : 0;
  for (std::size_t step = 1; pairs != nullptr || block != nullptr; ++step) {
    FUZZ_CHECK(pairs != nullptr && block != nullptr, "one walk ended before the other");
    FUZZ_CHECK(SamePairs(pairs, block), "the walks differ at product " + std::to_string(step));
    FUZZ_CHECK(Width(pairs) == width, "records of different widths");
    FUZZ_CHECK(step < 100000, "the walk does not end");
    FreeProdRecord(block);
    // An empty SKU is not looked up: a look-up, unlike the walk, takes an
    // empty line for a product whose SKU is empty.
    const bool sampled = step <= 4 || (step & (step - 1)) == 0;
    if (sampled && width > 0 && pairs[0].value[0] != '\0') {
      CheckLookUps(db, Take(db, pairs));
    } else {
      storegen::PAPI_ReleaseInfo(db, PAPI_ACCESS_KEY, "", pairs);
    }
    pairs =
        storegen::PAPI_RetrieveNextItem(db, PAPI_ACCESS_KEY, 1, "", "", "", "", &position, nullptr);
    block = RetrieveNextItemBlock(blocks, &block_position);
  }
}

// Every product line gives a record with a pair per name of the name line,
// read by both walks, and the item walk allocates each name and value on its
// own; a record costs about as much again as eight pairs (its arrays, and a
// warning when the line is short). Inputs whose lines times (names + 8) could
// exceed kMaxWork are passed over: more lines only repeat what the first
// ones do, and such inputs took most of the time. Large databases are the
// unit tests' and the bench's part.
constexpr std::size_t kMaxWork = 1024;

bool WorkBounded(std::string_view text) {
  // The names: runs of TAB, CR and LF separate them, at most 99 are read.
  const std::string_view first = text.substr(0, text.find('\n'));
  std::size_t names = 0;
  for (std::size_t i = 0; i < first.size() && first[i] != '\0';) {
    const std::size_t start = i;
    while (i < first.size() && first[i] != '\t' && first[i] != '\r' && first[i] != '\0')
      ++i;
    if (i > start) ++names;
    if (i < first.size() && first[i] != '\0') ++i;
  }
  names = std::min<std::size_t>(names, kMaxProductAttribs);
  // At most a record per line that does not start with CR or LF, and per
  // piece of a line longer than a line buffer: every such line ends a piece.
  std::size_t records = text.size() / (kProductLineSize - 1);
  for (std::size_t i = first.size() + 1; i < text.size(); ++i) {
    if (text[i - 1] == '\n' && text[i] != '\r' && text[i] != '\n') ++records;
  }
  return (names + 8) * records <= kMaxWork;
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  if (!WorkBounded({reinterpret_cast<const char*>(data), size})) return 0;
  const fuzz::QuietMessages quiet;  // short lines are warned of
  const fuzz::MemoryFile file({reinterpret_cast<const char*>(data), size});
  void* db = storegen::PAPI_Initialization(PAPI_ACCESS_KEY, file.path().c_str(), "", "", "");
  void* blocks = storegen::PAPI_Initialization(PAPI_ACCESS_KEY, file.path().c_str(), "", "", "");
  FUZZ_CHECK(db != nullptr && blocks != nullptr, "database not opened");
  WalkBoth(db, blocks);
  storegen::PAPI_Cleanup(db, PAPI_ACCESS_KEY, "", "", "", "");
  storegen::PAPI_Cleanup(blocks, PAPI_ACCESS_KEY, "", "", "", "");
  // What the reader keeps between look-ups (the file's text, the split name
  // line) is let go with the input: memory kept from one input to the next
  // looks like a leak to libFuzzer, which then runs the input again and
  // searches the whole heap.
  ForgetProductFiles();
  return 0;
}
