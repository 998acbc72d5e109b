#include "cgisupport/form_decode.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "cgisupport/cgi_request.h"

namespace storegen {
namespace {

// A hexadecimal digit's value; other bytes give meaningless values, as the
// decoder does not validate.
int HexDigit(unsigned char c) {
  return c >= 'A' ? (c & 0xdf) - 'A' + 10 : c - '0';
}

// The bytes a URL keeps as they are: letters and digits (of the "C" locale
// the program runs in) and "/~_-.*".
constexpr std::array<bool, 256> kKeptInUrl = [] {
  std::array<bool, 256> kept{};
  for (int c = 0; c < 256; ++c) {
    kept[c] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
              std::string_view("/~_-.*").find(static_cast<char>(c)) != std::string_view::npos;
  }
  return kept;
}();

void AppendEscaped(std::string& out, std::string_view src) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::size_t i = 0;
  while (i < src.size()) {
    // A run of kept bytes is appended at once.
    std::size_t end = i;
    while (end < src.size() && kKeptInUrl[static_cast<unsigned char>(src[end])])
      ++end;
    out.append(src.substr(i, end - i));
    if (end == src.size()) break;
    const unsigned char c = static_cast<unsigned char>(src[end]);
    const char escaped[] = {'%', kHex[c >> 4], kHex[c & 0x0f]};
    out.append(escaped, sizeof escaped);
    i = end + 1;
  }
}

// Turns '+' into spaces and decodes escapes in |value|, keeping its length
// right after the in-place decoding.
void DecodeValue(std::string& value) {
  plustospace(value.data());
  value.resize(static_cast<std::size_t>(unescape_url(value.data()) - value.data()));
}

bool EnvEquals(const char* name, const char* expected) {
  const char* value = std::getenv(name);
  return value != nullptr && std::strcmp(value, expected) == 0;
}

}  // namespace

int GetFormEntries(FormEntry* entries, int max) {
  if (!EnvEquals("REQUEST_METHOD", "POST")) return -1;
  if (!EnvEquals("CONTENT_TYPE", "application/x-www-form-urlencoded")) return -2;
  // A length that is no number, or too large for the budget, is refused
  // rather than read as whatever it wraps round to.
  std::optional<std::size_t> length =
      ParseContentLength(std::getenv("CONTENT_LENGTH"), std::numeric_limits<int>::max());
  if (!length) return -3;
  int remaining = static_cast<int>(*length);
  int count = 0;
  while (remaining > 0 && !std::feof(stdin)) {
    if (count >= max) return -4;
    char* field = fmakeword(stdin, '&', &remaining);
    if (field == nullptr) break;
    plustospace(field);
    unescape_url(field);
    char* name = makeword(field, '=');
    if (name == nullptr) {
      std::free(field);
      break;
    }
    entries[count].name = name;
    entries[count].value = field;  // what makeword left: the value
    ++count;
  }
  return count;
}

int GetEncodedEntries(FormEntry* entries, int max) {
  const char* query = std::getenv("QUERY_STRING");
  if (query == nullptr) return 0;
  // The value survives from field to field: a field without '=' reuses it.
  std::string name;
  std::string value;
  std::string* current = &name;
  bool has_char = false;
  int count = 0;
  for (const char* p = query;; ++p) {
    if (*p == '&' || *p == '\0') {
      if (has_char) {
        if (count + 1 >= max) return -2;
        DecodeValue(value);
        count = AddFormEntry(entries, count, value.c_str(), name.c_str());
      }
      if (*p == '\0') break;
      name.clear();
      current = &name;
      has_char = false;
    } else if (*p == '=') {
      value.clear();
      current = &value;
      has_char = false;
    } else {
      current->push_back(*p);
      has_char = true;
    }
  }
  return count;
}

int AddFormEntry(FormEntry* entries, int count, const char* value, const char* name) {
  entries[count].name = name == nullptr ? nullptr : ::strdup(name);
  entries[count].value = value == nullptr ? nullptr : ::strdup(value);
  return count + 1;
}

void FreeFormEntries(FormEntry* entries, int count) {
  if (entries == nullptr) return;
  for (int i = 0; i < count; ++i) {
    std::free(entries[i].name);
    std::free(entries[i].value);
    entries[i].name = nullptr;
    entries[i].value = nullptr;
  }
}

