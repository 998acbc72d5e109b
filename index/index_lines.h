// Reading and splitting the lines of the index templates (module-internal).
#ifndef STOREGEN_INDEX_INDEX_LINES_H_
#define STOREGEN_INDEX_INDEX_LINES_H_

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "cgisupport/file_util.h"

namespace storegen {

// Reads the next piece of a line into |raw|: up to and including LF, at most
// 255 bytes (a longer line comes in several pieces). False at end of file.
bool ReadIndexLine(FILE* fp, std::string* raw);

// |raw| without its trailing CR and LF bytes.
std::string_view StripLineEnd(std::string_view raw);

// |s| less one trailing '\\', '/', LF or CR when it has at least two bytes.
std::string_view TrimEndView(std::string_view s);

// Splits a text the way successive strtok calls do: each call skips the
// delimiters in front, takes the token up to the next delimiter and consumes
// that one delimiter, so the next call may use other delimiters.
class LineTokenizer {
 public:
  explicit LineTokenizer(std::string_view text) : rest_(text) {}
  // The next token, or false when only delimiters are left.
  bool Next(std::string_view delims, std::string_view* token);

 private:
  std::string_view rest_;
};

// The first token of |line| split at TAB and blank (empty when none).
std::string_view FirstToken(std::string_view line);

// Writes |line| and a line feed.
void WriteLine(FILE* fp, std::string_view line);

}  // namespace storegen

#endif  // STOREGEN_INDEX_INDEX_LINES_H_
