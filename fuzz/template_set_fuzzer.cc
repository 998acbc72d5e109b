// Template-set configuration. The input's bytes before a line "====" are the
// set's ".cfg" file, held in memory; each line after it is a reference or
// display name to look up in every kind. Checks that the numbered references
// agree with the iteration over each list, that every answer fits its buffer
// without a byte written past it, and that a miss leaves the buffer alone.
#include <string>
#include <vector>

#include "fuzz/fuzz_util.h"
#include "templateset/template_set.h"

namespace storegen {
namespace {

constexpr char kGuard = '\x5A';
// The buffer display names are read into.
constexpr int kNameSize = 300;

// Calls |fn| with a buffer of |size| bytes between guard bytes and returns the
// text it left (the guards and, on a 0 result, the buffer must be untouched).
template <typename Fn>
std::pair<int, std::string> Guarded(int size, Fn fn) {
  std::vector<char> buf(static_cast<std::size_t>(size) + 16, kGuard);
  int result = fn(buf.data() + 8, size);
  for (int i = 0; i < 8; ++i)
    FUZZ_CHECK(buf[i] == kGuard && buf[8 + size + i] == kGuard, "write outside the buffer");
  if (result == 0) {
    for (int i = 0; i < size; ++i)
      FUZZ_CHECK(buf[8 + i] == kGuard, "buffer changed by a miss");
    return {0, ""};
  }
  FUZZ_CHECK(buf[8 + size - 1] == '\0', "result not terminated");
  return {result, std::string(buf.data() + 8)};
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  static bool silenced = (fuzz::SilenceStdout(), true);
  (void)silenced;
  fuzz::InputParts input = fuzz::SplitInput({reinterpret_cast<const char*>(data), size});
  const fuzz::MemoryFile file(input.file);
  TemplateSet* set = PG_InitTemplateSet(file.path().c_str());
  if (set == nullptr) return 0;

  for (int kind = 0; kind <= 8; ++kind) {
    // The n-th name of the iteration is the one that reference n resolves to.
    std::vector<std::string> names;
    for (const TemplateSet* start = set;; start = nullptr) {
      auto [more, name] = Guarded(kNameSize, [&](char* buf, int n) {
        return PG_TpltGetNextDisplayName(start, buf, n, kind);
      });
      if (!more) break;
      names.push_back(name);
      FUZZ_CHECK(names.size() < 100000, "the iteration does not end");
    }
    for (std::size_t i = 0; i <= names.size(); ++i) {
      std::string ref = std::to_string(i + 1);
      // Lambdas cannot capture structured bindings in clang 14.
      std::pair<int, std::string> answer = Guarded(kNameSize, [&](char* buf, int n) {
        return PG_TpltGetDisplayName(set, ref.c_str(), buf, n, kind);
      });
      int found = answer.first;
      const std::string name = answer.second;
      FUZZ_CHECK(found == (i < names.size() ? 1 : 0), "reference " + ref);
      // An entry without display name is never found by name, nor one
      // whose name was cut to the buffer.
      if (found && !name.empty() && name.size() + 1 < static_cast<std::size_t>(kNameSize)) {
        FUZZ_CHECK(name == names[i], "reference " + ref + " gave \"" + name + "\"");
        // The entry found by that name answers every field look-up, cut to a
        // small buffer.
        int small = 1 + static_cast<int>(i % 9);
        Guarded(small, [&](char* buf, int n) {
          int r = PG_TpltGetTemplateFile(set, name.c_str(), buf, n, kind);
          FUZZ_CHECK(r == 1, "template file of \"" + name + "\"");
          return r;
        });
        Guarded(small, [&](char* buf, int n) {
          int r = PG_TpltGetOutputFile(set, name.c_str(), buf, n, kind);
          FUZZ_CHECK(r == 1, "output file of \"" + name + "\"");
          return r;
        });
        PG_TpltIsSecureFile(set, name.c_str(), kind);
      }
    }
    for (std::string_view line : input.script) {
      std::string ref(line.substr(0, line.find('\0')));
      Guarded(1 + static_cast<int>(ref.size() % 17), [&](char* buf, int n) {
        return PG_TpltGetDisplayName(set, ref.c_str(), buf, n, kind);
      });
      Guarded(64, [&](char* buf, int n) {
        return PG_TpltGetTemplateFile(set, ref.c_str(), buf, n, kind);
      });
      PG_TpltIsSecureFile(set, ref.c_str(), kind);
    }
  }
  for (std::string_view line : input.script) {
    std::string ref(line.substr(0, line.find('\0')));
    PG_TpltAreThereProdPages(set, ref.c_str());
    PG_TpltIsDirCopyExcluded(set, ref.c_str());
    PG_TpltAddSecureFile(set, ref.c_str());
    PG_TpltAddSecureFile(set, ref.c_str());
  }
  PrintTemplateSet(set);
  PG_ShutdownTemplateSet(set);
  return 0;
}
