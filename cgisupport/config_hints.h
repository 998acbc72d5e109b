// Where a file says, or fails to say, what a run needs: the line of a key
// or a text, and the likely reason for a key that is missing. For messages
// only; nothing here is on a hot path.
#ifndef STOREGEN_CGISUPPORT_CONFIG_HINTS_H_
#define STOREGEN_CGISUPPORT_CONFIG_HINTS_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace storegen {

// The number (from 1) of the first line of |file| whose key is |key| (case
// ignored) and that has a value, as a lookup finds it; 0 when there is none
// or the file cannot be read.
int ConfigKeyLine(const char* file, std::string_view key);

// The number of the first line of |file| whose value, or a ";"-separated
// part of it, is |value|; 0 when there is none.
int ConfigValueLine(const char* file, std::string_view value);

// The number of the first line of |file| that holds |text|; 0 when none.
int TextLine(const char* file, std::string_view text);

// Edits (insertions, deletions, changes, swaps of neighbours) between two
// names, ASCII case ignored: how close a misspelt name is to a known one.
// Distances of |limit| or more are not worked out: the answer is then some
// number not below |limit|.
std::size_t NameDistance(std::string_view a, std::string_view b,
                         std::size_t limit = static_cast<std::size_t>(-1));

// Why no line of |file| gives |key| a value, when a line comes close: the
// key without a value, the key followed by a blank instead of a TAB, or a
// key one or two letters away from it. Returns a clause for a message and
// sets *line to that line; "" (and *line 0) when no line comes close.
std::string MissingKeyHint(const char* file, std::string_view key, int* line);

}  // namespace storegen

#endif  // STOREGEN_CGISUPPORT_CONFIG_HINTS_H_
