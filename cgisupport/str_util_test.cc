#include "cgisupport/str_util.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

// Every token strtok_noskip yields for |text|, then "<null>".
std::vector<std::string> Tokens(std::string text, const char* delims) {
  std::vector<std::string> out;
  for (char* t = strtok_noskip(text.data(), delims); t != nullptr;
       t = strtok_noskip(nullptr, delims)) {
    out.push_back(t);
  }
  out.push_back("<null>");
  return out;
}

TEST(StrUtil, SetMembershipNeverMatchesTerminator) {
  EXPECT_EQ(is_in(0, "abc"), nullptr);
  EXPECT_EQ(is_in_X(0xE9, "a\xE9"), 1);
  EXPECT_EQ(rind("a/b/c", '/'), 3);
  EXPECT_EQ(rind("abc", 0), -1);
}

TEST(StrUtil, Validators) {
  struct {
    const char* s;
    int number, integer;
  } cases[] = {
      {"12", 1, 1},   {"x12", 1, 1}, {"1x2", 0, 0},   {"  -1.5", 1, 0},
      {"1..2", 0, 0}, {"1-5", 0, 1}, {"12-", 0, 0},   {"7", 1, 1},
      {"", 0, 0},     {"   ", 0, 0}, {" \t\n", 0, 0}, {nullptr, 0, 0},
  };
  for (const auto& c : cases) {
    const char* s = c.s == nullptr ? "(null)" : c.s;
    EXPECT_EQ(IsValidNumber(c.s), c.number) << s;
    EXPECT_EQ(IsValidInteger(c.s), c.integer) << s;
  }
  EXPECT_EQ(str_isint("-"), 1);
  EXPECT_EQ(str_isreal("."), 1);
  EXPECT_EQ(str_isreal("1.2.3"), 0);
  EXPECT_EQ(IsPositiveInteger(""), 1);
  EXPECT_EQ(IsValidEmail(" \t"), 0);
  EXPECT_EQ(str_isalpha(""), 0);
}

TEST(StrUtil, IsValidFloatCountsDecimals) {
  struct {
    const char* s;
    int max, result, decimals;
  } cases[] = {
      {"1.234", 2, -1, 3}, {"1.23", 2, 1, 2}, {"-1.5", -1, 1, 1}, {"1.2.3", -1, 0, 1},
      {"1.2x", 5, 0, 1},   {"12", 0, 1, 0},   {"   ", 2, 0, 0},   {"", 2, 0, 0},
      {"1.5", 0, -1, 1},   {" 1-", 2, 1, 0},
  };
  for (const auto& c : cases) {
    int n = 99;
    EXPECT_EQ(IsValidFloat(c.s, c.max, &n), c.result) << c.s;
    EXPECT_EQ(n, c.decimals) << c.s;
  }
}

TEST(StrUtil, SlashInsensitiveSearch) {
  const char* path = "a\\b/c";
  EXPECT_EQ(strrchr_dirslash(path), path + 3);
  EXPECT_EQ(strchr_dirslash(path), path + 1);
  EXPECT_EQ(strrchr_dirslash("abc"), nullptr);
  EXPECT_EQ(strncmp_dirslash("dir/x", "dir\\x", 5), 0);
  EXPECT_LT(strncmp_dirslash("dir/a", "dir\\b", 5), 0);
  EXPECT_EQ(strncasecmp_dirslash("DIR/X", "dir\\x", 9), 0);
  const char* store = "C:\\Store\\A";
  EXPECT_EQ(strcasestr_dirslash(store, "store/a"), store + 3);
  EXPECT_EQ(strstr_dirslash(store, "store/a"), nullptr);
  char buf[] = "x/y";
  char* slash = strrchr_dirslash(buf);  // the writable form splits a path in place
  *slash = '\0';
  EXPECT_STREQ(buf, "x");
}

TEST(StrUtil, SearchFromEitherEnd) {
  const char* h = "Hello World, world";
  EXPECT_EQ(strcasestr(h, "WORLD"), h + 6);
  EXPECT_EQ(strcasestr("ab", "abc"), nullptr);
  EXPECT_EQ(strrstr(h, "world"), h + 13);
  EXPECT_EQ(strrcasestr(h, "WORLD"), h + 13);
  EXPECT_EQ(strrstr(h, ""), h + std::strlen(h));
  EXPECT_EQ(strrcmp("a", "abc"), -2);
  EXPECT_NE(strrcmp("page.HTML", ".html"), 0);
  EXPECT_EQ(strrcasecmp("page.HTML", ".html"), 0);
}

