#include "cgisupport/file_util.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ListDir;
using testing::ReadFile;
using testing::ScopedTempDir;
using testing::WriteFile;

bool IsDir(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

TEST(TbMkdir, MixedSeparatorsAndExistingPrefixes) {
  ScopedTempDir dir(/*enter=*/true);
  EXPECT_EQ(tb_mkdir(dir.Path("a/b\\c/").c_str(), 0755), 0);
  EXPECT_TRUE(IsDir(dir.Path("a/b/c")));
  EXPECT_EQ(tb_mkdir("a\\b/d\\e", 0700), 0);  // relative, below an existing a/b
  EXPECT_TRUE(IsDir(dir.Path("a/b/d/e")));
  EXPECT_EQ(tb_mkdir("", 0755), 0);
  WriteFile(dir.Path("file"), "x");
  EXPECT_EQ(tb_mkdir("file/sub/deeper", 0755), -1);  // a file in the way
}

// The names a whole search finds.
std::set<std::string> FindAll(const std::string& pattern) {
  std::set<std::string> names;
  tb_finddata data;
  int h = tb_findfirst(pattern.c_str(), &data);
  if (h < 0) return names;
  do {
    names.insert(data.name);
  } while (tb_findnext(h, &data) == 0);
  EXPECT_EQ(tb_findclose(h), 0);
  return names;
}

TEST(TbFind, Patterns) {
  ScopedTempDir dir(/*enter=*/true);
  for (const char* name : {"index.html", "a.html", "a.html.bak", "readme", "b.htm", "s.d/f"})
    WriteFile(dir.Path(std::string("d/") + name), "");
  WriteFile(dir.Path("here.txt"), "");
  using Names = std::set<std::string>;
  struct Case {
    std::string pattern;
    Names want;
  } cases[] = {{"d/*.html", {"index.html", "a.html"}},  // no backtracking: not a.html.bak
               {"d\\*.htm*", {"index.html", "a.html", "b.htm", "a.html.bak"}},
               {dir.Path("d/index.html"), {"index.html"}},
               {"d/*", {".", "..", "index.html", "a.html", "a.html.bak", "readme", "b.htm", "s.d"}},
               // A bare name lists "*.*" ("." and ".." hold a '.'); in the current
               // directory when it names none.
               {"d", {".", "..", "index.html", "a.html", "a.html.bak", "b.htm", "s.d"}},
               {"no-such-name", {".", "..", "here.txt"}},
               {"missing/*", {}}};
  for (const auto& c : cases)
    EXPECT_EQ(FindAll(c.pattern), c.want) << c.pattern;
}

TEST(TbFind, AttribTimeAndHandles) {
  ScopedTempDir dir(/*enter=*/true);
  WriteFile(dir.Path("f.txt"), "");
  ASSERT_EQ(mkdir("d.dir", 0755), 0);
  struct stat st;
  ASSERT_EQ(stat("f.txt", &st), 0);
  tb_finddata data;
  int first = tb_findfirst("./*.txt", &data);
  ASSERT_GE(first, 0);
  EXPECT_EQ(data.attrib, 0);
  EXPECT_EQ(data.time, static_cast<int32_t>(st.st_ctime));
  EXPECT_EQ(tb_findnext(first, &data), -1);
  int second = tb_findfirst("./*.dir", &data);
  EXPECT_NE(second, first);
  EXPECT_EQ(data.attrib, kFindAttribDirectory);
  EXPECT_EQ(tb_findclose(first), 0);
  EXPECT_EQ(tb_findclose(first), -1);
  EXPECT_EQ(tb_findnext(first, &data), -1);
  EXPECT_EQ(tb_findclose(second), 0);
}

TEST(OpenLock, RefusesASecondHolderUntilReleased) {
  ScopedTempDir dir;
  const std::string path = dir.Path("pgstatus.pid");
  EXPECT_FALSE(IsLockedElsewhere(path.c_str()));
  EXPECT_FALSE(testing::FileExists(path));  // looking creates nothing
  {
    testing::HeldInChild holder([&] { return openlock(path.c_str(), 0, 0644) >= 0; });
    ASSERT_TRUE(holder.held());
    EXPECT_TRUE(IsLockedElsewhere(path.c_str()));
    for (int timeout : {0, 1}) {
      errno = 0;
      EXPECT_EQ(openlock(path.c_str(), timeout, 0644), -1) << timeout;
      EXPECT_EQ(errno, EACCES) << timeout;
    }
  }
  int fd = openlock(path.c_str(), 0, 0644);
  EXPECT_GE(fd, 0);
  EXPECT_FALSE(IsLockedElsewhere(path.c_str()));  // this process's own lock
  EXPECT_EQ(closelock(fd), 0);
  EXPECT_EQ(ReadFile(path), "");  // never written
  EXPECT_EQ(openlock(dir.Path("missing/lock").c_str(), 0, 0644), -1);
}

TEST(TbCopyFile, CopiesBytesOrKeepsTheOldDestination) {
  ScopedTempDir dir(/*enter=*/true);
  std::string content;
  for (int i = 0; i < 5000; ++i)
    content += static_cast<char>(i % 256);
  WriteFile(dir.Path("src"), content);
  WriteFile(dir.Path("dst"), "old picture");
  chmod(dir.Path("dst").c_str(), 0640);
  ASSERT_EQ(mkdir("unreadable-source", 0755), 0);  // opens, but cannot be read
  EXPECT_EQ(tb_CopyFile("unreadable-source", "dst"), -1);
  EXPECT_EQ(tb_CopyFile("src", "missing/dst"), -2);
  EXPECT_EQ(ReadFile(dir.Path("dst")), "old picture");
  EXPECT_EQ(ListDir(dir.path()), (std::vector<std::string>{"dst", "src", "unreadable-source"}));

  EXPECT_EQ(tb_CopyFile("src", "dst"), 0);
  EXPECT_EQ(ReadFile(dir.Path("dst")), content);
  struct stat st;
  ASSERT_EQ(stat("dst", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST(Getline, StopsAtLineFeedCtrlDAndFullBuffer) {
  struct Case {
    std::string input;
    int size;
    std::string want;                      // the lines read up to end of file, joined by '|'
  } cases[] = {{"ab\r\ncd", 16, "ab|cd"},  // CR replaced by the LF after it
               {"a\rxb\n", 16, "axb|"},    // ... or by whatever byte follows
               {"ab\004cd\n", 16, "ab|cd|"},
               {"abcdef\n", 4, "abc|ef|"},  // a full buffer drops the last byte read
               {"abc\n", 1, "||||"},
               {"", 16, ""}};
  for (const auto& c : cases) {
    FILE* f = std::tmpfile();
    std::fwrite(c.input.data(), 1, c.input.size(), f);
    std::rewind(f);
    std::string lines;
    char buf[32];
    for (int eof = 0, n = 0; !eof && n < 10; ++n) {
      eof = getline(buf, c.size, f);
      lines += std::string(buf) + (eof ? "" : "|");
    }
    std::fclose(f);
    EXPECT_EQ(lines, c.want) << c.input;
  }
}

}  // namespace
}  // namespace storegen
