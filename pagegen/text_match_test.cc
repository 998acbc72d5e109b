#include "pagegen/text_match.h"

#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace storegen {
namespace {

char Folded(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// n characters drawn from alphabet: few letters, so that near misses and
// matches at every offset are common.
std::string RandomText(std::mt19937& rng, std::string_view alphabet, std::size_t n) {
  std::string s;
  for (std::size_t i = 0; i < n; ++i)
    s += alphabet[rng() % alphabet.size()];
  return s;
}

// The search scans many bytes at a time: it must find what a byte by byte
// comparison finds, at every length and alignment.
TEST(TextMatch, SearchesAgreeWithAByteByByteScan) {
  std::mt19937 rng(7);
  const std::string alphabet = "pPgG_<>%-!aA\r0";
  auto text = [&](std::size_t n) { return RandomText(rng, alphabet, n); };
  for (int round = 0; round < 3000; ++round) {
    const std::string hay = text(rng() % 70);
    const std::string needle = text(1 + rng() % 4);
    std::size_t expected = std::string_view::npos;
    for (std::size_t i = 0; i + needle.size() <= hay.size() && expected == std::string_view::npos;
         ++i) {
      bool same = true;
      for (std::size_t k = 0; k < needle.size() && same; ++k)
        same = Folded(hay[i + k]) == Folded(needle[k]);
      if (same) expected = i;
    }
    EXPECT_EQ(FindNoCase(hay, needle), expected) << hay << " / " << needle;
  }
  EXPECT_EQ(FindNoCase("abc", ""), 0u);
  EXPECT_EQ(FindNoCase("<!-- pageGen_StoreName -->", "PAGEGEN_STORENAME"), 5u);
}

// The finder looks names up only where their prefix stands: it must find
// what a search of the whole markup finds, also with more places of the
// prefix than it keeps.
TEST(TextMatch, MarkerFinderAgreesWithASearch) {
  std::mt19937 rng(11);
  const std::string alphabet = "pPgG_aA#";
  auto text = [&](std::size_t n) { return RandomText(rng, alphabet, n); };
  for (int round = 0; round < 3000; ++round) {
    const std::string markup = text(rng() % 60);
    const MarkerFinder finder(markup, "PG_");
    EXPECT_EQ(finder.Any(), FindNoCase(markup, "PG_") != std::string_view::npos) << markup;
    for (int k = 0; k < 4; ++k) {
      const std::string name = "PG_" + text(rng() % 3);
      EXPECT_EQ(finder.Find(name), FindNoCase(markup, name)) << markup << " / " << name;
    }
  }
  const MarkerFinder markers("<!-- pagegen_storeName -->");
  EXPECT_TRUE(markers.Has("PAGEGEN_STORENAME"));
  EXPECT_FALSE(markers.Has("PAGEGEN_STORENAMES"));
}

}  // namespace
}  // namespace storegen