TEST(StrUtil, CopiesCaseAndPadding) {
  struct Freer {
    void operator()(char* p) const { std::free(p); }
  };
  using Owned = std::unique_ptr<char, Freer>;
  EXPECT_STREQ(Owned(strndup("abc", 2)).get(), "ab");
  EXPECT_STREQ(Owned(strndup("abc", 10)).get(), "abc");
  EXPECT_STREQ(Owned(tb_strdup(nullptr)).get(), "");

  char upper[8];
  std::memset(upper, '#', sizeof(upper));
  buffertouppercopy(upper, "a\0b", 3);
  EXPECT_EQ(std::memcmp(upper, "A\0B\0####", 8), 0);

  char pad[16] = "ab";
  EXPECT_STREQ(strpadleft(pad, pad, 2), "  ab");
  EXPECT_STREQ(strcenter(pad, "ab", 5), " ab  ");
  EXPECT_STREQ(strcenter(pad, "abc", 2), "abc");
}

TEST(StrUtil, WhiteSpaceAndLineEnds) {
  struct {
    char* (*fn)(char*);
    const char* in;
    const char* out;
  } cases[] = {
      {squish, "  a b \n", "a b"},   {squish, " \t ", ""},
      {squeeze, " a b\tc\n", "abc"}, {TrimRight, "a \t\r\n", "a"},
      {TrimRight, "a\v", "a\v"},     {chop, "ab", "a"},
      {chop, "a\r\n", "a"},          {chop, "", ""},
      {chomp, "ab", "ab"},           {chomp, "a\n", "a"},
      {chomp, "a\r\n", "a"},         {cleanupNewline, "a\r\nb\rc", "a\nb\rc"},
  };
  for (const auto& c : cases) {
    std::string s = c.in;
    EXPECT_STREQ(c.fn(s.data()), c.out) << '"' << c.in << '"';
  }
}

TEST(StrUtil, StrtokNoSkipKeepsEmptyFieldsButNoTrailingOne) {
  using V = std::vector<std::string>;
  EXPECT_EQ(Tokens(",a", ","), (V{"", "a", "<null>"}));
  EXPECT_EQ(Tokens("a,,b", ","), (V{"a", "", "b", "<null>"}));
  EXPECT_EQ(Tokens("a,", ","), (V{"a", "<null>"}));
  EXPECT_EQ(Tokens("a;b,c", ",;"), (V{"a", "b", "c", "<null>"}));
  EXPECT_EQ(Tokens("", ","), (V{"<null>"}));
  EXPECT_EQ(strtok_noskip(nullptr, ","), nullptr);  // exhausted: nothing saved

  // A second string replaces the saved position of the first.
  char first[] = "a,b";
  char second[] = "x,y";
  EXPECT_STREQ(strtok_noskip(first, ","), "a");
  EXPECT_STREQ(strtok_noskip(second, ","), "x");
  EXPECT_STREQ(strtok_noskip(nullptr, ","), "y");
}

TEST(StrUtil, SplitTakesCapacityInBytes) {
  char* array[8];
  char s1[] = "a,b,";
  EXPECT_EQ(split(s1, array, sizeof(array), ','), 2);
  EXPECT_STREQ(array[1], "b");
  EXPECT_STREQ(array[2], "");

  char* three[3];
  char s2[] = "a,b,c,d";
  EXPECT_EQ(split(s2, three, sizeof(three), ','), 3);
  EXPECT_STREQ(three[2], "c,d");  // the last element keeps the rest unsplit

  char s3[] = "";
  EXPECT_EQ(split(s3, array, sizeof(array), ','), 0);

  char* one[1];
  char s4[] = ",x";
  EXPECT_EQ(split(s4, one, sizeof(one), ','), 1);
  EXPECT_STREQ(one[0], ",x");
}

