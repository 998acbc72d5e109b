#include "cgisupport/str_util.h"

#include <strings.h>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "cgisupport/copy_truncated.h"
#include "cgisupport/file_util.h"

namespace storegen {
namespace {

// strtok_noskip's saved position.
char* g_token_last = nullptr;

unsigned char U(char c) {
  return static_cast<unsigned char>(c);
}

int Lower(char c) {
  return std::tolower(U(c));
}

int Upper(char c) {
  return std::toupper(U(c));
}

template <typename Pred>
int AllBytes(const char* s, Pred pred) {
  if (s == nullptr || *s == '\0') return 0;
  for (; *s != '\0'; ++s) {
    if (pred(U(*s)) == 0) return 0;
  }
  return 1;
}

bool IsSpace(char c) {
  return std::isspace(U(c)) != 0;
}

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// The byte after the leading white space and the one unexamined byte that
// the number validators skip; null when the string has nothing to examine.
const char* SkipBlanksAndOne(const char* s) {
  if (s == nullptr) return nullptr;
  while (IsSpace(*s))
    ++s;
  if (*s == '\0') return nullptr;
  return s + 1;
}

// True when the first |n| bytes of |a| and |b| agree without regard to case.
// Stops at the first difference, so a shorter |a| is never read past its end.
bool CaseEqualN(const char* a, const char* b, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    if (Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

int SlashCompare(const char* a, const char* b, std::size_t n, bool fold) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (std::size_t i = 0; i < n; ++i) {
    int ca = fold ? Lower(a[i]) : U(a[i]);
    int cb = fold ? Lower(b[i]) : U(b[i]);
    if (IsDirSlash(a[i]) && IsDirSlash(b[i])) continue;
    if (ca != cb) return ca - cb;
    if (ca == 0) return 0;
  }
  return 0;
}

const char* SlashSearch(const char* h, const char* nd, bool fold) {
  if (h == nullptr || nd == nullptr) return nullptr;
  std::size_t n = std::strlen(nd);
  if (n == 0) return h;
  for (const char* p = h; *p != '\0'; ++p) {
    if (SlashCompare(p, nd, n, fold) == 0) return p;
  }
  return nullptr;
}

const char* ReverseSearch(const char* h, const char* nd, bool fold) {
  if (h == nullptr || nd == nullptr) return nullptr;
  std::size_t lh = std::strlen(h);
  std::size_t ln = std::strlen(nd);
  if (ln > lh) return nullptr;
  for (std::size_t pos = lh - ln + 1; pos-- > 0;) {
    bool equal = fold ? CaseEqualN(h + pos, nd, ln) : std::memcmp(h + pos, nd, ln) == 0;
    if (equal) return h + pos;
  }
  return nullptr;
}

// The pattern's byte at |i| folded for comparison; the terminator past its
// end compares unequal to every text byte.
int PatternByte(const char* pattern, std::size_t i, std::size_t lp, bool case_sensitive) {
  if (i >= lp) return 0;
  return case_sensitive ? U(pattern[i]) : Upper(pattern[i]);
}

bool IsMaskable(unsigned char c) {
  return c == 8 || c == 9 || c == 10 || c == 13;
}

bool IsMasked(unsigned char c) {
  return c == 0x88 || c == 0x89 || c == 0x8A || c == 0x8D;
}

}  // namespace

// The length of the longest prefix of the |n| bytes at |p| that holds none
// of |a|, |b|, |c| and |d|; sixteen bytes at a time where the processor can.
std::size_t SpanWithout(const char* p, std::size_t n, char a, char b, char c, char d) {
  std::size_t k = 0;
#if defined(__SSE2__)
  const __m128i va = _mm_set1_epi8(a), vb = _mm_set1_epi8(b);
  const __m128i vc = _mm_set1_epi8(c), vd = _mm_set1_epi8(d);
  for (; k + 16 <= n; k += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k));
    const __m128i hit = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(x, va), _mm_cmpeq_epi8(x, vb)),
                                     _mm_or_si128(_mm_cmpeq_epi8(x, vc), _mm_cmpeq_epi8(x, vd)));
    if (const int mask = _mm_movemask_epi8(hit); mask != 0)
      return k + static_cast<std::size_t>(__builtin_ctz(static_cast<unsigned>(mask)));
  }
