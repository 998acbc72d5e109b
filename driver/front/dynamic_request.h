// The requests for pages made on demand, as the store's own links make them
// ("?-p+-c+lantern.cfg+SKU", "?-c+lantern.cfg[+-C+Category]+-f+N"), taken
// apart and checked before anything runs: a front that passes a request on
// to the page generator builds the generator's arguments from the parsed
// request, never from the query itself.
#ifndef STOREGEN_DRIVER_FRONT_DYNAMIC_REQUEST_H_
#define STOREGEN_DRIVER_FRONT_DYNAMIC_REQUEST_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace storegen {

// Longest query, and longest word of one (a SKU, a category, a store name),
// after decoding. Longer ones are refused, not cut: a cut name could name
// another product or category.
inline constexpr std::size_t kMaxDynamicQuery = 2048;
inline constexpr std::size_t kMaxDynamicWord = 255;

struct DynamicRequest {
  enum class Kind { kProductPage, kListPage };
  Kind kind = Kind::kProductPage;
  std::string store;        // the store configuration's file name ("lantern.cfg")
  std::string sku;          // a product page's product
  std::string category;     // a list page's category; empty: the shop home page's list
  std::uint32_t first = 0;  // a list page's first position

  bool operator==(const DynamicRequest&) const = default;
};

// Parses a query string: words separated by '+', each with its %XY escapes
// decoded. Accepted are exactly the options "-c NAME" (a plain name, see
// IsPlainName), "-p" with one SKU word, and "-f N" (1 to 9 digits) with an
// optional "-C" and its category words, each option once, in any order.
// Category words run, as the generator reads them, up to the next word that
// begins with '-' and is two characters long; they are joined with blanks.
// Anything else is refused: other options (also words such as "-tx" or
// "-oo", which the generator would read as "-t" and "-o"), repeated options,
// a product page with other than one SKU, a SKU beginning with '-', empty
// words, broken escapes, control characters (%00 included), and over-long
// words or queries.
std::optional<DynamicRequest> ParseDynamicRequest(std::string_view query);

// The page generator's arguments (without the program) for |request|, with
// |store_cfg| as the store configuration's path: "-c CFG -p SKU" or
// "-c CFG [-C CATEGORY] -f N", the category as one word.
std::vector<std::string> DynamicRequestArguments(const DynamicRequest& request,
                                                 const std::string& store_cfg);

}  // namespace storegen

#endif  // STOREGEN_DRIVER_FRONT_DYNAMIC_REQUEST_H_