TEST(StrUtil, Str2ArrayIsOneBlockWithEmptyFields) {
  char** arr = nullptr;
  EXPECT_EQ(str2array(&arr, ",,", ","), 3);
  ASSERT_NE(arr, nullptr);
  for (int i = 0; i < 3; ++i)
    EXPECT_STREQ(arr[i], "") << i;
  EXPECT_EQ(arr[3], nullptr);
  std::free(arr);

  EXPECT_EQ(str2array(&arr, "a;bc,d", ",;"), 3);
  EXPECT_STREQ(arr[0], "a");
  EXPECT_STREQ(arr[1], "bc");
  EXPECT_STREQ(arr[2], "d");
  EXPECT_EQ(arr[3], nullptr);
  std::free(arr);

  EXPECT_EQ(str2array(&arr, "", ","), 0);
  ASSERT_NE(arr, nullptr);
  EXPECT_EQ(arr[0], nullptr);
  std::free(arr);
}

TEST(StrUtil, FindPatternStr) {
  struct {
    const char* text;
    const char* pattern;
    int case_sensitive;
    const char* match;  // null: no match
  } cases[] = {
      {"abbc", "a*c", 1, "abbc"},
      // The text runs out before the pattern does: still a match.
      {"xxab", "abz", 1, "ab"},
      {"xyz", "abc", 1, nullptr},
      {"xABc", "ab", 0, "AB"},
      {"xABc", "ab", 1, nullptr},
      // A trailing wildcard runs to the end of the text.
      {"key=value", "=*", 1, "=value"},
      {"a", "ab", 1, nullptr},
      // The wildcard swallows the byte under it, even one equal to the next literal.
      {"axbxc", "a*x", 1, "axbx"},
  };
  for (const auto& c : cases) {
    char out[32];
    std::memset(out, '#', sizeof(out));
    char* r = findPatternStr(out, c.text, c.pattern, '*', c.case_sensitive);
    if (c.match == nullptr) {
      EXPECT_EQ(r, nullptr) << c.text << " " << c.pattern;
      EXPECT_STREQ(out, "");
    } else {
      EXPECT_EQ(r, out) << c.text << " " << c.pattern;
      EXPECT_STREQ(out, c.match);
    }
  }
}

TEST(StrUtil, ExtractPatternStr) {
  char out[32];
  int st = -9, ln = -9;
  EXPECT_EQ(extractPatternStr(out, "name=Bob;", "=*;", '*', 1, &st, &ln), out);
  EXPECT_STREQ(out, "Bob");
  EXPECT_EQ(st, 4);
  EXPECT_EQ(ln, 5);

  EXPECT_EQ(extractPatternStr(out, "xxab", "abz", '*', 1, &st, &ln), nullptr);
  EXPECT_STREQ(out, "");
  EXPECT_EQ(ln, 0);

  // What a failed attempt captured stays ahead of the final capture.
  EXPECT_EQ(extractPatternStr(out, "=ab;y=cd;x", "=*;x", '*', 1, &st, &ln), out);
  EXPECT_STREQ(out, "abcd");
  EXPECT_EQ(st, 5);
  EXPECT_EQ(ln, 5);

  EXPECT_EQ(extractPatternStr(out, "ab", "abc", '*', 1, &st, &ln), nullptr);
  EXPECT_EQ(st, 0);
  EXPECT_EQ(extractPatternStr(out, "NAME=x;", "name=*;", '*', 0, nullptr, nullptr), out);
  EXPECT_STREQ(out, "x");
}

TEST(StrUtil, ReplaceKeyBuf) {
  char out[32];
  std::memset(out, '#', sizeof(out));
  const char* in = "keykey";
  EXPECT_EQ(replaceKeyBuf(out, in, "KEY", ""), in);
  EXPECT_EQ(out[0], '#');  // untouched
  const char* lead = "keyA";
  EXPECT_EQ(replaceKeyBuf(out, lead, "key", ""), lead);
  EXPECT_EQ(replaceKeyBuf(out, "nothing", "key", "x"), std::string_view("nothing"));

  EXPECT_EQ(replaceKeyBuf(out, "a-KEY-b", "key", "x"), out);
  EXPECT_STREQ(out, "a-x-b");
  EXPECT_EQ(replaceKeyBuf(out, "xkey", "key", ""), out);
  EXPECT_STREQ(out, "x");
  EXPECT_EQ(replaceKeyBuf(out, "keyKeyz", "KEY", "<>"), out);
  EXPECT_STREQ(out, "<><>z");
}