#endif
  while (k < n && p[k] != a && p[k] != b && p[k] != c && p[k] != d)
    ++k;
  return k;
}

// ---- Character and position helpers -----------------------------------------

std::string AsciiLowered(std::string_view s) {
  std::string lowered(s);
  for (char& c : lowered)
    c = AsciiLower(c);
  return lowered;
}

int is_white(int c) {
  return c == ' ' || c == '\t' ? 1 : 0;
}

const char* is_in(int c, const char* set) {
  unsigned char b = static_cast<unsigned char>(c);
  if (set == nullptr || b == 0) return nullptr;
  for (; *set != '\0'; ++set) {
    if (U(*set) == b) return set;
  }
  return nullptr;
}

int is_in_X(int c, const char* set) {
  const char* p = is_in(c, set);
  return p == nullptr ? -1 : static_cast<int>(p - set);
}

int rind(const char* s, int c) {
  unsigned char b = static_cast<unsigned char>(c);
  if (s == nullptr || b == 0) return -1;
  int found = -1;
  for (int i = 0; s[i] != '\0'; ++i) {
    if (U(s[i]) == b) found = i;
  }
  return found;
}

// ---- Whole-string class tests -----------------------------------------------

int str_isalpha(const char* s) {
  return AllBytes(s, [](int c) { return std::isalpha(c); });
}

int str_isalnum(const char* s) {
  return AllBytes(s, [](int c) { return std::isalnum(c); });
}

int str_iscntrl(const char* s) {
  return AllBytes(s, [](int c) { return std::iscntrl(c); });
}

int str_isdigit(const char* s) {
  return AllBytes(s, [](int c) { return std::isdigit(c); });
}

int str_isxdigit(const char* s) {
  return AllBytes(s, [](int c) { return std::isxdigit(c); });
}

int str_isgraph(const char* s) {
  return AllBytes(s, [](int c) { return std::isgraph(c); });
}

int str_islower(const char* s) {
  return AllBytes(s, [](int c) { return std::islower(c); });
}

int str_isprint(const char* s) {
  return AllBytes(s, [](int c) { return std::isprint(c); });
}

int str_ispunct(const char* s) {
  return AllBytes(s, [](int c) { return std::ispunct(c); });
}

int str_isspace(const char* s) {
  return AllBytes(s, [](int c) { return std::isspace(c); });
}

int str_isupper(const char* s) {
  return AllBytes(s, [](int c) { return std::isupper(c); });
}

// ---- Other tests and validators ---------------------------------------------

int str_hastab(const char* s) {
  return s != nullptr && std::strchr(s, '\t') != nullptr ? 1 : 0;
}

int str_isint(const char* s) {
  if (s == nullptr || *s == '\0') return 0;
  if (*s == '+' || *s == '-') ++s;
  for (; *s != '\0'; ++s) {
    if (!IsDigit(*s)) return 0;
  }
  return 1;
}

int str_isreal(const char* s) {
  if (s == nullptr || *s == '\0') return 0;
  if (*s == '+' || *s == '-') ++s;
  bool dot = false;
  for (; *s != '\0'; ++s) {
    if (*s == '.' && !dot) {
      dot = true;
    } else if (!IsDigit(*s)) {
      return 0;
    }
  }
  return 1;
}

int IsValidNumber(const char* s) {
  const char* p = SkipBlanksAndOne(s);
  if (p == nullptr) return 0;
  bool dot = false;
  for (; *p != '\0'; ++p) {
    if (*p == '.' && !dot) {
      dot = true;
    } else if (!IsDigit(*p)) {
      return 0;
    }
  }
  return 1;
}

int IsValidInteger(const char* s) {
  const char* p = SkipBlanksAndOne(s);
  if (p == nullptr) return 0;
  for (const char* q = p; *q != '\0'; ++q) {
    if (!IsDigit(*q) && !(*q == '-' && q == p)) return 0;
  }
  return 1;
}

