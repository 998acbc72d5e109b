// The dynamic-page front's request parser. The input is a query string.
// Checks that an accepted request gives the page generator only its own
// options, each value a word it cannot take for an option, and that the
// request written back as a query parses to the same request.
#include <string>
#include <vector>

#include "cgisupport/cgi_request.h"
#include "cgisupport/form_decode.h"
#include "driver/front/dynamic_request.h"
#include "fuzz/fuzz_util.h"

namespace {

// A word the page generator reads as an option ends a category.
bool IsOptionWord(const std::string& word) {
  return word.size() == 2 && word[0] == '-';
}

std::string Query(const std::vector<std::string>& words) {
  std::string query;
  for (const std::string& w : words)
    query += (query.empty() ? "" : "+") + storegen::EscapeUrl(w);
  return query;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace storegen;
  const std::string query(reinterpret_cast<const char*>(data), size);
  std::optional<DynamicRequest> request = ParseDynamicRequest(query);
  if (!request) return 0;
  FUZZ_CHECK(IsPlainName(request->store) && request->store[0] != '-', "store name");
  const std::vector<std::string> args = DynamicRequestArguments(*request, request->store);
  for (std::size_t i = 0; i < args.size(); i += 2) {
    // Options stand at even places, each followed by its value ("-p" takes
    // none, and its SKU stands where a value would).
    FUZZ_CHECK(args[i] == "-c" || args[i] == "-p" || args[i] == "-C" || args[i] == "-f",
               "an option the front does not give");
    FUZZ_CHECK(i + 1 < args.size(), "an option without its value");
    const std::string& value = args[i + 1];
    FUZZ_CHECK(!value.empty() && !IsOptionWord(value), "a value read as an option");
    FUZZ_CHECK(args[i] == "-C" || value[0] != '-', "a value beginning with a dash");
    for (char c : value)
      FUZZ_CHECK(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f, "a control character");
  }
  std::vector<std::string> words = {"-c", request->store};
  if (request->kind == DynamicRequest::Kind::kProductPage) {
    words.insert(words.end(), {"-p", request->sku});
  } else {
    if (!request->category.empty()) words.insert(words.end(), {"-C", request->category});
    words.insert(words.end(), {"-f", std::to_string(request->first)});
  }
  FUZZ_CHECK(ParseDynamicRequest(Query(words)) == request, "the request written back differs");
  return 0;
}
