#include "cgisupport/config_hints.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <vector>

#include "cgisupport/config_line.h"

namespace storegen {
namespace {

char Fold(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::size_t NameDistance(std::string_view a, std::string_view b) {
  std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i)
    d[i][0] = i;
  for (std::size_t j = 0; j <= b.size(); ++j)
    d[0][j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const bool same = Fold(a[i - 1]) == Fold(b[j - 1]);
      d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && Fold(a[i - 1]) == Fold(b[j - 2]) && Fold(a[i - 2]) == Fold(b[j - 1]))
        d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
    }
  }
  return d[a.size()][b.size()];
}

namespace {

// Calls |visit| with each line's number and text until it returns true;
// returns that line's number, or 0.
int FindLine(const char* file, const std::function<bool(std::string_view)>& visit) {
  struct stat st;
  if (file == nullptr || stat(file, &st) != 0 || !S_ISREG(st.st_mode)) return 0;  // never a FIFO
  std::ifstream in(file, std::ios::binary);
  std::string text;
  for (int number = 1; std::getline(in, text); ++number) {
    if (visit(text)) return number;
  }
  return 0;
}

std::string Quoted(std::string_view text) {
  return "\"" + std::string(text) + "\"";
}

}  // namespace

int ConfigKeyLine(const char* file, std::string_view key) {
  return FindLine(file, [&](std::string_view text) {
    ConfigLineTokens t = SplitConfigLine(text);
    return !t.value.empty() && KeysEqual(t.key, key);
  });
}

int TextLine(const char* file, std::string_view text) {
  if (text.empty()) return 0;
  return FindLine(file, [&](std::string_view line) { return line.find(text) != line.npos; });
}

int ConfigValueLine(const char* file, std::string_view value) {
  return FindLine(file, [&](std::string_view text) {
    std::string_view rest = SplitConfigLine(text).value;
    while (!rest.empty()) {
      std::size_t semi = rest.find(';');
      if (rest.substr(0, semi) == value) return true;
      rest.remove_prefix(semi == std::string_view::npos ? rest.size() : semi + 1);
    }
    return false;
  });
}

std::string MissingKeyHint(const char* file, std::string_view key, int* line) {
  std::string hint;
  const std::size_t near = key.size() >= 6 ? 2 : 1;
  *line = FindLine(file, [&](std::string_view text) {
    ConfigLineTokens t = SplitConfigLine(text);
    std::string_view word = t.key.substr(0, t.key.find(' '));
    if (KeysEqual(t.key, key)) {
      hint = "the key has no value there; write a TAB and the value after it";
    } else if (KeysEqual(word, key)) {
      hint = "the key is followed by a blank there; separate key and value with a TAB";
    } else if (!t.key.empty() && NameDistance(t.key, key) <= near) {
      hint = Quoted(t.key) + " there is not " + Quoted(key) + "; is it misspelt?";
    } else {
      return false;
    }
    return true;
  });
  return hint;
}

}  // namespace storegen