int IsValidFloat(const char* s, int max_decimals, int* decimals) {
  int count = 0;
  auto finish = [&](int result) {
    if (decimals != nullptr) *decimals = count;
    return result;
  };
  const char* p = SkipBlanksAndOne(s);
  if (p == nullptr) return finish(0);
  bool dot = false;
  for (const char* q = p; *q != '\0'; ++q) {
    if (IsDigit(*q)) {
      if (dot) {
        ++count;
        if (max_decimals >= 0 && count > max_decimals) return finish(-1);
      }
    } else if (*q == '-' && q == p) {
      // a sign in the first examined place
    } else if (*q == '.' && !dot) {
      dot = true;
    } else {
      return finish(0);
    }
  }
  return finish(1);
}

int IsPositiveInteger(const char* s) {
  if (s == nullptr) return 0;
  for (; *s != '\0'; ++s) {
    if (!IsDigit(*s)) return 0;
  }
  return 1;
}

int IsStringHasNumberandOnly(const char* s, const char* allowed) {
  if (s == nullptr) return 0;
  for (; *s != '\0'; ++s) {
    if (!IsDigit(*s) && is_in(U(*s), allowed) == nullptr) return 0;
  }
  return 1;
}

int IsStringNullOrEmpty(const char* s) {
  if (s == nullptr) return 1;
  for (; *s != '\0'; ++s) {
    if (!IsSpace(*s)) return 0;
  }
  return 1;
}

int IsValidEmail(const char* s) {
  return IsStringNullOrEmpty(s) ? 0 : 1;
}

int IsValidString(const char* s, const char* forbidden) {
  if (s == nullptr) return 0;
  for (; *s != '\0'; ++s) {
    if (is_in(U(*s), forbidden) != nullptr) return 0;
  }
  return 1;
}

// ---- Slash-insensitive comparison and search --------------------------------

int strncmp_dirslash(const char* a, const char* b, std::size_t n) {
  return SlashCompare(a, b, n, false);
}

int strncasecmp_dirslash(const char* a, const char* b, std::size_t n) {
  return SlashCompare(a, b, n, true);
}

const char* strstr_dirslash(const char* h, const char* nd) {
  return SlashSearch(h, nd, false);
}

char* strstr_dirslash(char* h, const char* nd) {
  return const_cast<char*>(SlashSearch(h, nd, false));
}

const char* strcasestr_dirslash(const char* h, const char* nd) {
  return SlashSearch(h, nd, true);
}

char* strcasestr_dirslash(char* h, const char* nd) {
  return const_cast<char*>(SlashSearch(h, nd, true));
}

const char* strchr_dirslash(const char* s) {
  if (s == nullptr) return nullptr;
  for (; *s != '\0'; ++s) {
    if (IsDirSlash(*s)) return s;
  }
  return nullptr;
}

char* strchr_dirslash(char* s) {
  return const_cast<char*>(strchr_dirslash(static_cast<const char*>(s)));
}

const char* strrchr_dirslash(const char* s) {
  if (s == nullptr) return nullptr;
  const char* found = nullptr;
  for (; *s != '\0'; ++s) {
    if (IsDirSlash(*s)) found = s;
  }
  return found;
}

char* strrchr_dirslash(char* s) {
  return const_cast<char*>(strrchr_dirslash(static_cast<const char*>(s)));
}

// ---- Searching and comparing from the end -----------------------------------

const char* strcasestr(const char* h, const char* nd) {
  if (h == nullptr || nd == nullptr) return nullptr;
  std::size_t n = std::strlen(nd);
  if (n == 0) return h;
  for (const char* p = h; *p != '\0'; ++p) {
    if (CaseEqualN(p, nd, n)) return p;
  }
  return nullptr;
}

char* strcasestr(char* h, const char* nd) {
  return const_cast<char*>(strcasestr(static_cast<const char*>(h), nd));
}

const char* strrstr(const char* h, const char* nd) {
  return ReverseSearch(h, nd, false);
}

char* strrstr(char* h, const char* nd) {
  return const_cast<char*>(ReverseSearch(h, nd, false));
}

const char* strrcasestr(const char* h, const char* nd) {
  return ReverseSearch(h, nd, true);
}

char* strrcasestr(char* h, const char* nd) {
  return const_cast<char*>(ReverseSearch(h, nd, true));
}

int strrcmp(const char* a, const char* b) {
  std::size_t la = std::strlen(a);
  std::size_t lb = std::strlen(b);
  if (la < lb) return static_cast<int>(la) - static_cast<int>(lb);
  return std::strcmp(a + la - lb, b);
}

