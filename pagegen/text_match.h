// Small text helpers of the template engine: ASCII case-insensitive matching
// on string views (markup and tags are not NUL-terminated), path pieces.
#ifndef STOREGEN_PAGEGEN_TEXT_MATCH_H_
#define STOREGEN_PAGEGEN_TEXT_MATCH_H_

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace storegen {

// The length of the longest prefix of the |n| bytes at |p| that holds none
// of |a|, |b|, |c| and |d| (give one twice for fewer).
std::size_t SpanWithout(const char* p, std::size_t n, char a, char b, char c, char d);

// Position of the first occurrence of |needle| in |hay|, ignoring ASCII case;
// std::string_view::npos when there is none. An empty needle is found at 0.
std::size_t FindNoCase(std::string_view hay, std::string_view needle);

// True when |text| begins with |prefix|, ignoring ASCII case.
bool StartsWithNoCase(std::string_view text, std::string_view prefix);

// True when |a| and |b| are equal, ignoring ASCII case.
bool EqualsNoCase(std::string_view a, std::string_view b);

// Finds the page generator's markers ("PAGEGEN_...") in a markup: the
// places of "PAGEGEN_" are found once, and each marker name is then
// compared at those places only, so that looking a markup over for every
// marker costs one search.
class MarkerFinder {
 public:
  explicit MarkerFinder(std::string_view markup);
  // FindNoCase(markup, name) != npos, for a |name| that starts with
  // "PAGEGEN_".
  bool Has(std::string_view name) const;

 private:
  std::string_view markup_;
  std::array<std::size_t, 4> at_{};  // where "PAGEGEN_" stands, in any case
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
