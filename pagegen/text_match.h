// Small text helpers of the template engine: ASCII case-insensitive matching
// on string views, and the URL escaping and unmasking the tag values need.
#ifndef STOREGEN_PAGEGEN_TEXT_MATCH_H_
#define STOREGEN_PAGEGEN_TEXT_MATCH_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace storegen {

// Position of the first occurrence of |needle| in |hay|, ignoring ASCII case;
// std::string_view::npos when there is none. An empty needle is found at 0.
std::size_t FindNoCase(std::string_view hay, std::string_view needle);

// True when |text| begins with |prefix|, ignoring ASCII case.
bool StartsWithNoCase(std::string_view text, std::string_view prefix);

// True when |a| and |b| are equal, ignoring ASCII case.
bool EqualsNoCase(std::string_view a, std::string_view b);

// |text| with letters, digits and "/~_-.*" kept and every other byte written
// as "%" and two upper-case hexadecimal digits ("a b" gives "a%20b").
std::string EscapeUrlText(std::string_view text);

// |text| with the masked control bytes 0x88, 0x89, 0x8A and 0x8D turned back
// into 8, 9, 10 and 13 (the form in which multi-line store texts are kept in a
// configuration file).
std::string UnmaskText(std::string_view text);

// The part of |path| behind its last '/' or '\\' (the whole path when it has
// none).
std::string_view BaseName(std::string_view path);

// |path| without its extension: cut at the last "." of its last component.
std::string_view WithoutExtension(std::string_view path);

}  // namespace storegen

#endif  // STOREGEN_PAGEGEN_TEXT_MATCH_H_