int strrcasecmp(const char* a, const char* b) {
  std::size_t la = std::strlen(a);
  std::size_t lb = std::strlen(b);
  if (la < lb) return static_cast<int>(la) - static_cast<int>(lb);
  return ::strcasecmp(a + la - lb, b);
}

// ---- Copying, case and order ------------------------------------------------

char* tb_strdup(const char* s) {
  return ::strdup(s == nullptr ? "" : s);
}

char* strndup(const char* s, int n) {
  if (s == nullptr) return nullptr;
  std::size_t len = n < 0 ? std::strlen(s) : strnlen(s, static_cast<std::size_t>(n));
  char* copy = static_cast<char*>(std::malloc(len + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, s, len);
  copy[len] = '\0';
  return copy;
}

char* strtoupper(char* s) {
  if (s == nullptr) return s;
  for (char* p = s; *p != '\0'; ++p)
    *p = static_cast<char>(Upper(*p));
  return s;
}

char* strtouppercopy(char* dst, const char* src) {
  std::size_t i = 0;
  for (; src[i] != '\0'; ++i)
    dst[i] = static_cast<char>(Upper(src[i]));
  dst[i] = '\0';
  return dst;
}

char* buffertouppercopy(char* dst, const char* src, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i)
    dst[i] = static_cast<char>(Upper(src[i]));
  dst[n] = '\0';
  return dst;
}

char* strnreverse(char* s, int n) {
  if (s == nullptr) return s;
  std::size_t len = n < 0 ? std::strlen(s) : static_cast<std::size_t>(n);
  if (len >= 2) std::reverse(s, s + len);
  return s;
}

char* strreverse(char* s) {
  return strnreverse(s, -1);
}

// ---- Padding and centring ---------------------------------------------------

char* strpadleft(char* dst, const char* src, int n) {
  std::size_t pad = n < 1 ? 0 : static_cast<std::size_t>(n);
  std::size_t len = std::strlen(src);
  std::memmove(dst + pad, src, len + 1);
  std::memset(dst, ' ', pad);
  return dst;
}

char* strpadright(char* dst, const char* src, int n) {
  std::size_t pad = n < 1 ? 0 : static_cast<std::size_t>(n);
  std::size_t len = std::strlen(src);
  std::memmove(dst, src, len);
  std::memset(dst + len, ' ', pad);
  dst[len + pad] = '\0';
  return dst;
}

char* strcenter(char* dst, const char* src, int width) {
  std::size_t len = std::strlen(src);
  if (width < 0 || len >= static_cast<std::size_t>(width)) {
    std::memmove(dst, src, len + 1);
    return dst;
  }
  std::size_t w = static_cast<std::size_t>(width);
  std::size_t left = (w - len) / 2;
  std::memmove(dst + left, src, len);
  std::memset(dst, ' ', left);
  std::memset(dst + left + len, ' ', w - left - len);
  dst[w] = '\0';
  return dst;
}

// ---- White space and line ends ----------------------------------------------

char* squeeze(char* s) {
  if (s == nullptr) return s;
  char* out = s;
  for (const char* p = s; *p != '\0'; ++p) {
    if (!IsSpace(*p)) *out++ = *p;
  }
  *out = '\0';
  return s;
}

char* squish(char* s) {
  if (s == nullptr) return s;
  std::size_t len = std::strlen(s);
  while (len > 0 && IsSpace(s[len - 1]))
    --len;
  s[len] = '\0';
  std::size_t lead = 0;
  while (lead < len && IsSpace(s[lead]))
    ++lead;
  if (lead > 0) std::memmove(s, s + lead, len - lead + 1);
  return s;
}

char* TrimRight(char* s) {
  if (s == nullptr) return s;
  std::size_t len = std::strlen(s);
  while (len > 0 && std::strchr(" \t\n\r", s[len - 1]) != nullptr)
    --len;
  s[len] = '\0';
  return s;
}

char* chop(char* s) {
  if (s == nullptr) return s;
  std::size_t len = std::strlen(s);
  if (len >= 2 && s[len - 2] == '\r' && s[len - 1] == '\n') {
    s[len - 2] = '\0';
  } else if (len > 0) {
    s[len - 1] = '\0';
  }
  return s;
}

