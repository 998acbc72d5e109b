#include "cgisupport/cgi_request.h"

#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(CgiRequest, UrlTextDecodesOnlyWhenWellFormed) {
  const struct {
    const char* text;
    bool plus_is_space;
    std::optional<std::string> decoded;
  } cases[] = {
      {"a%20b%2Fc+d", false, "a b/c+d"},    {"a+b%2B", true, "a b+"},
      {"%e2%82%ac", false, "\xe2\x82\xac"}, {"shop%00.x", false, std::nullopt},  // not "shop"
      {"a%0Ab", false, std::nullopt},       {"a%7F", false, std::nullopt},
      {"a\tb", false, std::nullopt},        {"%4", false, std::nullopt},
      {"%G1", false, std::nullopt},         {"100%", false, std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(DecodeUrlText(c.text, c.plus_is_space), c.decoded) << c.text;
}

TEST(CgiRequest, ContentLengthIsANumberThatFits) {
  constexpr std::size_t kMax = std::numeric_limits<int>::max();
  EXPECT_EQ(ParseContentLength("24", kMax), 24u);
  EXPECT_EQ(ParseContentLength(" 2147483647", kMax), kMax);
  for (const char* bad : {"2147483648", "4294967320", "99999999999999999999999", "-1", "+3", "",
                          "3 ", "0x10", "abc"}) {
    EXPECT_EQ(ParseContentLength(bad, kMax), std::nullopt) << bad;
  }
  EXPECT_EQ(ParseContentLength(nullptr, kMax), std::nullopt);
}

TEST(CgiRequest, OnlyPlainNamesAreAccepted) {
  for (const char* ok : {"acme", "Acme-2", "my_store.v2", "a", "lantern.cfg"}) {
    EXPECT_TRUE(IsPlainName(ok)) << ok;
  }
  for (const char* bad : {"", ".", "..", ".hidden", "a..b", "../acme", "a/b", "a\\b", "/etc", "a b",
                          "a;b", "a|b", "$(id)", "`id`", "a&b", "a\nb"}) {
    EXPECT_FALSE(IsPlainName(bad)) << bad;
  }
  EXPECT_FALSE(IsPlainName(std::string(65, 'a')));
}

}  // namespace
}  // namespace storegen
