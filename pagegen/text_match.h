// Small text helpers of the template engine: ASCII case-insensitive matching
// on string views (markup and tags are not NUL-terminated), path pieces.
#ifndef STOREGEN_PAGEGEN_TEXT_MATCH_H_
#define STOREGEN_PAGEGEN_TEXT_MATCH_H_

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "cgisupport/str_util.h"

namespace storegen {

// Position of the first occurrence of |needle| in |hay|, ignoring ASCII case;
// std::string_view::npos when there is none. An empty needle is found at 0.
std::size_t FindNoCase(std::string_view hay, std::string_view needle);

// True when |text| begins with |prefix|, ignoring ASCII case.
bool StartsWithNoCase(std::string_view text, std::string_view prefix);

// True when |a| and |b| are equal, ignoring ASCII case.
bool EqualsNoCase(std::string_view a, std::string_view b);

// Finds names that share a prefix in a markup, ignoring ASCII case: the
// page generator's markers ("PAGEGEN_...") or link keywords ("PG_..."). The
// places of the prefix are found once, and each name is then compared at
// those places only, so that looking a markup over for every name costs one
// search. The prefix must not overlap itself (no proper suffix of it is also
// its prefix), so that its places are all found by one pass.
class MarkerFinder {
 public:
  explicit MarkerFinder(std::string_view markup, std::string_view prefix = "PAGEGEN_");
  // FindNoCase(markup, name), for a |name| that starts with the prefix.
  std::size_t Find(std::string_view name) const;
  bool Has(std::string_view name) const { return Find(name) != std::string_view::npos; }
  // True when the prefix stands anywhere in the markup.
  bool Any() const { return count_ > 0 || more_; }

 private:
  std::string_view markup_;
  std::size_t prefix_size_;
  std::array<std::size_t, 4> at_{};  // where the prefix stands, in any case
  std::size_t count_ = 0;
  bool more_ = false;  // more places than |at_| holds: names are searched for
};

// The part of |path| behind its last '/' or '\\' (the whole path when it has
// none).
std::string_view BaseName(std::string_view path);

// |path| without its extension: cut at the last "." of its last component.
std::string_view WithoutExtension(std::string_view path);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TEXT_MATCH_H_