char* chomp(char* s) {
  if (s == nullptr) return s;
  std::size_t len = std::strlen(s);
  if (len >= 2 && s[len - 2] == '\r' && s[len - 1] == '\n') {
    s[len - 2] = '\0';
  } else if (len > 0 && s[len - 1] == '\n') {
    s[len - 1] = '\0';
  }
  return s;
}

char* cleanupNewlineBuf(char* dst, const char* src) {
  std::size_t out = 0;
  for (std::size_t i = 0; src[i] != '\0'; ++i) {
    if (src[i] == '\r' && src[i + 1] == '\n') continue;
    dst[out++] = src[i];
  }
  dst[out] = '\0';
  return dst;
}

char* cleanupNewline(char* s) {
  return s == nullptr ? s : cleanupNewlineBuf(s, s);
}

// ---- Tokenising and splitting -----------------------------------------------

void ResetTokenPosition() {
  g_token_last = nullptr;
}

char* strtok_noskip(char* s, const char* delims) {
  if (s == nullptr) s = g_token_last;
  if (s == nullptr) return nullptr;
  if (is_in(U(*s), delims) != nullptr) {
    *s = '\0';
    g_token_last = s + 1;
    return s;
  }
  if (*s == '\0') {
    g_token_last = nullptr;
    return nullptr;
  }
  for (char* p = s + 1; *p != '\0'; ++p) {
    if (is_in(U(*p), delims) != nullptr) {
      *p = '\0';
      g_token_last = p + 1;
      return s;
    }
  }
  g_token_last = nullptr;
  return s;
}

int split(char* s, char** array, std::size_t array_bytes, char delim) {
  std::size_t capacity = array_bytes / sizeof(char*);
  if (s == nullptr || array == nullptr || capacity == 0) return 0;
  array[0] = s;
  std::size_t count = 0;
  std::size_t len = std::strlen(s);
  // With room for one element nothing can be split off; the string stays whole.
  for (std::size_t i = 0; i < len && capacity > 1; ++i) {
    if (s[i] == delim) {
      s[i] = '\0';
      ++count;
      array[count] = s + i + 1;
    }
    if (count == capacity - 1) break;
  }
  return static_cast<int>(array[count][0] != '\0' ? count + 1 : count);
}

int str2array(char*** out, const char* s, const char* delims) {
  if (out == nullptr) return 0;
  if (s == nullptr || *s == '\0') {
    *out = static_cast<char**>(std::calloc(1, sizeof(char*)));
    return 0;
  }
  std::size_t len = std::strlen(s);
  std::size_t d = 0;
  for (std::size_t i = 0; i < len; ++i) {
    if (is_in(U(s[i]), delims) != nullptr) ++d;
  }
  int fields = static_cast<int>(d + 1);
  std::size_t table_bytes = (d + 2) * sizeof(char*);
  void* block = std::calloc(1, table_bytes + len + 1);
  if (block == nullptr) {
    *out = nullptr;
    return fields;
  }
  char** table = static_cast<char**>(block);
  char* copy = static_cast<char*>(block) + table_bytes;
  std::size_t slot = 0;
  table[slot] = copy;
  for (std::size_t i = 0; i < len; ++i) {
    if (is_in(U(s[i]), delims) != nullptr) {
      copy[i] = '\0';
      table[++slot] = copy + i + 1;
    } else {
      copy[i] = s[i];
    }
  }
  *out = table;
  return fields;
}

// ---- Pattern routines -------------------------------------------------------

char* findPatternStr(char* out, const char* text, const char* pattern, char wild,
                     int case_sensitive) {
  if (out == nullptr) return nullptr;
  out[0] = '\0';
  if (text == nullptr || pattern == nullptr) return nullptr;
  std::size_t lt = std::strlen(text);
  std::size_t lp = std::strlen(pattern);
  if (lp > lt || lt == 0) return nullptr;
  for (std::size_t start = 0; start < lt; ++start) {
    bool in_wild = false;
    bool failed = false;
    std::size_t consumed = 0;
    std::size_t pi = 0;
    while (start + consumed < lt && (pi < lp || in_wild)) {
      int t = case_sensitive ? U(text[start + consumed]) : Upper(text[start + consumed]);
      if (pi < lp && pattern[pi] == wild) {
        in_wild = true;
        ++pi;
      } else if (PatternByte(pattern, pi, lp, case_sensitive) == t) {
        in_wild = false;
        ++pi;
      } else if (!in_wild) {
        failed = true;
        break;
      }
      ++consumed;
    }
    if (failed) continue;
    std::memcpy(out, text + start, consumed);
    out[consumed] = '\0';
    return out;
  }
  return nullptr;
}

