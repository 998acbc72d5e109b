#include "cgisupport/config_line.h"

#include <cstddef>

namespace storegen {
namespace {

constexpr std::string_view kSeparators = "\t\r\n";

unsigned char FoldAscii(char c) {
  unsigned char u = static_cast<unsigned char>(c);
  return (u >= 'A' && u <= 'Z') ? static_cast<unsigned char>(u - 'A' + 'a') : u;
}

// The next token of |line| at or after |pos|; |pos| moves behind it.
std::string_view NextToken(std::string_view line, std::size_t& pos) {
  std::size_t start = line.find_first_not_of(kSeparators, pos);
  if (start == std::string_view::npos) {
    pos = line.size();
    return {};
  }
  std::size_t end = line.find_first_of(kSeparators, start);
  if (end == std::string_view::npos) end = line.size();
  pos = end;
  return line.substr(start, end - start);
}

}  // namespace

ConfigLineTokens SplitConfigLine(std::string_view line) {
  // A NUL byte ends the line, as it ends the C string the line was read into.
  if (std::size_t nul = line.find('\0'); nul != std::string_view::npos) line = line.substr(0, nul);
  std::size_t pos = 0;
  ConfigLineTokens tokens;
  tokens.key = NextToken(line, pos);
  if (!tokens.key.empty()) tokens.value = NextToken(line, pos);
  return tokens;
}

bool KeysEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
  }
  return true;
}

}  // namespace storegen
