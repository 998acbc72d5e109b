#include "cgisupport/path_util.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;

// Calls |fill| on a buffer of guard bytes with sizes |min_size|, n - 1, n and n + 1
// (n = what |full| needs) and checks that it wrote |full| cut to the size,
// terminated, and nothing past the size.
template <typename Fill>
void ExpectBufferEdges(Fill fill, const std::string& full, std::size_t min_size = 1) {
  for (std::size_t size : {min_size, full.size(), full.size() + 1, full.size() + 2}) {
    char buf[1024];
    std::memset(buf, '#', sizeof buf);
    fill(buf, static_cast<int>(size));
    EXPECT_EQ(std::string(buf), full.substr(0, size - 1)) << "size " << size;
    for (std::size_t i = size; i < sizeof buf; ++i)
      ASSERT_EQ(buf[i], '#') << "size " << size;
  }
}

TEST(ResolvePath, FoldsLexicallyAndCuts) {
  ScopedTempDir dir(/*enter=*/true);
  char cwd[1024];
  ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
  const std::string here = cwd;
  struct Case {
    std::string in;
    std::string want;
  } cases[] = {{"", ""},
               {"/a/b/../c/./d", "/a/c/d"},
               {"/a//b///", "/a/b"},
               {"\\a\\b\\..\\c", "/a/c"},
               {"/../..", "/"},
               {"/a/../b", "/b"},
               {"shop.cfg", here + "/shop.cfg"},
               {"../x/./y\\z", here.substr(0, here.rfind('/')) + "/x/y/z"},
               {"no/such/dir/..", here + "/no/such"}};
  for (const auto& c : cases) {
    char buf[1024];
    std::strcpy(buf, c.in.c_str());
    EXPECT_EQ(ResolvePath(buf, sizeof buf), buf);
    EXPECT_EQ(std::string(buf), c.want) << c.in;
  }
  // A relative path grows: it is cut to the limit and nothing is written past it.
  ExpectBufferEdges([](char* b, int n) { std::strcpy(b, "s"), ResolvePath(b, n); }, here + "/s",
                    /*min_size=*/2);
}

TEST(GetExeName, TakesTheLastComponent) {
  struct Case {
    const char* path;
    const char* want;
  } cases[] = {{"C:\\bin\\tool.exe", "tool.exe"},
               {"a\\b/c\\d", "c\\d"},  // a '/' wins over any '\\'
               {"storegen", "storegen"}};
  for (const auto& c : cases) {
    char buf[32];
    EXPECT_EQ(GetExeName(c.path, buf, sizeof buf), buf);
    EXPECT_STREQ(buf, c.want) << c.path;
  }
  ExpectBufferEdges([](char* b, int n) { GetExeName("/x/tool.exe", b, n); }, "tool.exe");
}

TEST(GetTillboxName, DefaultsAndExtensionDot) {
  ScopedTempDir dir(/*enter=*/true);
  struct Case {
    const char* content;
    const char* want;
  } cases[] = {{"", "Tillbox.exe"},
               {"TillboxName\tcart\nTillboxExtension\t.pl\n", "cart.pl"},
               {"TillboxExtension\tcgi\n", "Tillbox.cgi"}};
  char buf[64];
  for (const auto& c : cases) {
    WriteFile(dir.Path("s.cfg"), c.content);
    EXPECT_EQ(GetTillboxName("s.cfg", buf, sizeof buf), buf);
    EXPECT_STREQ(buf, c.want) << c.content;
  }
  EXPECT_STREQ(GetTillboxName("none.cfg", buf, sizeof buf), "Tillbox.exe");
  ExpectBufferEdges([&](char* b, int n) { GetTillboxName("s.cfg", b, n); }, "Tillbox.cgi");
}

TEST(GetHTMLRoot, StripsTheSharedTrailingComponents) {
  struct Case {
    const char* info;
    const char* translated;
    int rc;
    const char* root;
    const char* alias;
  } cases[] = {{"/store/docs/p.html", "/srv/shop/docs/p.html", 1, "/srv/shop", "/store"},
               {"/a/b/", "\\srv\\x\\b\\", 1, "\\srv\\x", "/a"},
               {"/cgi/run", "/srv/other", 1, "/srv/other", "/cgi/run"},  // nothing shared
               {"", "/srv/p.html", 0, "keep", "keep"},
               {"/p.html", nullptr, 0, "keep", "keep"}};
  for (const auto& c : cases) {
    setenv("PATH_INFO", c.info, 1);
    if (c.translated != nullptr) {
      setenv("PATH_TRANSLATED", c.translated, 1);
    } else {
      unsetenv("PATH_TRANSLATED");
    }
    char root[64] = "keep";
    char alias[64] = "keep";
    EXPECT_EQ(GetHTMLRoot(root, sizeof root), c.rc) << c.info;
    EXPECT_EQ(GetHTMLRootAlias(alias, sizeof alias), c.rc) << c.info;
    EXPECT_STREQ(root, c.root) << c.info;
    EXPECT_STREQ(alias, c.alias) << c.info;
  }
  unsetenv("PATH_INFO");
}

std::string Safe(const std::string& src) {
  char buf[1024];
  return GetSafeFileName(src.c_str(), buf, sizeof buf, nullptr, nullptr);
}

TEST(GetSafeFileName, SafeCharactersStableNamesDistinctEscapes) {
  std::set<std::string> escaped;
  for (int c = 1; c < 256; ++c) {
    if (c == '\r' || c == '\n') continue;
    const std::string name = Safe(std::string(1, static_cast<char>(c)));
    for (char ch : name) {
      EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(ch)) || ch == '-' || ch == '_')
          << "byte " << c << " gives " << name;
    }
    if (name.size() == 2) escaped.insert(name);
  }
  EXPECT_EQ(escaped.size(), 128u + 59u);  // all distinct: every byte but the plain ones

  // Page names depend on these.
  struct Case {
    std::string src;
    std::string want;
  } cases[] = {
      {"A/B 1", "A-B_1"}, {"a\r\nb", "ab"}, {"50%.", "50AaAi"}, {"\x80\xbf\xc0\xff", "B0B_C0C_"}};
  for (const auto& c : cases)
    EXPECT_EQ(Safe(c.src), c.want) << c.src;
}

TEST(GetSafeFileName, BufferEdges) {
  struct Case {
    int size;
    const char* src;
    const char* prefix;
    const char* suffix;
    const char* want;
  } cases[] = {{1, "abc", "p-", ".html", ""},
               {3, "abc", "p-abc", nullptr, "p-"},     // prefix cut, nothing of src
               {6, "abc%", "p-", ".html", "p-abc"},    // full: the rest and the suffix go
               {7, "abc%", "p-", ".html", "p-abcA"},   // an escape on the last free byte
               {8, "abc%", "p-", ".html", "p-abcAa"},  // exactly full: no suffix
               {12, "abc", "p-", ".html", "p-abc.html"}};
  for (const auto& c : cases) {
    char buf[16];
    std::memset(buf, '#', sizeof buf);
    EXPECT_STREQ(GetSafeFileName(c.src, buf, c.size, c.prefix, c.suffix), c.want) << c.size;
    for (int i = c.size; i < static_cast<int>(sizeof buf); ++i)
      ASSERT_EQ(buf[i], '#') << "wrote past " << c.size;
  }
}

}  // namespace
}  // namespace storegen
