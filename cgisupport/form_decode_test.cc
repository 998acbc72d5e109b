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
using EnvVars = std::map<std::string, const char*>;

// Sets (or, for null, unsets) CGI variables and restores them afterwards.
class ScopedEnv {
 public:
  explicit ScopedEnv(const EnvVars& vars) {
    for (const auto& [name, value] : vars) {
      const char* old = std::getenv(name.c_str());
      saved_.emplace_back(name, old == nullptr ? nullptr : std::make_unique<std::string>(old));
      if (value == nullptr) {
        unsetenv(name.c_str());
      } else {
        setenv(name.c_str(), value, 1);
      }
    }
  }
  ~ScopedEnv() {
    for (const auto& [name, old] : saved_) {
      if (old == nullptr) {
        unsetenv(name.c_str());
      } else {
        setenv(name.c_str(), old->c_str(), 1);
      }
    }
  }

 private:
  std::vector<std::pair<std::string, std::unique_ptr<std::string>>> saved_;
};

Pairs ToPairs(const FormEntry* entries, int count) {
  Pairs out;
  for (int i = 0; i < count; ++i)
    out.emplace_back(entries[i].name, entries[i].value);
  return out;
}

class FormDecodeTest : public ::testing::Test {
 protected:
  // Makes |body| the process's standard input.
  void FeedStdin(const std::string& body) {
    std::string path = dir_.Path("body");
    testing::WriteFile(path, body);
    ASSERT_NE(std::freopen(path.c_str(), "r", stdin), nullptr);
  }
  // Runs GetFormEntries on |body| as a well-formed POST with |length|.
  int Post(const std::string& body, const char* length, int max) {
    ScopedEnv env({{"REQUEST_METHOD", "POST"},
                   {"CONTENT_TYPE", "application/x-www-form-urlencoded"},
                   {"CONTENT_LENGTH", length}});
    FeedStdin(body);
    return GetFormEntries(entries_, max);
  }
  void TearDown() override { FreeFormEntries(entries_, count_); }

  testing::ScopedTempDir dir_;
  FormEntry entries_[8] = {};
  int count_ = 8;  // entries are zeroed, so freeing all of them is safe
};

TEST_F(FormDecodeTest, PostRequestIsCheckedExactly) {
  const char* kForm = "application/x-www-form-urlencoded";
  struct {
    const char *method, *type, *length;
    int result;
  } cases[] = {
      {nullptr, kForm, "3", -1},
      {"post", kForm, "3", -1},
      {"GET", kForm, "3", -1},
      {"POST", nullptr, "3", -2},
      {"POST", "application/x-www-form-urlencoded; charset=UTF-8", "3", -2},
      {"POST", kForm, nullptr, -3},
      {"POST", kForm, "3", 1},
  };
  for (const auto& c : cases) {
    ScopedEnv env(
        {{"REQUEST_METHOD", c.method}, {"CONTENT_TYPE", c.type}, {"CONTENT_LENGTH", c.length}});
    FeedStdin("a=1");
    int n = GetFormEntries(entries_, 8);
    EXPECT_EQ(n, c.result) << (c.method ? c.method : "-") << " " << (c.type ? c.type : "-");
    FreeFormEntries(entries_, n > 0 ? n : 0);
  }
}

TEST_F(FormDecodeTest, PostBodyDecodesBeforeSplitting) {
  EXPECT_EQ(Post("a=1&b=x+y%21&c%3Dd=e", "20", 8), 3);
  EXPECT_EQ(ToPairs(entries_, 3), (Pairs{{"a", "1"}, {"b", "x y!"}, {"c", "d=e"}}));
}

TEST_F(FormDecodeTest, PostReadsNoMoreThanContentLength) {
  EXPECT_EQ(Post("a=1&b=2", "3", 8), 1);
  EXPECT_EQ(ToPairs(entries_, 1), (Pairs{{"a", "1"}}));
}

TEST_F(FormDecodeTest, PostRefusesMoreFieldsThanTheTableHolds) {
  EXPECT_EQ(Post("a=1&b=2&c=3", "11", 2), -4);
  EXPECT_EQ(ToPairs(entries_, 2), (Pairs{{"a", "1"}, {"b", "2"}}));
  FreeFormEntries(entries_, 2);
  EXPECT_EQ(Post("a=1&b=2", "7", 2), 2);  // exactly full is fine
}

