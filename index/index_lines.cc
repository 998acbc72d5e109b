#include "index/index_lines.h"

#include "index/index_state.h"

namespace storegen {

bool ReadIndexLine(FILE* fp, std::string* raw) {
  raw->clear();
  int c;
  while (raw->size() < kIndexFieldSize - 1 && (c = std::getc(fp)) != EOF) {
    raw->push_back(static_cast<char>(c));
    if (c == '\n') break;
  }
  return !raw->empty();
}

std::string_view StripLineEnd(std::string_view raw) {
  // A NUL byte ends the line, as it ends the C string the line was read into.
  if (std::size_t nul = raw.find('\0'); nul != std::string_view::npos) raw = raw.substr(0, nul);
  while (!raw.empty() && (raw.back() == '\n' || raw.back() == '\r'))
    raw.remove_suffix(1);
  return raw;
}

std::string_view TrimEndView(std::string_view s) {
  if (s.size() >= 2) {
    char last = s.back();
    if (last == '\\' || last == '/' || last == '\n' || last == '\r') s.remove_suffix(1);
  }
  return s;
}

bool LineTokenizer::Next(std::string_view delims, std::string_view* token) {
  std::size_t start = rest_.find_first_not_of(delims);
  if (start == std::string_view::npos) {
    rest_ = {};
    return false;
  }
  std::size_t end = rest_.find_first_of(delims, start);
  if (end == std::string_view::npos) {
    *token = rest_.substr(start);
    rest_ = {};
  } else {
    *token = rest_.substr(start, end - start);
    rest_.remove_prefix(end + 1);
  }
  return true;
}

std::string_view FirstToken(std::string_view line) {
  std::string_view token;
  LineTokenizer tokens(line);
  return tokens.Next(lpTS, &token) ? token : std::string_view();
}

void WriteLine(FILE* fp, std::string_view line) {
  std::fwrite(line.data(), 1, line.size(), fp);
  std::fputc('\n', fp);
}

}  // namespace storegen
