#include "cgisupport/form_decode.h"

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace storegen {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

// Sets (or, for null, unsets) CGI variables; every test sets those it reads.
void SetEnv(const std::map<std::string, const char*>& vars) {
  for (const auto& [name, value] : vars)
    value == nullptr ? unsetenv(name.c_str()) : setenv(name.c_str(), value, 1);
}

class FormDecodeTest : public ::testing::Test {
 protected:
  // The first |count| entries, which are then freed.
  Pairs Take(int count) {
    Pairs out;
    for (int i = 0; i < count; ++i)
      out.emplace_back(entries_[i].name, entries_[i].value);
    FreeFormEntries(entries_, count);
    return out;
  }
  void TearDown() override { FreeFormEntries(entries_, 8); }

  FormEntry entries_[8] = {};  // zeroed, so freeing all of them is safe
};

TEST_F(FormDecodeTest, QueryString) {
  std::string long_name(700, 'n');
  std::string long_value(900, 'v');
  std::string long_query = long_name + "=" + long_value;
  struct {
    const char* query;
    int max;
    int result;
    Pairs pairs;
  } cases[] = {{"x=1&y", 8, 2, {{"x", "1"}, {"y", "1"}}},  // y carries x's value over
               {"a=&b=2", 8, 1, {{"b", "2"}}},
               {"a=b=c&&", 8, 1, {{"a", "c"}}},
               {"n+%41=v+%41", 8, 1, {{"n+%41", "v A"}}},  // only the value is decoded
               {"a=1&b=2", 2, -2, {{"a", "1"}}},
               {"a=1&b=2", 1, -2, {}},
               {"", 8, 0, {}},
               {nullptr, 8, 0, {}},
               {long_query.c_str(), 8, 1, {{long_name, long_value}}}};
  for (const auto& c : cases) {
    SetEnv({{"QUERY_STRING", c.query}});
    const char* label = c.query ? c.query : "(unset)";
    EXPECT_EQ(GetEncodedEntries(entries_, c.max), c.result) << label;
    EXPECT_EQ(Take(static_cast<int>(c.pairs.size())), c.pairs) << label;
  }
}

// The escapes the pages' links and the dynamic requests use.
TEST(FormDecode, UrlEscapes) {
  EXPECT_EQ(EscapeUrl(std::string_view("/~_-.*Az9 &\xE9%\0+", 15)), "/~_-.*Az9%20%26%E9%25%00%2B");
  EXPECT_EQ(x2c("aF"), '\xAF');
  EXPECT_EQ(x2c("1c"), '\x1C');
}

}  // namespace
}  // namespace storegen
