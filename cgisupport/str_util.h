// String routines on NUL-terminated byte strings used throughout storegen:
// slash-insensitive path searching, case-insensitive searching, trimming,
// tokenising, wildcard patterns, key replacement, whole-file buffers and the
// masking of control characters so that a multi-line value fits on one line.
//
// Bytes are compared as unsigned char, with the C library's character classes
// in the "C" locale. Routines that write into a caller's buffer do not know
// its size; each states what it writes. Memory handed out is released with
// free(). The only process-wide state is strtok_noskip's saved position,
// which makes that routine non-reentrant.
#ifndef STOREGEN_CGISUPPORT_STR_UTIL_H_
#define STOREGEN_CGISUPPORT_STR_UTIL_H_

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace storegen {

// ---- Character and position helpers -----------------------------------------

// |c| with 'A'-'Z' made 'a'-'z', every other byte as it is: tolower in the
// "C" locale, without a call into the locale.
inline char AsciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
// |s| with AsciiLower applied to every byte.
std::string AsciiLowered(std::string_view s);

// The length of the longest prefix of the |n| bytes at |p| that holds none
// of |a|, |b|, |c| and |d| (give one twice for fewer).
std::size_t SpanWithout(const char* p, std::size_t n, char a, char b, char c, char d);

// 1 if |c| is ' ' or '\t' (nothing else, not LF or CR), else 0.
int is_white(int c);
// The first occurrence of byte |c| in |set|; null if absent, if |set| is null
// or empty. The terminator is never part of a set, so c = 0 gives null.
const char* is_in(int c, const char* set);
// Index of the first occurrence of byte |c| in |set|; -1 as for is_in.
int is_in_X(int c, const char* set);
// Index of the last occurrence of byte |c| in |s|; -1 if |s| is null, empty
// or holds no |c|.
int rind(const char* s, int c);

// ---- Whole-string class tests -----------------------------------------------
// Each returns 1 only when |s| is non-null, non-empty and every byte is in
// the class (isalpha, isalnum, ...); otherwise 0.

int str_isalpha(const char* s);
int str_isalnum(const char* s);
int str_iscntrl(const char* s);
int str_isdigit(const char* s);
int str_isxdigit(const char* s);
int str_isgraph(const char* s);
int str_islower(const char* s);
int str_isprint(const char* s);
int str_ispunct(const char* s);
int str_isspace(const char* s);
int str_isupper(const char* s);

// ---- Other tests and validators ---------------------------------------------

// 1 if |s| contains a TAB; 0 if not, or |s| null or empty.
int str_hastab(const char* s);
// 0 if null or empty. One leading '+' or '-' is skipped, then every byte must
// be a digit; a sign alone passes.
int str_isint(const char* s);
// 0 if null or empty. Optional sign, then digits with at most one '.'; a sign
// alone and "." alone pass.
int str_isreal(const char* s);
// Skips leading white space and then one more byte without looking at it (a
// free sign position: "-12", "+1.5" and "x12" all pass). Every later byte
// must be a digit or a single '.'. 0 if null, empty or only white space.
int IsValidNumber(const char* s);
// The same skipping; every later byte must be a digit, except that '-' is
// allowed as the first byte examined. 0 if null, empty or only white space.
int IsValidInteger(const char* s);
// The same skipping; digits, one '.', and '-' as the first byte examined are
// allowed. Digits after the '.' are counted into *decimals (when non-null):
// returns -1 as soon as the count exceeds |max_decimals| (< 0: no limit), 0
// for any other byte, a second '.', or a null, empty or all-blank |s| (count
// 0), else 1.
int IsValidFloat(const char* s, int max_decimals, int* decimals);
// 0 if null; 1 if every byte is a digit (so 1 for the empty string).
int IsPositiveInteger(const char* s);
// 0 if |s| is null; 1 if every byte is a digit or one of |allowed| (1 for
// the empty string).
int IsStringHasNumberandOnly(const char* s, const char* allowed);
// 1 if |s| is null, empty or only white space; else 0.
int IsStringNullOrEmpty(const char* s);
// The negation of IsStringNullOrEmpty; no syntax is checked.
int IsValidEmail(const char* s);
// 0 if |s| is null or holds a byte of |forbidden|; 1 otherwise (also empty).
int IsValidString(const char* s, const char* forbidden);

// ---- Slash-insensitive comparison and search ('/' equals '\\') --------------

// strncmp over at most |n| bytes where any two slashes compare equal. Returns
// 0, or the difference of the first differing unsigned bytes.
int strncmp_dirslash(const char* a, const char* b, std::size_t n);
// As above on tolower of each byte; returns tolower(a) - tolower(b).
int strncasecmp_dirslash(const char* a, const char* b, std::size_t n);
// First position in |h| where |nd| matches (case-sensitive / case-insensitive
// for the "case" form); |h| for an empty |nd|; null when there is no match.
const char* strstr_dirslash(const char* h, const char* nd);
char* strstr_dirslash(char* h, const char* nd);
const char* strcasestr_dirslash(const char* h, const char* nd);
char* strcasestr_dirslash(char* h, const char* nd);
// The first / last '/' or '\\' of |s|; null if none (or |s| null). The last
// slash is where a path splits into directory and file name.
const char* strchr_dirslash(const char* s);
char* strchr_dirslash(char* s);
const char* strrchr_dirslash(const char* s);
char* strrchr_dirslash(char* s);

// ---- Searching and comparing from the end -----------------------------------

// Case-insensitive strstr: the first match in |h|, |h| for an empty |nd|,
// null if none.
const char* strcasestr(const char* h, const char* nd);
char* strcasestr(char* h, const char* nd);
// The last occurrence of |nd| in |h| (case-sensitive / -insensitive); null if
// |nd| is longer than |h| or absent; |h|'s terminator for an empty |nd|.
const char* strrstr(const char* h, const char* nd);
char* strrstr(char* h, const char* nd);
const char* strrcasestr(const char* h, const char* nd);
char* strrcasestr(char* h, const char* nd);
// Ends-with comparison: strlen(a) - strlen(b) when |a| is the shorter, else
// strcmp (strcasecmp) of |a|'s last strlen(b) bytes with |b|. 0: a ends in b.
int strrcmp(const char* a, const char* b);
int strrcasecmp(const char* a, const char* b);

// ---- Copying, case and order ------------------------------------------------

// A new copy of |s|, or of "" when |s| is null; null only when memory runs
// out. Caller frees.
char* tb_strdup(const char* s);
// A new terminated copy of the first min(strlen(s), n) bytes of |s| (all of
// it when n < 0); null when |s| is null or memory runs out. Caller frees.
char* strndup(const char* s, int n);
// Upper-cases |s| in place; returns s.
char* strtoupper(char* s);
// Upper-cased copy of |src| into |dst|, terminated; returns dst.
char* strtouppercopy(char* dst, const char* src);
// Upper-cases exactly |n| bytes of |src| (NULs included) into |dst| and
// writes dst[n] = 0. REQUIRES: |dst| holds n + 1 bytes. Returns dst.
char* buffertouppercopy(char* dst, const char* src, std::size_t n);
// Reverses the first |n| bytes of |s| in place (n < 0: all of it); returns s.
char* strnreverse(char* s, int n);
char* strreverse(char* s);

// ---- Padding and centring (|dst| may equal |src|; returns dst) --------------

// |n| spaces (none when n < 1) then |src|. REQUIRES: dst holds the result.
char* strpadleft(char* dst, const char* src, int n);
// |src| then |n| spaces (none when n < 1). REQUIRES: dst holds the result.
char* strpadright(char* dst, const char* src, int n);
// |src| centred in |width| bytes with spaces, an odd spare space going right;
// a plain copy when |src| is not shorter than |width|.
// REQUIRES: dst holds max(strlen(src), width) + 1 bytes.
char* strcenter(char* dst, const char* src, int width);

// ---- White space and line ends (in place; each returns s) -------------------

// Removes every white-space byte (isspace).
char* squeeze(char* s);
// Removes leading and trailing white space (isspace).
char* squish(char* s);
// Removes trailing ' ', '\t', '\n' and '\r' only.
char* TrimRight(char* s);
// Removes a trailing "\r\n", else the last byte whatever it is.
char* chop(char* s);
// Removes a trailing "\r\n", else a trailing '\n'.
char* chomp(char* s);
// Copies |src| to |dst| leaving out each CR that comes right before a LF (a
// lone CR stays); terminated. |dst| may equal |src|. Returns dst.
char* cleanupNewlineBuf(char* dst, const char* src);
char* cleanupNewline(char* s);

// ---- Tokenising and splitting -----------------------------------------------

// strtok that keeps empty fields: ",a" gives "", "a", null; "a,,b" gives "a",
// "", "b", null; "a," gives "a", null (no trailing empty field). Delimiters
// are overwritten with NUL. A null |s| continues from the one process-wide
// saved position, which each new string replaces (not reentrant).
char* strtok_noskip(char* s, const char* delims);
// Forgets strtok_noskip's saved position: a null |s| then gives null.
void ResetTokenPosition();
// Splits |s| in place at |delim| into |array|, whose capacity is
// array_bytes / sizeof(char*) (pass sizeof of the array). array[0] is s; once
// the array is full the last element keeps the rest unsplit. Returns the
// number of elements; a trailing empty field is stored but not counted, and
// an empty (or null) |s| gives 0.
int split(char* s, char** array, std::size_t array_bytes, char delim);
// Splits a copy of |s| at any byte of |delims| into one heap block: a
// null-ended pointer array followed by the copy; empty fields are kept as "".
// *out receives the block (one free() releases it) and the field count is
// returned; an empty |s| gives a block holding only the null pointer and 0.
// When memory runs out *out is null and the count is still returned.
int str2array(char*** out, const char* s, const char* delims);

// ---- Pattern routines -------------------------------------------------------

// Leftmost match of |pattern| in |text|, where the byte |wild| swallows one or
// more text bytes up to the first byte equal to the next literal (lazy, no
// backtracking; a trailing wildcard runs to the end). A match that reaches the
// end of |text| counts even with pattern left over. Unless |case_sensitive|,
// letters compare without case. Copies the matched span into |out| and returns
// out; on no match out becomes "" and null is returned.
// REQUIRES: |out| holds strlen(text) + 1 bytes.
char* findPatternStr(char* out, const char* text, const char* pattern, char wild,
                     int case_sensitive);
// The same scan, but |out| receives the bytes the wildcards swallowed and the
// whole pattern must be used. Captures of failed start positions stay in
// |out| ahead of later ones. On a match: *start = the start of the match,
// *len = its length (either pointer may be null) and out is returned. No
// match: out becomes "", *len = 0, *start = the last attempt's literal start
// (or 0 when no start was tried), and null is returned.
// REQUIRES: |out| holds every captured byte plus a terminator (strlen(text) +
// 1 bytes unless a failed attempt captured text before the match).
char* extractPatternStr(char* out, const char* text, const char* pattern, char wild,
                        int case_sensitive, int* start, int* len);
// Replaces every occurrence of |key| (case ignored) in |in| by |repl| and
// returns out. When nothing at all was written (no occurrence, or only
// leading ones replaced by an empty |repl|), returns |in| and leaves |out|
// untouched. An empty or null |key| returns |in|.
// REQUIRES: |out| holds the result and does not overlap |in|.
const char* replaceKeyBuf(char* out, const char* in, const char* key, const char* repl);
char* replaceKeyBuf(char* out, char* in, const char* key, const char* repl);

// ---- Whole-file buffers -----------------------------------------------------

// Reads |fp| from its current position to its end into a new terminated
// block; null when memory runs out. Caller frees.
char* CreateBufferFromFilePtr(FILE* fp);
// Reads the file |path| (binary) into a new terminated block with every CR
// byte removed; null when |path| is null or empty, the file cannot be opened
// or memory runs out. Caller frees.
char* CreateBufferFromFile(const char* path);

// ---- Binary and hexadecimal text --------------------------------------------

// Writes the 8 bits of |b| into out[0..7] as the values 0 and 1 (not '0' and
// '1'), most significant first; no terminator. Returns out.
char* byte2binary(char* out, unsigned char b);
// The inverse: in[0] is the most significant bit, any non-zero byte is 1.
int binary2byte(const char* in);
// Writes each of the |n| bytes of |src| as eight '0'/'1' characters and a
// space (also after the last byte), then a terminator. Writes at most |max|
// bytes: when the text reaches |max| characters it stops there without a
// terminator. Returns dst.
char* snbinary(char* dst, unsigned int max, const void* src, std::size_t n);
// snbinary without a limit. REQUIRES: dst holds 9 * n + 1 bytes.
char* sbinary(char* dst, const void* src, std::size_t n);
// dst becomes "" and then gets " hh" (lower-case hex) per byte, the appended
// text limited to |max| characters in total; always terminated.
// REQUIRES: dst holds min(3 * n, max) + 1 bytes. Returns dst.
char* snhexadecimal(char* dst, unsigned int max, const void* src, std::size_t n);
char* shexadecimal(char* dst, const void* src, std::size_t n);
// Reads |s| as bits from its last character to its first, spaces skipped:
// '1' is a set bit, anything else a clear one. Takes sbinary's text for up to
// four bytes; "" gives 0.
unsigned int sbin_to_int(const char* s);

// ---- Special-character masking ----------------------------------------------
// The bytes 8, 9, 10 and 13 are masked as 0x88, 0x89, 0x8A and 0x8D.

// cleanupNewlineBuf(dst, src), then masks every special byte of dst. |dst|
// may equal |src|. Returns dst.
char* maskSpecialCharsBuf(char* dst, const char* src);
char* maskSpecialChars(char* s);
// Copies |src| to |dst| turning masked bytes back; writes no terminator (in
// place none is needed; a separate dst must be terminated by the caller). An
// empty |src| leaves dst untouched. Returns dst.
char* unmaskSpecialCharsBuf(char* dst, const char* src);
char* unmaskSpecialChars(char* s);
// 1 if |s| holds a masked byte; 0 otherwise or when |s| is null or empty.
int hasSpecialChars(const char* s);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_STR_UTIL_H_