char* extractPatternStr(char* out, const char* text, const char* pattern, char wild,
                        int case_sensitive, int* start_out, int* len_out) {
  std::size_t lt = text == nullptr ? 0 : std::strlen(text);
  std::size_t lp = pattern == nullptr ? 0 : std::strlen(pattern);
  if (text == nullptr || pattern == nullptr || lp > lt || lt == 0) {
    if (start_out != nullptr) *start_out = 0;
    if (len_out != nullptr) *len_out = 0;
    if (out != nullptr) out[0] = '\0';
    return nullptr;
  }
  // Captured bytes accumulate over all start positions, failed ones included.
  std::string captured;
  long first_literal = -1;
  for (std::size_t start = 0; start < lt; ++start) {
    first_literal = -1;
    bool in_wild = false;
    bool failed = false;
    std::size_t consumed = 0;
    std::size_t pi = 0;
    while (start + consumed < lt && (pi < lp || in_wild)) {
      char byte = text[start + consumed];
      int t = case_sensitive ? U(byte) : Upper(byte);
      if (pi < lp && pattern[pi] == wild) {
        if (!in_wild) {
          in_wild = true;
          captured.push_back(byte);
        }
        ++pi;
      } else if (PatternByte(pattern, pi, lp, case_sensitive) == t) {
        in_wild = false;
        if (first_literal < 0) first_literal = static_cast<long>(start);
        ++pi;
      } else if (in_wild) {
        captured.push_back(byte);
      } else {
        failed = true;
        break;
      }
      ++consumed;
    }
    if (failed || captured.empty() || pi < lp) continue;
    if (out != nullptr) {
      std::memcpy(out, captured.data(), captured.size());
      out[captured.size()] = '\0';
    }
    if (len_out != nullptr) {
      *len_out = static_cast<int>(static_cast<long>(start + consumed) - first_literal);
    }
    if (start_out != nullptr) *start_out = static_cast<int>(first_literal);
    return out;
  }
  if (out != nullptr) out[0] = '\0';
  if (start_out != nullptr) *start_out = static_cast<int>(first_literal);
  if (len_out != nullptr) *len_out = 0;
  return nullptr;
}

const char* replaceKeyBuf(char* out, const char* in, const char* key, const char* repl) {
  if (in == nullptr || key == nullptr || *key == '\0' || out == nullptr) return in;
  if (repl == nullptr) repl = "";
  std::size_t key_len = std::strlen(key);
  std::string result;
  const char* pos = in;
  for (const char* hit = strcasestr(pos, key); hit != nullptr; hit = strcasestr(pos, key)) {
    result.append(pos, static_cast<std::size_t>(hit - pos));
    result.append(repl);
    pos = hit + key_len;
  }
  if (result.empty()) return in;
  result.append(pos);
  std::memcpy(out, result.c_str(), result.size() + 1);
  return out;
}

char* replaceKeyBuf(char* out, char* in, const char* key, const char* repl) {
  return const_cast<char*>(replaceKeyBuf(out, static_cast<const char*>(in), key, repl));
}

// ---- Whole-file buffers -----------------------------------------------------

char* CreateBufferFromFilePtr(FILE* fp) {
  if (fp == nullptr) return nullptr;
  constexpr std::size_t kChunk = 1024;
  std::size_t total = 0;
  char* buf = static_cast<char*>(std::malloc(kChunk + 1));
  if (buf == nullptr) return nullptr;
  // The block always has room for one more chunk and the terminator.
  for (;;) {
    std::size_t got = std::fread(buf + total, 1, kChunk, fp);
    total += got;
    if (got < kChunk) break;
    char* grown = static_cast<char*>(std::realloc(buf, total + kChunk + 1));
    if (grown == nullptr) {
      std::free(buf);
      return nullptr;
    }
    buf = grown;
  }
  buf[total] = '\0';
  return buf;
}

