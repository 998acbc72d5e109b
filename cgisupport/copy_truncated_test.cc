#include "cgisupport/copy_truncated.h"

#include <cstring>

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(CopyTruncated, CutsAtBufferSizeAndTerminates) {
  struct Case {
    std::size_t size;
    const char* src;
    const char* want;
    std::size_t copied;
  } cases[] = {
      {1, "abc", "", 0},    {3, "abc", "ab", 2}, {4, "abc", "abc", 3},
      {5, "abc", "abc", 3}, {4, "", "", 0},
  };
  for (const auto& c : cases) {
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(CopyTruncated(buf, c.size, c.src), c.copied) << c.size << " " << c.src;
    EXPECT_STREQ(buf, c.want) << c.size << " " << c.src;
    for (std::size_t i = c.size; i < sizeof buf; ++i)
      EXPECT_EQ(buf[i], '#') << "wrote past " << c.size;
  }
}

TEST(CopyTruncated, ZeroSizeWritesNothing) {
  char buf[2] = {'#', '#'};
  EXPECT_EQ(CopyTruncated(buf, 0, "abc"), 0u);
  EXPECT_EQ(buf[0], '#');
}

TEST(AppendTruncated, KeepsWithinBuffer) {
  char buf[6] = "ab";
  EXPECT_EQ(AppendTruncated(buf, "cdefg"), 5u);
  EXPECT_STREQ(buf, "abcde");
}

TEST(AppendSlashIfMissing, AddsOnlyWhenNeeded) {
  char a[8] = "dir";
  AppendSlashIfMissing(a);
  EXPECT_STREQ(a, "dir/");
  char b[8] = "dir\\";
  AppendSlashIfMissing(b);
  EXPECT_STREQ(b, "dir\\");
  char c[8] = "";
  AppendSlashIfMissing(c);
  EXPECT_STREQ(c, "");
  AppendSlashIfMissing(c, true);
  EXPECT_STREQ(c, "/");
}

}  // namespace
}  // namespace storegen
