#include "pagegen/text_match.h"

#include <algorithm>

#include "cgisupport/copy_truncated.h"

namespace storegen {
namespace {

char Lower(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameNoCase(char a, char b) {
  return Lower(a) == Lower(b);
}

}  // namespace

std::size_t FindNoCase(std::string_view hay, std::string_view needle) {
  if (needle.empty()) return 0;
  if (needle.size() > hay.size()) return std::string_view::npos;
  // The first character is compared on its own, the rest only where it
  // matches: markup is searched for several markers each.
  const char first = Lower(needle[0]);
  const std::string_view rest = needle.substr(1);
  const std::size_t last = hay.size() - needle.size();
  for (std::size_t i = 0; i <= last; ++i) {
    if (Lower(hay[i]) == first && EqualsNoCase(hay.substr(i + 1, rest.size()), rest)) return i;
  }
  return std::string_view::npos;
}

bool StartsWithNoCase(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && EqualsNoCase(text.substr(0, prefix.size()), prefix);
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return SameNoCase(x, y); });
}

MarkerFinder::MarkerFinder(std::string_view markup) : markup_(markup) {
  constexpr std::string_view kPrefix = "PAGEGEN_";
  for (std::size_t from = 0; from < markup.size();) {
    const std::size_t at = FindNoCase(markup.substr(from), kPrefix);
    if (at == std::string_view::npos) break;
    if (count_ == at_.size()) {
      more_ = true;
      break;
    }
    at_[count_++] = from + at;
    from += at + kPrefix.size();  // "PAGEGEN_" cannot overlap itself
  }
}

bool MarkerFinder::Has(std::string_view name) const {
  if (more_) return FindNoCase(markup_, name) != std::string_view::npos;
  for (std::size_t i = 0; i < count_; ++i) {
    if (StartsWithNoCase(markup_.substr(at_[i]), name)) return true;
  }
  return false;
}

std::string_view BaseName(std::string_view path) {
  for (std::size_t i = path.size(); i > 0; --i) {
    if (IsDirSlash(path[i - 1])) return path.substr(i);
  }
  return path;
}

std::string_view WithoutExtension(std::string_view path) {
  std::string_view base = BaseName(path);
  std::size_t dot = base.rfind('.');
  if (dot == std::string_view::npos) return path;
  return path.substr(0, path.size() - base.size() + dot);
}

}  // namespace storegen
