#include "driver/front/dynamic_request.h"

#include "cgisupport/cgi_request.h"

namespace storegen {
namespace {

// A word that ends a category's words, as the page generator reads them.
bool EndsCategory(std::string_view word) {
  return word.size() == 2 && word[0] == '-';
}

// The query's words, decoded; nullopt when a word is empty, does not decode
// or is too long, or the query is empty or too long.
std::optional<std::vector<std::string>> Words(std::string_view query) {
  if (query.empty() || query.size() > kMaxDynamicQuery) return std::nullopt;
  std::vector<std::string> words;
  for (std::size_t start = 0;;) {
    std::size_t plus = query.find('+', start);
    std::optional<std::string> word = DecodeUrlText(query.substr(start, plus - start), false);
    if (!word || word->empty() || word->size() > kMaxDynamicWord) return std::nullopt;
    words.push_back(std::move(*word));
    if (plus == std::string_view::npos) return words;
    start = plus + 1;
  }
}

// A list page's first position: 1 to 9 decimal digits.
bool ParseFirst(std::string_view word, std::uint32_t* first) {
  if (word.empty() || word.size() > 9) return false;
  std::uint32_t n = 0;
  for (char c : word) {
    if (c < '0' || c > '9') return false;
    n = n * 10 + static_cast<std::uint32_t>(c - '0');
  }
  *first = n;
  return true;
}

}  // namespace

std::optional<DynamicRequest> ParseDynamicRequest(std::string_view query) {
  std::optional<std::vector<std::string>> words = Words(query);
  if (!words) return std::nullopt;
  const std::vector<std::string>& w = *words;
  DynamicRequest r;
  bool product = false;
  bool list = false;
  bool category = false;
  for (std::size_t i = 0; i < w.size();) {
    const std::string& word = w[i];
    const bool has_value = i + 1 < w.size();
    if (word[0] != '-') {
      if (!r.sku.empty()) return std::nullopt;
      r.sku = word;
      ++i;
    } else if (word == "-p" && !product) {
      product = true;
      ++i;
    } else if (word == "-c" && r.store.empty() && has_value && w[i + 1][0] != '-' &&
               IsPlainName(w[i + 1])) {
      r.store = w[i + 1];
      i += 2;
    } else if (word == "-f" && !list && has_value && ParseFirst(w[i + 1], &r.first)) {
      list = true;
      i += 2;
    } else if (word == "-C" && !category) {
      category = true;
      for (++i; i < w.size() && !EndsCategory(w[i]); ++i)
        r.category += (r.category.empty() ? "" : " ") + w[i];
      if (r.category.empty() || r.category.size() > kMaxDynamicWord) return std::nullopt;
    } else {
      return std::nullopt;
    }
  }
  if (r.store.empty() || product == list) return std::nullopt;
  if (product && (r.sku.empty() || category)) return std::nullopt;
  if (list && !r.sku.empty()) return std::nullopt;
  r.kind = product ? DynamicRequest::Kind::kProductPage : DynamicRequest::Kind::kListPage;
  return r;
}

std::vector<std::string> DynamicRequestArguments(const DynamicRequest& request,
                                                 const std::string& store_cfg) {
  if (request.kind == DynamicRequest::Kind::kProductPage) {
    return {"-c", store_cfg, "-p", request.sku};
  }
  std::vector<std::string> args = {"-c", store_cfg};
  if (!request.category.empty()) args.insert(args.end(), {"-C", request.category});
  args.insert(args.end(), {"-f", std::to_string(request.first)});
  return args;
}

}  // namespace storegen