char* CreateBufferFromFile(const char* path) {
  if (path == nullptr || *path == '\0') return nullptr;
  FilePtr fp(FopenForReading(path, "rb"));
  if (!fp) return nullptr;
  char* buf = CreateBufferFromFilePtr(fp.get());
  if (buf == nullptr) return nullptr;
  char* out = buf;
  for (const char* p = buf; *p != '\0'; ++p) {
    if (*p != '\r') *out++ = *p;
  }
  *out = '\0';
  return buf;
}

// ---- Binary and hexadecimal text --------------------------------------------

char* byte2binary(char* out, unsigned char b) {
  for (int i = 0; i < 8; ++i)
    out[i] = static_cast<char>((b >> (7 - i)) & 1);
  return out;
}

int binary2byte(const char* in) {
  int value = 0;
  for (int i = 0; i < 8; ++i)
    value = (value << 1) | (in[i] != 0 ? 1 : 0);
  return value;
}

char* snbinary(char* dst, unsigned int max, const void* src, std::size_t n) {
  if (max == 0) return dst;
  const unsigned char* bytes = static_cast<const unsigned char*>(src);
  std::size_t written = 0;
  for (std::size_t i = 0; i < n; ++i) {
    for (int bit = 7; bit >= 0; --bit) {
      dst[written++] = ((bytes[i] >> bit) & 1) != 0 ? '1' : '0';
      if (written == max) return dst;
    }
    dst[written++] = ' ';
    if (written == max) return dst;
  }
  dst[written] = '\0';
  return dst;
}

char* sbinary(char* dst, const void* src, std::size_t n) {
  return snbinary(dst, static_cast<unsigned int>(-1), src, n);
}

char* snhexadecimal(char* dst, unsigned int max, const void* src, std::size_t n) {
  static constexpr char kHex[] = "0123456789abcdef";
  const unsigned char* bytes = static_cast<const unsigned char*>(src);
  // The budget may drop below zero; from then on nothing more is appended.
  long long budget = max;
  std::size_t len = 0;
  for (std::size_t i = 0; i < n && budget > 0; ++i, budget -= 3) {
    const char piece[3] = {' ', kHex[bytes[i] >> 4], kHex[bytes[i] & 0x0f]};
    std::size_t take = budget < 3 ? static_cast<std::size_t>(budget) : 3;
    std::memcpy(dst + len, piece, take);
    len += take;
  }
  dst[len] = '\0';
  return dst;
}

char* shexadecimal(char* dst, const void* src, std::size_t n) {
  return snhexadecimal(dst, static_cast<unsigned int>(-1), src, n);
}

unsigned int sbin_to_int(const char* s) {
  if (s == nullptr) return 0;
  std::uint32_t value = 0;
  int bit = 0;
  for (std::size_t i = std::strlen(s); i-- > 0;) {
    if (s[i] == ' ') continue;
    if (s[i] == '1' && bit < 32) value |= std::uint32_t{1} << bit;
    ++bit;
  }
  return value;
}

// ---- Special-character masking ----------------------------------------------

char* maskSpecialCharsBuf(char* dst, const char* src) {
  cleanupNewlineBuf(dst, src);
  for (char* p = dst; *p != '\0'; ++p) {
    if (IsMaskable(U(*p))) *p = static_cast<char>(U(*p) + 128);
  }
  return dst;
}

char* maskSpecialChars(char* s) {
  return s == nullptr ? s : maskSpecialCharsBuf(s, s);
}

char* unmaskSpecialCharsBuf(char* dst, const char* src) {
  if (src == nullptr) return dst;
  for (std::size_t i = 0; src[i] != '\0'; ++i) {
    dst[i] = IsMasked(U(src[i])) ? static_cast<char>(U(src[i]) - 128) : src[i];
  }
  return dst;
}

char* unmaskSpecialChars(char* s) {
  return s == nullptr ? s : unmaskSpecialCharsBuf(s, s);
}

int hasSpecialChars(const char* s) {
  if (s == nullptr) return 0;
  for (; *s != '\0'; ++s) {
    if (IsMasked(U(*s))) return 1;
  }
  return 0;
}

}  // namespace storegen