TEST(StrUtil, CreateBufferFromFileDropsEveryCr) {
  testing::ScopedTempDir dir;
  std::string body;
  for (int i = 0; i < 300; ++i)
    body += "line\r\n\r";  // 2100 bytes: three chunks
  testing::WriteFile(dir.Path("f.txt"), body);
  char* buf = CreateBufferFromFile(dir.Path("f.txt").c_str());
  ASSERT_NE(buf, nullptr);
  std::string expected;
  for (int i = 0; i < 300; ++i)
    expected += "line\n";
  EXPECT_EQ(std::string(buf), expected);
  std::free(buf);

  testing::WriteFile(dir.Path("k.txt"), std::string(2048, 'k'));  // exact chunk multiple
  buf = CreateBufferFromFile(dir.Path("k.txt").c_str());
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(std::strlen(buf), 2048u);
  std::free(buf);

  EXPECT_EQ(CreateBufferFromFile(dir.Path("missing").c_str()), nullptr);
  EXPECT_EQ(CreateBufferFromFile(""), nullptr);
}

TEST(StrUtil, SnbinaryStopsAtBudgetWithoutTerminator) {
  struct {
    unsigned int max;
    const char* expect;  // compared over 12 bytes, '#' = untouched
  } cases[] = {
      {100, "01000001 \0##"}, {10, "01000001 \0##"}, {9, "01000001 ###"},
      {3, "010#########"},    {0, "############"},
  };
  for (const auto& c : cases) {
    char dst[12];
    std::memset(dst, '#', sizeof(dst));
    snbinary(dst, c.max, "A", 1);
    EXPECT_EQ(std::memcmp(dst, c.expect, sizeof(dst)), 0) << c.max;
  }
  char dst[4] = "###";
  snbinary(dst, 5, "", 0);
  EXPECT_EQ(dst[0], '\0');
  EXPECT_EQ(dst[1], '#');

  const unsigned char two[] = {0x12, 0x34};
  char text[32];
  EXPECT_STREQ(sbinary(text, two, 2), "00010010 00110100 ");
  EXPECT_EQ(sbin_to_int(text), 0x1234u);
  EXPECT_EQ(sbin_to_int(""), 0u);

  char bits[8];
  byte2binary(bits, 0xA5);
  EXPECT_EQ(std::memcmp(bits, "\1\0\1\0\0\1\0\1", 8), 0);
  EXPECT_EQ(binary2byte(bits), 0xA5);
}

TEST(StrUtil, SnhexadecimalBudget) {
  const unsigned char bytes[] = {0x0A, 0xFF, 0x01};
  char dst[12];
  EXPECT_STREQ(shexadecimal(dst, bytes, 2), " 0a ff");
  struct {
    unsigned int max;
    const char* expect;
  } cases[] = {
      {9, " 0a ff 01\0##"},
      {4, " 0a \0#######"},
      {3, " 0a\0########"},
      {0, "\0###########"},
  };
  for (const auto& c : cases) {
    std::memset(dst, '#', sizeof(dst));
    snhexadecimal(dst, c.max, bytes, 3);
    EXPECT_EQ(std::memcmp(dst, c.expect, sizeof(dst)), 0) << c.max;
  }
}

TEST(StrUtil, MaskingRoundTrip) {
  char s[] = "a\r\nb\tc\bd\re";
  maskSpecialChars(s);
  EXPECT_STREQ(s,
               "a\x8A"
               "b\x89"
               "c\x88"
               "d\x8D"
               "e");
  EXPECT_EQ(hasSpecialChars(s), 1);
  unmaskSpecialChars(s);
  EXPECT_STREQ(s, "a\nb\tc\bd\re");
  EXPECT_EQ(hasSpecialChars(s), 0);
  EXPECT_EQ(hasSpecialChars(nullptr), 0);

  char dst[6];
  std::memset(dst, '#', sizeof(dst));
  unmaskSpecialCharsBuf(dst, "x\x89y");
  EXPECT_EQ(std::memcmp(dst, "x\ty###", 6), 0);  // no terminator written
  unmaskSpecialCharsBuf(dst, "");
  EXPECT_EQ(dst[0], 'x');
}

}  // namespace
}  // namespace storegen
