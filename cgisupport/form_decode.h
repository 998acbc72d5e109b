// Decoding of CGI request parameters into a table of name/value entries: the
// URL-encoded body of a POST request or the query string of a GET request,
// plus the URL encoding primitives, look-up by name or name prefix, and a
// debugging page that lists a table. Routines return codes only; the matching
// error pages are in cgisupport/cgi_pages.h.
#ifndef STOREGEN_CGISUPPORT_FORM_DECODE_H_
#define STOREGEN_CGISUPPORT_FORM_DECODE_H_

#include <cstdio>
#include <string>
#include <string_view>

namespace storegen {

// One decoded parameter. Both strings are malloc'd and owned by the table
// they sit in; FreeFormEntries releases them.
struct FormEntry {
  char* name;
  char* value;
};

// Reads a POST body ("a=1&b=x+y%21") from standard input into |entries|
// (room for |max|), using at most CONTENT_LENGTH bytes. Each field has '+'
// turned into spaces and %XY escapes decoded before it is split at its first
// '=', so an encoded "%3D" in a name splits there too. Returns the count; -1
// when REQUEST_METHOD is not exactly "POST", -2 when CONTENT_TYPE is not
// exactly "application/x-www-form-urlencoded", -3 when CONTENT_LENGTH is
// unset or not a decimal number up to INT_MAX, -4 when more than |max|
// fields arrive. Entries stored before a -4
// stay in the table for the caller to free (it holds exactly |max|).
int GetFormEntries(FormEntry* entries, int max);

// Decodes QUERY_STRING into |entries|. A field is stored only when it has a
// character after its last '=' (or has no '=' at all): "a=&b=2" gives only b.
// A field without '=' takes the (already decoded) value of the field before
// it: "x=1&y" gives x = 1 and y = 1. Only values are decoded ('+' and %XY).
// Fields of any length are kept whole. Returns the count; 0 when the variable
// is unset; -2 when storing a field would fill the table, so at most max - 1
// entries are ever stored (those stay for the caller to free).
int GetEncodedEntries(FormEntry* entries, int max);

// Stores copies of |name| and |value| (note the order of the arguments) at
// index |count| and returns count + 1. A null argument is stored as null.
// REQUIRES: the table has room for index |count|.
int AddFormEntry(FormEntry* entries, int count, const char* value, const char* name);

// Frees the strings of the first |count| entries (nulls skipped) and sets
// them to null; the array stays the caller's.
void FreeFormEntries(FormEntry* entries, int count);

// The first entry whose name equals |name| exactly (case counts) / begins
// with |prefix|; null when none does, |entries| is null or count < 1.
FormEntry* GetEntryPtr(FormEntry* entries, int count, const char* name);
FormEntry* GetEntryPtrPrefix(FormEntry* entries, int count, const char* prefix);

// Prints an HTML page listing every entry as "name = value<br>" to standard
// output, "Content-type" header included.
void PrintAllEntries(const FormEntry* entries, int count);

// Copies the text of |line| before the first |stop| into |word| and removes
// it and the stop from |line| (a line without |stop| becomes empty).
// REQUIRES: |word| holds strlen(line) + 1 bytes.
void getword(char* word, char* line, char stop);
// The same, returning the text as a new malloc'd string (null when memory
// runs out; |line| is then unchanged).
char* makeword(char* line, char stop);
// Reads from |stream| into a new malloc'd string until |stop| (not kept), end
// of file, or *remaining reaching 0; every byte read decrements *remaining (a
// null |remaining| sets no limit). Null when memory runs out.
char* fmakeword(FILE* stream, char stop, int* remaining);

// The byte encoded by the two hexadecimal digits at |hex| (either case); not
// validated, but a string that ends at |hex| is never read past.
char x2c(const char* hex);
// Decodes every "%XY" in |s| in place (a '%' with fewer than two bytes after
// it is kept as it stands). Returns a pointer to the new terminator.
char* unescape_url(char* s);
// Copies |src| to |dst| keeping letters, digits and "/~_-.*" and writing every
// other byte as '%' and two upper-case hexadecimal digits. Returns dst.
// REQUIRES: |dst| holds 3 * strlen(src) + 1 bytes.
char* escape_url(const char* src, char* dst);
// escape_url for C++ callers.
std::string EscapeUrl(std::string_view src);
// EscapeUrl(src) appended to |out|.
void AppendEscapedUrl(std::string* out, std::string_view src);
// Turn every '+' into a space / every space into '+', in place.
void plustospace(char* s);
void spacetoplus(char* s);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_FORM_DECODE_H_
