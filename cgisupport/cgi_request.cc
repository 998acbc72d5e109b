#include "cgisupport/cgi_request.h"

#include <cstdlib>
#include <vector>

#include "cgisupport/form_decode.h"

extern char** environ;

namespace storegen {
namespace {

constexpr std::size_t kMaxNameLength = 64;

bool IsHex(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// The variables of one request: RFC 3875's meta-variables and what common
// servers add to them.
constexpr std::string_view kRequestVariables[] = {
    "AUTH_TYPE",       "CONTENT_LENGTH",
    "CONTENT_TYPE",    "GATEWAY_INTERFACE",
    "PATH_INFO",       "PATH_TRANSLATED",
    "QUERY_STRING",    "REMOTE_ADDR",
    "REMOTE_HOST",     "REMOTE_IDENT",
    "REMOTE_USER",     "REQUEST_METHOD",
    "SCRIPT_NAME",     "SERVER_NAME",
    "SERVER_PORT",     "SERVER_PROTOCOL",
    "SERVER_SOFTWARE", "DOCUMENT_ROOT",
    "REQUEST_URI",     "REQUEST_SCHEME",
    "SCRIPT_FILENAME", "SCRIPT_URI",
    "SCRIPT_URL",      "SERVER_ADDR",
    "SERVER_ADMIN",    "SERVER_SIGNATURE",
    "REMOTE_PORT",     "HTTPS",
    "CONTEXT_PREFIX",  "CONTEXT_DOCUMENT_ROOT",
};
constexpr std::string_view kRequestPrefixes[] = {"HTTP_", "REDIRECT_"};

bool IsRequestVariable(std::string_view name) {
  for (std::string_view v : kRequestVariables) {
    if (name == v) return true;
  }
  for (std::string_view p : kRequestPrefixes) {
    if (name.starts_with(p)) return true;
  }
  return false;
}

}  // namespace

std::optional<std::string> DecodeUrlText(std::string_view text, bool plus_is_space) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char c = text[i];
    if (c == '%') {
      if (i + 2 >= text.size() || !IsHex(text[i + 1]) || !IsHex(text[i + 2])) {
        return std::nullopt;
      }
      c = x2c(text.data() + i + 1);
      i += 2;
    } else if (c == '+' && plus_is_space) {
      c = ' ';
    }
    const unsigned char u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) return std::nullopt;
    out.push_back(c);
  }
  return out;
}

std::optional<std::size_t> ParseContentLength(const char* value, std::size_t max) {
  if (value == nullptr) return std::nullopt;
  while (*value == ' ' || *value == '\t')
    ++value;
  if (*value == '\0') return std::nullopt;
  std::size_t n = 0;
  for (; *value != '\0'; ++value) {
    if (*value < '0' || *value > '9') return std::nullopt;
    const std::size_t digit = static_cast<std::size_t>(*value - '0');
    if (digit > max || n > (max - digit) / 10) return std::nullopt;
    n = n * 10 + digit;
  }
  return n;
}

bool IsPlainName(std::string_view name) {
  if (name.empty() || name.size() > kMaxNameLength || name.front() == '.') return false;
  for (char c : name) {
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '.' || c == '-' || c == '_';
    if (!ok) return false;
  }
  return name.find("..") == std::string_view::npos;
}

void RemoveCgiRequestVariables(std::initializer_list<std::string_view> keep) {
  std::vector<std::string> names;
  for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
    std::string_view entry(*e);
    std::string_view name = entry.substr(0, entry.find('='));
    bool kept = false;
    for (std::string_view k : keep)
      kept = kept || k == name;
    if (!kept && IsRequestVariable(name)) names.emplace_back(name);
  }
  for (const std::string& name : names)
    unsetenv(name.c_str());
}

}  // namespace storegen
