#include "pagegen/page_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::FileExists;
using testing::ListDir;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

mode_t ModeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

// Writes |text| as pages are written: added directly, not through the
// stream.
bool WritePage(const std::string& path, const std::string& text) {
  PageFile page;
  if (!page.Open(path)) return false;
  page.Add(text.data(), text.size());
  return page.Commit();
}

// New pages (in a directory still to be made), replaced pages and a page
// long enough to go through its temporary file, written by Add or through the
// stream: their text, their permissions, and no temporary file left behind.
TEST(PageFileTest, NewReplacedAndLongPagesGetTheirTextAndPermissions) {
  ScopedTempDir dir;
  const mode_t mask = umask(022);
  const std::string fresh = dir.Path("shop/fresh.html");
  ASSERT_TRUE(WritePage(fresh, "<p>new</p>"));
  EXPECT_EQ(ReadFile(fresh), "<p>new</p>");
  EXPECT_EQ(ModeOf(fresh), 0644u);
  PageFile streamed;
  ASSERT_TRUE(streamed.Open(dir.Path("shop/streamed.html")));
  std::fputs("page", streamed.fp());
  ASSERT_TRUE(streamed.Commit());
  EXPECT_EQ(ReadFile(dir.Path("shop/streamed.html")), "page");

  const std::string old = dir.Path("old.html");
  WriteFile(old, "<p>older and longer</p>");
  ASSERT_EQ(chmod(old.c_str(), 0640), 0);
  ASSERT_TRUE(WritePage(old, "<p>v2</p>"));
  EXPECT_EQ(ReadFile(old), "<p>v2</p>");
  EXPECT_EQ(ModeOf(old), 0640u);
  umask(mask);

  std::string text;
  for (int i = 0; text.size() < (9u << 20); ++i)
    text += "<li>entry " + std::to_string(i) + "</li>\n";
  ASSERT_TRUE(WritePage(dir.Path("list.html"), text));
  EXPECT_EQ(ReadFile(dir.Path("list.html")), text);
  EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"list.html", "old.html", "shop"}));
  EXPECT_EQ(ListDir(dir.Path("shop")), (std::vector<std::string>{"fresh.html", "streamed.html"}));
}

TEST(PageFileTest, AbandonedPageLeavesNothingAndTheOlderFileAsItWas) {
  ScopedTempDir dir;
  const std::string old = dir.Path("old.html");
  WriteFile(old, "kept");
  for (const std::string& path : {old, dir.Path("new.html")}) {
    PageFile page;
    ASSERT_TRUE(page.Open(path));
    // Long enough to have gone to a temporary file.
    const std::string big(5 << 20, 'x');
    std::fwrite(big.data(), 1, big.size(), page.fp());
    page.Abandon();
  }
  EXPECT_EQ(ReadFile(old), "kept");
  EXPECT_FALSE(FileExists(dir.Path("new.html")));
  EXPECT_EQ(ListDir(dir.path()).size(), 1u);
}

// A page whose text could not all be added is never written, not even
// the part that could: here the long page's temporary file cannot be made
// while a file stands where its directory should be.
TEST(PageFileTest, AFailedAdditionFailsThePage) {
  ScopedTempDir dir;
  const std::string path = dir.Path("shop/p.html");
  PageFile page;
  ASSERT_TRUE(page.Open(path));
  page.Add("<p>head</p>", 11);
  WriteFile(dir.Path("shop"), "not a directory");
  const std::string big(5 << 20, 'x');
  page.Add(big.data(), big.size());
  ASSERT_EQ(unlink(dir.Path("shop").c_str()), 0);
  EXPECT_FALSE(page.Commit());
  EXPECT_FALSE(FileExists(path));
}

}  // namespace
}  // namespace storegen
