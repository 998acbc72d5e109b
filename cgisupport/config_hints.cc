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

std::size_t NameDistance(std::string_view a, std::string_view b, std::size_t limit) {
  // Every edit changes the length by one at most.
  const std::size_t apart = a.size() > b.size() ? a.size() - b.size() : b.size() - a.size();
  if (apart >= limit) return apart;
  // Three rows of the table of distances between prefixes: i - 2, i - 1, i.
  const std::size_t width = b.size() + 1;
  std::vector<std::size_t> rows(3 * width);
  auto row = [&](std::size_t i) { return rows.data() + (i % 3) * width; };
  for (std::size_t j = 0; j < width; ++j)
    row(0)[j] = j;
  std::size_t last_least = 0;  // the least entry of row i - 1
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t* d = row(i);
    const std::size_t* up = row(i - 1);
    const std::size_t* up2 = row(i - 2);
    d[0] = i;
    std::size_t least = i;
    for (std::size_t j = 1; j < width; ++j) {
      const bool same = Fold(a[i - 1]) == Fold(b[j - 1]);
      d[j] = std::min({up[j] + 1, d[j - 1] + 1, up[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && Fold(a[i - 1]) == Fold(b[j - 2]) && Fold(a[i - 2]) == Fold(b[j - 1]))
        d[j] = std::min(d[j], up2[j - 2] + 1);
      least = std::min(least, d[j]);
    }
    // An entry comes from its row or the two above, adding nothing or one:
    // once two rows in a row reach |limit|, so does every later one.
    if (least >= limit && last_least >= limit) return least;
    last_least = least;
  }
  return row(a.size())[b.size()];
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
    } else if (!t.key.empty() && NameDistance(t.key, key, near + 1) <= near) {
      hint = Quoted(t.key) + " there is not " + Quoted(key) + "; is it misspelt?";
    } else {
      return false;
    }
    return true;
  });
  return hint;
}

}  // namespace storegen
