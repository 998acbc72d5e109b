#include "cgisupport/str_util.h"

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

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

TEST(StrUtil, ValidatorsAndSetMembership) {
  struct {
    const char* s;
    int number, integer;
  } cases[] = {{"x12", 1, 1}, {"1x2", 0, 0}, {"  -1.5", 1, 0}, {"1..2", 0, 0},
               {"1-5", 0, 1}, {"12-", 0, 0}, {" \t\n", 0, 0},  {nullptr, 0, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(IsValidNumber(c.s), c.number) << (c.s ? c.s : "(null)");
    EXPECT_EQ(IsValidInteger(c.s), c.integer) << (c.s ? c.s : "(null)");
  }
  int decimals = 0;
  EXPECT_EQ(IsValidFloat("1.234", 2, &decimals), -1);  // too many decimals
  EXPECT_EQ(decimals, 3);
  EXPECT_EQ(is_in(0, "abc"), nullptr);  // the terminator is never a member
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

  // str2array returns one block, terminated by a null element.
  char** arr = nullptr;
  EXPECT_EQ(str2array(&arr, "a;,d", ",;"), 3);
  ASSERT_NE(arr, nullptr);
  EXPECT_EQ((Strings{arr[0], arr[1], arr[2]}), (Strings{"a", "", "d"}));
  EXPECT_EQ(arr[3], nullptr);
  std::free(arr);
}

TEST(StrUtil, PatternsAndKeys) {
  struct {
    const char* text;
    const char* pattern;
    int case_sensitive;
    const char* match;  // null: no match
  } cases[] = {{"abbc", "a*c", 1, "abbc"},
               {"xxab", "abz", 1, "ab"},  // the text runs out before the pattern: still a match
               {"xABc", "ab", 0, "AB"},
               {"xABc", "ab", 1, nullptr},
               {"key=value", "=*", 1, "=value"},  // a trailing wildcard runs to the end
               // The wildcard swallows the byte under it, even one equal to the next literal.
               {"axbxc", "a*x", 1, "axbx"}};
  for (const auto& c : cases) {
    char out[32];
    std::memset(out, '#', sizeof(out));
    char* r = findPatternStr(out, c.text, c.pattern, '*', c.case_sensitive);
    EXPECT_EQ(r, c.match ? out : nullptr) << c.text << " " << c.pattern;
    EXPECT_STREQ(out, c.match ? c.match : "") << c.text << " " << c.pattern;
  }

  char out[32];
  int st = -9, ln = -9;
  EXPECT_EQ(extractPatternStr(out, "name=Bob;", "=*;", '*', 1, &st, &ln), out);
  EXPECT_STREQ(out, "Bob");
  EXPECT_EQ(st, 4);
  EXPECT_EQ(ln, 5);
  // What a failed attempt captured stays ahead of the final capture.
  EXPECT_EQ(extractPatternStr(out, "=ab;y=cd;x", "=*;x", '*', 1, &st, &ln), out);
  EXPECT_STREQ(out, "abcd");
  EXPECT_EQ(st, 5);
  EXPECT_EQ(extractPatternStr(out, "ab", "abc", '*', 1, &st, &ln), nullptr);
  EXPECT_EQ(st, 0);

  std::memset(out, '#', sizeof(out));
  const char* in = "keykey";
  EXPECT_EQ(replaceKeyBuf(out, in, "KEY", ""), in);  // all gone: the input comes back
  EXPECT_EQ(out[0], '#');
  EXPECT_EQ(replaceKeyBuf(out, "keyKeyz", "KEY", "<>"), out);
  EXPECT_STREQ(out, "<><>z");
}

TEST(StrUtil, CreateBufferFromFileDropsEveryCrAcrossChunks) {
  testing::ScopedTempDir dir;
  std::string body, expected;
  for (int i = 0; i < 300; ++i) {
    body += "line\r\n\r";  // 2100 bytes: three chunks
    expected += "line\n";
  }
  for (const auto& [content, want] :
       {std::pair{body, expected}, {std::string(2048, 'k'), std::string(2048, 'k')}}) {
    testing::WriteFile(dir.Path("f.txt"), content);
    char* buf = CreateBufferFromFile(dir.Path("f.txt").c_str());
    ASSERT_NE(buf, nullptr);
    EXPECT_EQ(std::string(buf), want);
    std::free(buf);
  }
  EXPECT_EQ(CreateBufferFromFile(dir.Path("missing").c_str()), nullptr);
}

TEST(StrUtil, BytewiseWritersStayWithinTheirBudget) {
  struct {
    bool hex;
    unsigned int max;
    const char* expect;  // compared over 12 bytes, '#' = untouched
  } cases[] = {{false, 10, "01000001 \0##"}, {false, 9, "01000001 ###"},  // no room: no terminator
               {false, 3, "010#########"},   {false, 0, "############"},
               {true, 9, " 41 ff 01\0##"},   {true, 4, " 41 \0#######"},
               {true, 3, " 41\0########"},   {true, 0, "\0###########"}};
  const unsigned char bytes[] = {0x41, 0xFF, 0x01};
  for (const auto& c : cases) {
    char dst[12];
    std::memset(dst, '#', sizeof(dst));
    if (c.hex) {
      snhexadecimal(dst, c.max, bytes, 3);
    } else {
      snbinary(dst, c.max, "A", 1);
    }
    EXPECT_EQ(std::memcmp(dst, c.expect, sizeof(dst)), 0) << (c.hex ? "hex " : "bin ") << c.max;
  }

  char s[] = "a\r\nb\tc\bd\re";
  maskSpecialChars(s);
  EXPECT_STREQ(s, "a\212b\211c\210d\215e");  // each control byte with its high bit set
  unmaskSpecialChars(s);
  EXPECT_STREQ(s, "a\nb\tc\bd\re");
  char dst[8];
  std::memset(dst, '#', sizeof(dst));
  unmaskSpecialCharsBuf(dst, "x\x89y");
  EXPECT_EQ(std::memcmp(dst, "x\ty###", 6), 0);  // no terminator written
  buffertouppercopy(dst, "a\0b", 3);
  EXPECT_EQ(std::memcmp(dst, "A\0B\0##", 6), 0);
  char empty[] = "";
  EXPECT_STREQ(chop(empty), "");
}

}  // namespace
}  // namespace storegen