FormEntry* GetEntryPtr(FormEntry* entries, int count, const char* name) {
  if (entries == nullptr || name == nullptr) return nullptr;
  for (int i = 0; i < count; ++i) {
    if (entries[i].name != nullptr && std::strcmp(entries[i].name, name) == 0) return &entries[i];
  }
  return nullptr;
}

FormEntry* GetEntryPtrPrefix(FormEntry* entries, int count, const char* prefix) {
  if (entries == nullptr || prefix == nullptr) return nullptr;
  std::size_t n = std::strlen(prefix);
  for (int i = 0; i < count; ++i) {
    if (entries[i].name != nullptr && std::strncmp(entries[i].name, prefix, n) == 0) {
      return &entries[i];
    }
  }
  return nullptr;
}

void PrintAllEntries(const FormEntry* entries, int count) {
  std::printf("Content-type: text/html%c%c", '\n', '\n');
  std::printf("<HTML>%c", '\n');
  std::printf("<HEAD>%c", '\n');
  std::printf("<TITLE>Entries</TITLE>%c", '\n');
  std::printf("</HEAD>%c", '\n');
  std::printf("<BODY>%c", '\n');
  std::printf("<H1>Entries</H1>");
  for (int i = 0; entries != nullptr && i < count; ++i) {
    const char* name = entries[i].name == nullptr ? "" : entries[i].name;
    const char* value = entries[i].value == nullptr ? "" : entries[i].value;
    std::printf("%s = %s<br>\n", name, value);
  }
  std::printf("</BODY>%c", '\n');
  std::printf("</HTML>%c", '\n');
}

void getword(char* word, char* line, char stop) {
  std::size_t len = std::strlen(line);
  const char* hit = static_cast<const char*>(std::memchr(line, stop, len));
  std::size_t n = hit == nullptr ? len : static_cast<std::size_t>(hit - line);
  std::memcpy(word, line, n);
  word[n] = '\0';
  std::size_t skip = hit == nullptr ? n : n + 1;
  std::memmove(line, line + skip, len - skip + 1);
}

char* makeword(char* line, char stop) {
  char* word = static_cast<char*>(std::malloc(std::strlen(line) + 1));
  if (word == nullptr) return nullptr;
  getword(word, line, stop);
  return word;
}

char* fmakeword(FILE* stream, char stop, int* remaining) {
  constexpr std::size_t kStep = 1024;
  std::size_t capacity = kStep + 1;
  std::size_t len = 0;
  char* word = static_cast<char*>(std::malloc(capacity));
  if (word == nullptr) return nullptr;
  for (;;) {
    int c = std::fgetc(stream);
    if (c == EOF) break;
    if (remaining != nullptr) --*remaining;
    if (c == static_cast<unsigned char>(stop)) break;
    if (len + 1 == capacity) {
      char* grown = static_cast<char*>(std::realloc(word, capacity + kStep));
      if (grown == nullptr) {
        std::free(word);
        return nullptr;
      }
      word = grown;
      capacity += kStep;
    }
    word[len++] = static_cast<char>(c);
    if (remaining != nullptr && *remaining <= 0) break;
  }
  word[len] = '\0';
  return word;
}

char x2c(const char* hex) {
  int high = HexDigit(static_cast<unsigned char>(hex[0]));
  int low = hex[0] == '\0' ? 0 : HexDigit(static_cast<unsigned char>(hex[1]));
  return static_cast<char>((high * 16 + low) & 0xff);
}

char* unescape_url(char* s) {
  std::size_t out = 0;
  for (std::size_t in = 0; s[in] != '\0'; ++in, ++out) {
    if (s[in] == '%' && s[in + 1] != '\0' && s[in + 2] != '\0') {
      s[out] = x2c(&s[in + 1]);
      in += 2;
    } else {
      s[out] = s[in];
    }
  }
  s[out] = '\0';
  return s + out;
}

char* escape_url(const char* src, char* dst) {
  std::string out;
  AppendEscaped(out, src);
  std::memcpy(dst, out.c_str(), out.size() + 1);
  return dst;
}

void AppendEscapedUrl(std::string* out, std::string_view src) {
  AppendEscaped(*out, src);
}

std::string EscapeUrl(std::string_view src) {
  std::string out;
  out.reserve(src.size());
  AppendEscaped(out, src);
  return out;
}

void plustospace(char* s) {
  for (; *s != '\0'; ++s) {
    if (*s == '+') *s = ' ';
  }
}

void spacetoplus(char* s) {
  for (; *s != '\0'; ++s) {
    if (*s == ' ') *s = '+';
  }
}

}  // namespace storegen
