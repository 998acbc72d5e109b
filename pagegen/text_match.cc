#include "pagegen/text_match.h"

#include <algorithm>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/str_util.h"

namespace storegen {
namespace {

bool SameNoCase(char a, char b) {
  return AsciiLower(a) == AsciiLower(b);
}

}  // namespace

std::size_t FindNoCase(std::string_view hay, std::string_view needle) {
  if (needle.empty()) return 0;
  if (needle.size() > hay.size()) return std::string_view::npos;
  // Places where the first character stands, in either case, are found
  // sixteen bytes at a time; the rest is compared only there.
  const char lower = AsciiLower(needle[0]);
  const char upper = lower >= 'a' && lower <= 'z' ? static_cast<char>(lower - 'a' + 'A') : lower;
  const std::string_view rest = needle.substr(1);
  const std::size_t last = hay.size() - needle.size();
  for (std::size_t i = 0; i <= last; ++i) {
    i += SpanWithout(hay.data() + i, last + 1 - i, lower, upper, lower, upper);
    if (i > last) break;
    if (EqualsNoCase(hay.substr(i + 1, rest.size()), rest)) return i;
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

MarkerFinder::MarkerFinder(std::string_view markup, std::string_view prefix)
    : markup_(markup), prefix_size_(prefix.size()) {
  for (std::size_t from = 0; from < markup.size();) {
    const std::size_t at = FindNoCase(markup.substr(from), prefix);
    if (at == std::string_view::npos) break;
    if (count_ == at_.size()) {
      more_ = true;
      break;
    }
    at_[count_++] = from + at;
    from += at + prefix.size();  // the prefix cannot overlap itself
  }
}

std::size_t MarkerFinder::Find(std::string_view name) const {
  if (more_) return FindNoCase(markup_, name);
  // The prefix stands at every place found: only the rest of the name is
  // compared there.
  const std::string_view rest = name.substr(std::min(prefix_size_, name.size()));
  for (std::size_t i = 0; i < count_; ++i) {
    if (StartsWithNoCase(markup_.substr(at_[i] + prefix_size_), rest)) return at_[i];
  }
  return std::string_view::npos;
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