TEST_F(FormDecodeTest, PostKeepsLongFieldsWhole) {
  std::string value(5000, 'v');
  std::string body = "k=" + value;
  EXPECT_EQ(Post(body, std::to_string(body.size()).c_str(), 8), 1);
  EXPECT_EQ(entries_[0].value, value);
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
  } cases[] = {
      {"x=1&y", 8, 2, {{"x", "1"}, {"y", "1"}}},  // y carries x's value over
      {"a=&b=2", 8, 1, {{"b", "2"}}},
      {"a=b=c&&", 8, 1, {{"a", "c"}}},
      {"n+%41=v+%41", 8, 1, {{"n+%41", "v A"}}},  // only the value is decoded
      {"a=1&b=2", 2, -2, {{"a", "1"}}},
      {"a=1&b=2", 1, -2, {}},
      {"", 8, 0, {}},
      {long_query.c_str(), 8, 1, {{long_name, long_value}}},
  };
  for (const auto& c : cases) {
    ScopedEnv env(EnvVars{{"QUERY_STRING", c.query}});
    int n = GetEncodedEntries(entries_, c.max);
    EXPECT_EQ(n, c.result) << c.query;
    int stored = static_cast<int>(c.pairs.size());
    EXPECT_EQ(ToPairs(entries_, stored), c.pairs) << c.query;
    FreeFormEntries(entries_, stored);
  }
  ScopedEnv unset(EnvVars{{"QUERY_STRING", nullptr}});
  EXPECT_EQ(GetEncodedEntries(entries_, 8), 0);
}

TEST_F(FormDecodeTest, LookupAndListing) {
  int n = AddFormEntry(entries_, 0, "3", "qty_12");  // value first
  n = AddFormEntry(entries_, n, "x", "Name");
  EXPECT_EQ(n, 2);
  EXPECT_EQ(GetEntryPtr(entries_, n, "Name"), &entries_[1]);
  EXPECT_EQ(GetEntryPtr(entries_, n, "name"), nullptr);
  EXPECT_EQ(GetEntryPtr(entries_, 0, "Name"), nullptr);
  EXPECT_EQ(GetEntryPtrPrefix(entries_, n, "qty"), &entries_[0]);
  EXPECT_STREQ(entries_[0].value, "3");

  ::testing::internal::CaptureStdout();
  PrintAllEntries(entries_, n);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Content-type: text/html\n\n<HTML>\n<HEAD>\n<TITLE>Entries</TITLE>\n</HEAD>\n"
            "<BODY>\n<H1>Entries</H1>qty_12 = 3<br>\nName = x<br>\n</BODY>\n</HTML>\n");
}

TEST(FormDecode, UrlEscapes) {
  char dst[64];
  EXPECT_STREQ(escape_url("a b&c", dst), "a%20b%26c");
  EXPECT_STREQ(escape_url("/~_-.*Az9\xE9%", dst), "/~_-.*Az9%E9%25");
  EXPECT_EQ(EscapeUrl(std::string_view("a\0+", 3)), "a%00%2B");

  char s[] = "x%41%2b%4";  // a '%' without two digits after it stays
  EXPECT_EQ(unescape_url(s), s + 5);
  EXPECT_STREQ(s, "xA+%4");
  EXPECT_EQ(x2c("aF"), '\xAF');

  // A string that ends right at or after the '%' is never read past.
  auto heap = [](const char* text) {
    std::unique_ptr<char[]> p(new char[std::strlen(text) + 1]);
    std::strcpy(p.get(), text);
    return p;
  };
  EXPECT_STREQ(unescape_url(heap("a%").get()) - 2, "a%");
  x2c(heap("").get());
  x2c(heap("z").get());

  char plus[] = "a+b c";
  plustospace(plus);
  EXPECT_STREQ(plus, "a b c");
  spacetoplus(plus);
  EXPECT_STREQ(plus, "a+b+c");
}

TEST(FormDecode, WordsFromLinesAndStreams) {
  char line[] = "name=v=1";
  char word[sizeof(line)];
  getword(word, line, '=');
  EXPECT_STREQ(word, "name");
  EXPECT_STREQ(line, "v=1");
  std::unique_ptr<char, decltype(&std::free)> rest(makeword(line, '&'), &std::free);
  EXPECT_STREQ(rest.get(), "v=1");
  EXPECT_STREQ(line, "");

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
