// Checked pieces of a CGI request for the programs that act on one (the
// management program, the dynamic-page front): strict decoding of URL text,
// the request body's length, plain names, and the environment a program
// started for a request should not inherit.
#ifndef STOREGEN_CGISUPPORT_CGI_REQUEST_H_
#define STOREGEN_CGISUPPORT_CGI_REQUEST_H_

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace storegen {

// |text| with its "%XY" escapes decoded (and '+' turned into a blank when
// |plus_is_space|); nullopt when a '%' is not followed by two hexadecimal
// digits or the result holds a control character (NUL, CR, LF, DEL and the
// rest below 0x20), which no name or value of a request may hold.
std::optional<std::string> DecodeUrlText(std::string_view text, bool plus_is_space);

// The value of a CONTENT_LENGTH variable: a decimal number, optionally after
// blanks, that fits |max|; nullopt for anything else (no digits, a sign, a
// number too large for |max|).
std::optional<std::size_t> ParseContentLength(const char* value, std::size_t max);

// True for a name a request may use for a store or a template set: 1 to 64
// letters, digits, '.', '-' and '_', not beginning with '.' and without
// "..". Separators, blanks and shell characters are refused.
bool IsPlainName(std::string_view name);

// Removes from the environment the variables a web server sets for one
// request (the CGI meta-variables, the request's headers as HTTP_*, and the
// server's usual additions such as REQUEST_URI), except those in |keep|. A
// program started for the request then sees the environment a shell would
// give it.
void RemoveCgiRequestVariables(std::initializer_list<std::string_view> keep = {});

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CGI_REQUEST_H_
