#include "cgisupport/str_util.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace storegen {
namespace {

using Strings = std::vector<std::string>;

// Every token strtok_noskip yields for |text|.
Strings Tokens(std::string text, const char* delims) {
  Strings out;
  for (char* t = strtok_noskip(text.data(), delims); t != nullptr;
       t = strtok_noskip(nullptr, delims)) {
    out.push_back(t);
  }
  return out;
}

// SpanWithout looks at sixteen bytes at a time: it must stop where a byte by
// byte scan stops, at every length and alignment.
TEST(StrUtil, SpanWithoutAgreesWithAByteByByteScan) {
  std::mt19937 rng(3);
  const std::string alphabet = "ab<%\r-\xff";
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    for (std::size_t n = rng() % 70; n > 0; --n)
      text += alphabet[rng() % alphabet.size()];
    const std::size_t from = text.empty() ? 0 : rng() % text.size();
    std::size_t k = from;
    while (k < text.size() && text[k] != '<' && text[k] != '%' && text[k] != '\r' && text[k] != '-')
      ++k;
    EXPECT_EQ(SpanWithout(text.data() + from, text.size() - from, '<', '%', '\r', '-'), k - from)
        << text;
  }
}

TEST(StrUtil, Tokenizers) {
  EXPECT_EQ(Tokens("a,,b", ","), (Strings{"a", "", "b"}));
  EXPECT_EQ(Tokens(",a,", ",;"), (Strings{"", "a"}));  // no trailing empty field
  EXPECT_EQ(Tokens("", ","), Strings{});
  EXPECT_EQ(strtok_noskip(nullptr, ","), nullptr);  // exhausted: nothing saved
  // A second string replaces the saved position of the first.
  char first[] = "a,b";
  char second[] = "x,y";
  strtok_noskip(first, ",");
  EXPECT_STREQ(strtok_noskip(second, ","), "x");
  EXPECT_STREQ(strtok_noskip(nullptr, ","), "y");

  // split's capacity is in bytes; the last element keeps the rest unsplit.
  char* three[3];
  char s[] = "a,b,c,d";
  EXPECT_EQ(split(s, three, sizeof(three), ','), 3);
  EXPECT_STREQ(three[2], "c,d");

  char upper[6] = "#####";
  buffertouppercopy(upper, "a\0b", 3);
  EXPECT_EQ(std::memcmp(upper, "A\0B\0#", 6), 0);
}

}  // namespace
}  // namespace storegen
