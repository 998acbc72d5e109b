// CGI form decoding. The first byte of the input chooses the table size, the
// second how CONTENT_LENGTH relates to the body; the rest is both the query
// string (up to its first NUL) and the POST body. Checks that neither decoder
// stores more entries than the table holds, that every entry is freed, and
// that escape_url and unescape_url are inverses.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cgisupport/form_decode.h"
#include "fuzz/fuzz_util.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  if (size < 2) return 0;
  const int max = data[0] % 40;
  const int length_mode = data[1] % 4;
  std::string body(reinterpret_cast<const char*>(data) + 2, size - 2);

  // Query string: an environment value ends at its first NUL.
  std::string query = body.substr(0, body.find('\0'));
  setenv("QUERY_STRING", query.c_str(), 1);
  std::vector<FormEntry> entries(static_cast<std::size_t>(max) + 1, FormEntry{nullptr, nullptr});
  int count = GetEncodedEntries(entries.data(), max);
  FUZZ_CHECK(count == -2 || (count >= 0 && count < std::max(max, 1)), "query string overflow");
  // A -2 leaves what was stored; the caller frees exactly that many.
  int stored = 0;
  while (stored < max && entries[stored].name != nullptr)
    ++stored;
  FUZZ_CHECK(entries[max].name == nullptr, "entry stored beyond the table");
  FreeFormEntries(entries.data(), stored);

  // POST body, fed through standard input.
  long lengths[] = {static_cast<long>(body.size()), static_cast<long>(body.size() / 2),
                    static_cast<long>(body.size()) + 100, 0};
  std::string length = std::to_string(lengths[length_mode]);
  setenv("REQUEST_METHOD", "POST", 1);
  setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
  setenv("CONTENT_LENGTH", length.c_str(), 1);
  FILE* in = fmemopen(body.empty() ? nullptr : body.data(), body.size(), "r");
  FUZZ_CHECK(in != nullptr || body.empty(), "fmemopen");
  if (in != nullptr) {
    FILE* saved = stdin;
    stdin = in;
    count = GetFormEntries(entries.data(), max);
    stdin = saved;
    std::fclose(in);
    FUZZ_CHECK(count == -4 || (count >= 0 && count <= max), "body overflow");
    FreeFormEntries(entries.data(), count == -4 ? max : count);
    FUZZ_CHECK(entries[max].name == nullptr, "entry stored beyond the table");
  }

  // escape_url, then unescape_url, gives the text back.
  std::vector<char> escaped(3 * query.size() + 1);
  escape_url(query.c_str(), escaped.data());
  FUZZ_CHECK(EscapeUrl(query) == escaped.data(), "escape_url and EscapeUrl differ");
  char* end = unescape_url(escaped.data());
  FUZZ_CHECK(std::string(escaped.data(), end) == query, "escape and unescape differ");

  // In-place decoding never grows the text and always terminates it.
  std::string raw = query;
  end = unescape_url(raw.data());
  FUZZ_CHECK(end <= raw.data() + raw.size() && *end == '\0', "unescape_url overran");

  // makeword splits off the text before the stop byte.
  std::string line = query;
  char* word = makeword(line.data(), '=');
  FUZZ_CHECK(word != nullptr, "makeword");
  std::size_t eq = query.find('=');
  FUZZ_CHECK(std::string(word) == query.substr(0, eq) &&
                 std::string(line.c_str()) ==
                     (eq == std::string::npos ? std::string() : query.substr(eq + 1)),
             "makeword split wrongly");
  std::free(word);
  return 0;
}
