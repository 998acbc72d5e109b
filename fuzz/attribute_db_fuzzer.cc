// The attribute database round trip. The input's bytes before a line "===="
// are the ".adb" file; each line after it is one edit, its fields separated
// by TAB:
//   L label type        add an attribute      V index value       add a value
//   D index position    empty a value         S index pos value   set a value
//   N index label       rename                T index type        retype
//   X index             delete an attribute   G                   walk the labels
// The database is read, edited, written back at close, and read again: the
// second reading must hold exactly what the first held after the edits.
//
// Some contents have no written form, so they are left out of the comparison
// (but still read, edited and written): a label or value holding a TAB, LF,
// CR or NUL (the line and field separators; CR is dropped on reading); an
// empty label, or none on an attribute with values (an empty field does not
// count between TABs, so the values would become the label); a value ending
// in "," or "\" that another value follows (written as "\," it escapes the
// separator and merges with its successor); and a list of a single empty
// value (written as nothing, it reads back as no value).
#include <algorithm>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz/fuzz_util.h"
#include "storedata/attribute_db.h"
#include "storedata/attribute_pool.h"

namespace storegen {
namespace {

using Snapshot =
    std::vector<std::tuple<int32_t, int32_t, std::string, bool, std::vector<std::string>>>;

bool Writable(std::string_view s) {
  return s.find_first_of(std::string_view("\t\n\r\0", 4)) == std::string_view::npos;
}

bool Representable(const AttributeNode& node) {
  if (node.label ? node.label->empty() || !Writable(*node.label) : !node.values.empty())
    return false;
  if (node.values.size() == 1 && node.values.front().empty()) return false;
  std::size_t i = 0;
  for (const std::string& v : node.values) {
    if (!Writable(v)) return false;
    bool last = ++i == node.values.size();
    if (!last && !v.empty() && (v.back() == ',' || v.back() == '\\')) return false;
  }
  return true;
}

// The pool's attributes that a write keeps, in a canonical order (attributes
// of equal index change places on every reading, by design).
Snapshot Take(const AttributePool& pool, bool* representable) {
  Snapshot snap;
  for (const AttributeNode& node : pool.attributes) {
    if (node.index == 0) continue;
    if (!Representable(node)) *representable = false;
    snap.emplace_back(node.index, node.type, node.label.value_or(""), node.label.has_value(),
                      std::vector<std::string>(node.values.begin(), node.values.end()));
  }
  std::sort(snap.begin(), snap.end());
  return snap;
}

std::string Describe(const Snapshot& snap) {
  std::string text;
  for (const auto& [index, type, label, has_label, values] : snap) {
    text += "\n  " + std::to_string(index) + " " + std::to_string(type) + " " +
            (has_label ? "\"" + label + "\"" : "-");
    for (const std::string& v : values)
      text += " [" + v + "]";
  }
  return text;
}

std::string Field(const std::vector<std::string_view>& f, std::size_t i) {
  return i < f.size() ? std::string(f[i]) : std::string();
}

int Number(const std::vector<std::string_view>& f, std::size_t i) {
  return std::atoi(Field(f, i).c_str());
}

void Apply(AttributePool* pool, const std::vector<std::string_view>& f) {
  std::string op = Field(f, 0);
  if (op == "L") {
    AD_AddAttributeLabel(pool, Field(f, 1).c_str(), Number(f, 2));
  } else if (op == "V") {
    AD_AddAttributeValue(pool, Number(f, 1), Field(f, 2).c_str());
  } else if (op == "D") {
    AD_DeleteAttributeValue(pool, Number(f, 1), Number(f, 2));
  } else if (op == "S") {
    AD_SetAttributeValue(pool, Number(f, 1), Number(f, 2), Field(f, 3).c_str());
  } else if (op == "N") {
    AD_SetAttributeName(pool, Number(f, 1), Field(f, 2).c_str());
  } else if (op == "T") {
    AD_SetAttributeType(pool, Number(f, 1), Number(f, 2));
  } else if (op == "X") {
    AD_DeleteAttributeLabel(pool, Number(f, 1));
  } else if (op == "G") {
    for (const char* l = AD_GetNextAttributeLabelPTR(pool); l != nullptr;
         l = AD_GetNextAttributeLabelPTR(nullptr)) {
    }
  }
  // Reads of what the edit touched must stay consistent with the pool.
  int32_t index = Number(f, 1);
  std::free(AD_GetAttributeLabel(pool, index));
  for (int32_t pos = 1; pos < 4; ++pos) {
    char* value = AD_GetAttributeValue(pool, index, pos);
    const char* ptr = AD_GetAttributeValuePTR(pool, index, pos);
    FUZZ_CHECK((value == nullptr) == (ptr == nullptr), "copy and pointer disagree");
    if (value != nullptr) {
      FUZZ_CHECK(std::string(value) == ptr, "copy and pointer disagree");
      if (*value != '\0') {
        int32_t at = AD_GetAttributeOffset(pool, index, value);
        FUZZ_CHECK(at >= 1 && at <= pos, "value not found at its position");
      }
    }
    std::free(value);
  }
}

}  // namespace
}  // namespace storegen

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  fuzz::InputParts input = fuzz::SplitInput({reinterpret_cast<const char*>(data), size});
  const std::string path = fuzz::ScratchPath("store.adb");
  fuzz::WriteWholeFile(path, input.file);

  AttributePool* pool = AD_InitAttributePool(path.c_str());
  FUZZ_CHECK(pool != nullptr, "pool not opened");
  for (std::string_view line : input.script)
    Apply(pool, fuzz::SplitTabs(line));
  bool representable = true;
  Snapshot edited = Take(*pool, &representable);
  bool modified = pool->modified;
  FUZZ_CHECK(AD_ShutdownAttributePool(pool) == 1, "database not written");
  if (!modified) {
    FUZZ_CHECK(fuzz::ReadWholeFile(path) == input.file, "unchanged database rewritten");
  }

  pool = AD_InitAttributePool(path.c_str());
  FUZZ_CHECK(pool != nullptr, "pool not reopened");
  bool ignored = true;
  Snapshot reread = Take(*pool, &ignored);
  AD_ShutdownAttributePool(pool);
  if (representable)
    FUZZ_CHECK(reread == edited, "wrote" + Describe(edited) + "\nread" + Describe(reread));
  return 0;
}
