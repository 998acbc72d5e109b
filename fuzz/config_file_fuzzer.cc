// Configuration files. The input's bytes before a line "====" are a
// configuration file; each line after it is a pair "key<TAB>value" (a line
// without a TAB is a key with a null value) to write with SetConfigItems.
// Checks that GetConfigItem and a list read by CIL_CreateListFromFile answer
// alike, that a value fits every buffer size without a byte written past it,
// that a rewrite without pairs keeps the file byte for byte, and that a
// rewrite changes exactly the listed keys and keeps the old file as ".bak".
#include <cstring>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "cgisupport/config_line.h"
#include "fuzz/fuzz_util.h"

namespace storegen {
namespace {

using fuzz::ReadWholeFile;
using fuzz::ScratchPath;
using fuzz::WriteWholeFile;

struct Pair {
  std::string name;
  std::optional<std::string> value;
};

// A name or value that a configuration line can hold at all.
bool Usable(std::string_view s) {
  return s.find_first_of(std::string_view("\t\r\n\0", 4)) == std::string_view::npos;
}

struct Answer {
  int result;
  std::string value;
  bool operator==(const Answer&) const = default;
};

std::string Describe(const std::string& key, const Answer& a) {
  return "key \"" + key + "\" result " + std::to_string(a.result) + " value \"" + a.value + "\"";
}

// Looks |key| up with a buffer that holds any value, then with |small| bytes
// between guard bytes: the result must be the same, the value cut to fit and
// terminated, and no byte outside the buffer (or inside it on a miss) changed.
Answer LookUp(const std::string& path, const std::string& key, int small) {
  static std::vector<char> big(kConfigLineSize + 1);  // holds any value
  Answer full{GetConfigItem(path.c_str(), key.c_str(), big.data(), static_cast<int>(big.size()), 0),
              ""};
  if (full.result == 1) full.value = big.data();

  constexpr char kGuard = '\xA5';
  std::vector<char> buf(static_cast<std::size_t>(small) + 16, kGuard);
  int result = GetConfigItem(path.c_str(), key.c_str(), buf.data() + 8, small, 0);
  FUZZ_CHECK(result == full.result, Describe(key, full));
  for (int i = 0; i < 8; ++i) {
    FUZZ_CHECK(buf[i] == kGuard && buf[8 + small + i] == kGuard, "write outside the buffer");
  }
  if (result == 1) {
    std::string cut(buf.data() + 8);
    FUZZ_CHECK(buf[8 + small - 1] == '\0' && cut == full.value.substr(0, cut.size()) &&
                   cut.size() == std::min<std::size_t>(full.value.size(), small - 1),
               Describe(key, full));
  } else {
    for (int i = 0; i < small; ++i)
      FUZZ_CHECK(buf[8 + i] == kGuard, "buffer changed on a miss");
  }
  return full;
}

// The first token of every line of |file|, and the listed names.
std::vector<std::string> ProbeKeys(std::string_view file, const std::vector<Pair>& pairs) {
  std::set<std::string> keys;
  while (!file.empty() && keys.size() < 48) {
    std::size_t lf = file.find('\n');
    std::string_view line = file.substr(0, lf);
    std::string key(SplitConfigLine(line).key);
    if (!key.empty()) keys.insert(key);
    file = lf == std::string_view::npos ? std::string_view() : file.substr(lf + 1);
  }
  for (const Pair& p : pairs)
    keys.insert(p.name);
  return {keys.begin(), keys.end()};
}

// What a look-up of |key| must answer after the rewrite: the first listed
// pair of that key replaces its lines (or drops them when its value is empty,
// and then a later pair of that key is appended); unlisted keys keep their
// old answer.
Answer Expected(const std::string& key, const Answer& before, const std::vector<Pair>& pairs) {
  bool listed = false;
  for (const Pair& p : pairs) {
    if (!KeysEqual(p.name, key)) continue;
    if (p.value && !p.value->empty()) return {1, *p.value};
    listed = true;
  }
  return listed ? Answer{0, ""} : before;
}

struct ListFree {
  void operator()(ConfigItemList* list) const { CIL_FreeList(list); }
};
using ListPtr = std::unique_ptr<ConfigItemList, ListFree>;

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  fuzz::InputParts input = fuzz::SplitInput({reinterpret_cast<const char*>(data), size});
  std::vector<Pair> pairs;
  for (std::string_view line : input.script) {
    std::vector<std::string_view> f = fuzz::SplitTabs(line);
    if (f[0].empty() || !Usable(f[0]) || f[0].size() > 200) continue;
    Pair p{std::string(f[0]), std::nullopt};
    if (f.size() > 1 && Usable(f[1]) && f[1].size() < 1000) p.value = std::string(f[1]);
    pairs.push_back(std::move(p));
  }
  const std::string path = ScratchPath("store.cfg");
  const std::string backup = ScratchPath("store.bak");
  std::string old_content(input.file);
  WriteWholeFile(path, old_content);

  std::vector<std::string> keys = ProbeKeys(old_content, pairs);
  std::vector<Answer> before;
  ListPtr from_file(CIL_CreateListFromFile(path.c_str()));
  FUZZ_CHECK(from_file != nullptr, "list not read");
  // The file stays as it is while it is looked up: the first look-up reads
  // it, the others answer from what that one found, as on a page.
  std::optional<ConfigSnapshot> snapshot(std::in_place);
  static std::vector<char> buf(kConfigLineSize + 1);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    before.push_back(LookUp(path, keys[i], 1 + static_cast<int>((i * 37 + size) % 300)));
    int r =
        CIL_GetItem(from_file.get(), keys[i].c_str(), buf.data(), static_cast<int>(buf.size()), 0);
    Answer listed{r, r == 1 ? std::string(buf.data()) : ""};
    FUZZ_CHECK(listed == before.back(),
               Describe(keys[i], listed) + " vs " + Describe(keys[i], before.back()));
  }

  snapshot.reset();

  // A rewrite without pairs copies every line as it was.
  ListPtr empty(CIL_CreateList());
  FUZZ_CHECK(SetConfigItems(path.c_str(), empty.get()) == 0, "rewrite failed");
  FUZZ_CHECK(ReadWholeFile(path) == old_content, "a rewrite without pairs changed the file");

  ListPtr list(CIL_CreateList());
  for (const Pair& p : pairs)
    CIL_AddItem(list.get(), p.name.c_str(), p.value ? p.value->c_str() : nullptr);
  FUZZ_CHECK(SetConfigItems(path.c_str(), list.get()) == 0, "rewrite failed");
  FUZZ_CHECK(ReadWholeFile(backup) == old_content, "the backup differs from the old file");
  for (ConfigItem* it = list->first; it != nullptr; it = it->next)
    FUZZ_CHECK(it->written == 0, "written flag left set");
  snapshot.emplace();
  for (std::size_t i = 0; i < keys.size(); ++i) {
    Answer after = LookUp(path, keys[i], 1 + static_cast<int>(i % 7));
    Answer want = Expected(keys[i], before[i], pairs);
    FUZZ_CHECK(after == want, Describe(keys[i], after) + " wanted " + Describe(keys[i], want));
  }
  return 0;
}
