#include "pagegen/text_blocks.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/page_fixture.h"

namespace storegen {
namespace {

using namespace testing;

TEST(TextBlockCacheName, PageNameWithoutLeadingSeparatorAndExtension) {
  struct {
    const char* dir;
    const char* page;
    int n;
    const char* name;
  } cases[] = {
      {"./", "list.html", 1, "./list1.tmp"},
      {"tpl", "/list.html", 2, "tpl/list2.tmp"},
      {"/t/", "a.b.html", 10, "/t/a.b10.tmp"},
      {"/t/", "noext", 3, "/t/noext3.tmp"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(TextBlockCacheName(c.dir, c.page, c.n), c.name) << c.page;
}

class TextBlockTest : public PageTest {
 protected:
  void SetUp() override {
    PageTest::SetUp();
    WriteFile(cfg_, "ShopName\tFirst Name\n");
  }
  std::string Parse(const std::string& text, const char* page_file = "index.html",
                    int* rc = nullptr) {
    return PageTest::Parse(text, rc, page_file);
  }
};

constexpr char kTemplate[] =
    "<h1><!-- PAGEGEN_TEXT_BEGIN --><!--PAGEGEN_STORENAME--><!-- PAGEGEN_TEXT_END --></h1>"
    "<p><!--PAGEGEN_STORENAME--></p>"
    "<!-- PAGEGEN_TEXT_BEGIN 2 -->two<!-- PAGEGEN_TEXT_END 2 -->";

TEST_F(TextBlockTest, FirstGenerationWritesPageAndCacheLaterOnesReuseIt) {
  EXPECT_EQ(Parse(kTemplate),
            "<h1><!-- PAGEGEN_TEXT_BEGIN -->First Name<!-- PAGEGEN_TEXT_END --></h1>"
            "<p>First Name</p><!-- PAGEGEN_TEXT_BEGIN 2 -->two<!-- PAGEGEN_TEXT_END 2 -->");
  EXPECT_EQ(ReadFile("index1.tmp"), "First Name");
  EXPECT_EQ(ReadFile("index2.tmp"), "two");

  // The block's template text is not generated again: the store's new name
  // shows only outside the cached block.
  WriteFile(cfg_, "ShopName\tSecond Name\n");
  EXPECT_EQ(Parse(kTemplate),
            "<h1><!-- PAGEGEN_TEXT_BEGIN -->First Name<!-- PAGEGEN_TEXT_END --></h1>"
            "<p>Second Name</p><!-- PAGEGEN_TEXT_BEGIN 2 -->two<!-- PAGEGEN_TEXT_END 2 -->");
}

TEST_F(TextBlockTest, CacheIsSeededFromTheTemplateSet) {
  set_.file_name = dir_.Path("basic.cfg");
  WriteFile(dir_.Path("basic/about1.tmp"), "from the set");
  WriteFile(cfg_, std::string("PageGenTemplateDir\t") + dir_.Path("store") + "\n");
  EXPECT_EQ(Parse("<!--PAGEGEN_TEXT_BEGIN-->x<!--PAGEGEN_TEXT_END-->", "about.html"),
            "<!--PAGEGEN_TEXT_BEGIN-->from the set<!--PAGEGEN_TEXT_END-->");
  EXPECT_EQ(ReadFile(dir_.Path("store/about1.tmp")), "from the set");
}

// A page without a file name renders its blocks inline; an unfinished block
// leaves no cache behind.
TEST_F(TextBlockTest, NoCacheWithoutFileNameOrForAnUnfinishedBlock) {
  EXPECT_EQ(Parse("<!--PAGEGEN_TEXT_BEGIN--><!--PAGEGEN_STORENAME--><!--PAGEGEN_TEXT_END-->", ""),
            "<!--PAGEGEN_TEXT_BEGIN-->First Name<!--PAGEGEN_TEXT_END-->");
  EXPECT_EQ(Parse("a<!--PAGEGEN_TEXT_BEGIN-->b"), "a<!--PAGEGEN_TEXT_BEGIN-->b");
  EXPECT_EQ(ListDir(dir_.path()), std::vector<std::string>{"store.cfg"});
}

TEST_F(TextBlockTest, UncreatableCacheEndsThePage) {
  WriteFile(dir_.Path("plain-file"), "");
  WriteFile(cfg_, "PageGenTemplateDir\tplain-file/sub\n");
  int rc = 0;
  EXPECT_EQ(Parse("a<!--PAGEGEN_TEXT_BEGIN-->b<!--PAGEGEN_TEXT_END-->c", "index.html", &rc),
            "a<!--PAGEGEN_TEXT_BEGIN-->");
  EXPECT_EQ(rc, -8);
  EXPECT_FALSE(FileExists(dir_.Path("plain-file/sub")));
}

}  // namespace
}  // namespace storegen
