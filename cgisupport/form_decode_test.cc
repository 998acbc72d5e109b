#include "cgisupport/form_decode.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

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
  // Makes |body| the process's standard input.
  void FeedStdin(const std::string& body) {
    testing::WriteFile(dir_.Path("body"), body);
    ASSERT_NE(std::freopen(dir_.Path("body").c_str(), "r", stdin), nullptr);
  }
  // The first |count| entries, which are then freed.
  Pairs Take(int count) {
    Pairs out;
    for (int i = 0; i < count; ++i)
      out.emplace_back(entries_[i].name, entries_[i].value);
    FreeFormEntries(entries_, count);
    return out;
  }
  void TearDown() override { FreeFormEntries(entries_, 8); }

  testing::ScopedTempDir dir_;
  FormEntry entries_[8] = {};  // zeroed, so freeing all of them is safe
};

TEST_F(FormDecodeTest, PostRequestIsCheckedExactly) {
  const char* kForm = "application/x-www-form-urlencoded";
  struct {
    const char *method, *type, *length;
    int result;
  } cases[] = {{nullptr, kForm, "3", -1},
               {"post", kForm, "3", -1},
               {"POST", nullptr, "3", -2},
               {"POST", "application/x-www-form-urlencoded; charset=UTF-8", "3", -2},
               {"POST", kForm, nullptr, -3},
               {"POST", kForm, "4294967299", -3},  // not read as 3 (wrapped round)
               {"POST", kForm, "3", 1}};
  for (const auto& c : cases) {
    SetEnv({{"REQUEST_METHOD", c.method}, {"CONTENT_TYPE", c.type}, {"CONTENT_LENGTH", c.length}});
    FeedStdin("a=1");
    int n = GetFormEntries(entries_, 8);
    EXPECT_EQ(n, c.result) << (c.method ? c.method : "-") << " " << (c.type ? c.type : "-");
    Take(n > 0 ? n : 0);
  }
}

TEST_F(FormDecodeTest, PostBody) {
  const std::string long_value(5000, 'v');
  struct {
    std::string body;
    int length, max, result;
    Pairs pairs;
  } cases[] = {{"a=1&b=x+y%21&c%3Dd=e", 20, 8, 3, {{"a", "1"}, {"b", "x y!"}, {"c", "d=e"}}},
               {"a=1&b=2", 3, 8, 1, {{"a", "1"}}},  // no more than CONTENT_LENGTH is read
               {"a=1&b=2&c=3", 11, 2, -4, {{"a", "1"}, {"b", "2"}}},  // more fields than the table
               {"a=1&b=2", 7, 2, 2, {{"a", "1"}, {"b", "2"}}},        // exactly full is fine
               {"k=" + long_value, 5002, 8, 1, {{"k", long_value}}}};
  for (const auto& c : cases) {
    const std::string length = std::to_string(c.length);
    SetEnv({{"REQUEST_METHOD", "POST"},
            {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
            {"CONTENT_LENGTH", length.c_str()}});
    FeedStdin(c.body);
    EXPECT_EQ(GetFormEntries(entries_, c.max), c.result) << c.body.substr(0, 20);
    EXPECT_EQ(Take(static_cast<int>(c.pairs.size())), c.pairs) << c.body.substr(0, 20);
  }
}

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

TEST_F(FormDecodeTest, LookupAndListing) {
  int n = AddFormEntry(entries_, 0, "3", "qty_12");  // value first
  n = AddFormEntry(entries_, n, "x", "Name");
  EXPECT_EQ(n, 2);
  EXPECT_EQ(GetEntryPtr(entries_, n, "Name"), &entries_[1]);
  EXPECT_EQ(GetEntryPtr(entries_, n, "name"), nullptr);
  EXPECT_EQ(GetEntryPtrPrefix(entries_, n, "qty"), &entries_[0]);
  ::testing::internal::CaptureStdout();
  PrintAllEntries(entries_, n);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Entries</TITLE>\n</HEAD>\n"
            "<BODY>\n<H1>Entries</H1>qty_12 = 3<br>\nName = x<br>\n</BODY>\n</HTML>\n");
}

TEST(FormDecode, UrlEscapes) {
  char dst[64];
  EXPECT_STREQ(escape_url("/~_-.*Az9 &\xE9%", dst), "/~_-.*Az9%20%26%E9%25");
  EXPECT_EQ(EscapeUrl(std::string_view("a\0+", 3)), "a%00%2B");
  char s[] = "x%41%2b%4";  // a '%' without two digits after it stays
  EXPECT_EQ(unescape_url(s), s + 5);
  EXPECT_STREQ(s, "xA+%4");
  EXPECT_EQ(x2c("aF"), '\xAF');
  // A string that ends right at or after the '%' is never read past.
  for (const char* text : {"a%", "", "z"}) {
    std::unique_ptr<char[]> heap(new char[std::strlen(text) + 1]);
    std::strcpy(heap.get(), text);
    *text == 'a' ? (void)unescape_url(heap.get()) : (void)x2c(heap.get());
  }
  char plus[] = "a+b c";
  plustospace(plus);
  EXPECT_STREQ(plus, "a b c");
  spacetoplus(plus);
  EXPECT_STREQ(plus, "a+b+c");
}

TEST(FormDecode, StreamWordsGrowAndStopAtTheBudget) {
  testing::ScopedTempDir dir;
  std::string big(3000, 'b');
  testing::WriteFile(dir.Path("in"), big + "&tail&x");
  std::unique_ptr<FILE, decltype(&std::fclose)> fp(std::fopen(dir.Path("in").c_str(), "r"),
                                                   &std::fclose);
  int remaining = 3003;
  char* w = fmakeword(fp.get(), '&', &remaining);
  EXPECT_EQ(w, big);  // grown past its first 1025 bytes
  EXPECT_EQ(remaining, 2);
  std::free(w);
  w = fmakeword(fp.get(), '&', &remaining);  // the budget ends inside "tail"
  EXPECT_STREQ(w, "ta");
  EXPECT_EQ(remaining, 0);
  std::free(w);
}

}  // namespace
}  // namespace storegen
