// The token rules of one configuration-file line, shared by every reader.
#ifndef STOREGEN_CGISUPPORT_CONFIG_LINE_H_
#define STOREGEN_CGISUPPORT_CONFIG_LINE_H_

#include <string_view>

namespace storegen {

// Configuration lines are read with a buffer of this size; a longer line is
// read as several lines.
inline constexpr int kConfigLineSize = 65536;

// The key (first token) and value (second token) of a line split at TAB, CR
// and LF, runs of separators counting as one; empty when absent.
struct ConfigLineTokens {
  std::string_view key;
  std::string_view value;
};
ConfigLineTokens SplitConfigLine(std::string_view line);

// Keys compare without regard to ASCII case.
bool KeysEqual(std::string_view a, std::string_view b);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CONFIG_LINE_H_
