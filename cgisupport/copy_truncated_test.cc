#include "cgisupport/copy_truncated.h"

#include <cstring>

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(CopyTruncated, CutsAtBufferSizeAndNeverWritesPastIt) {
  struct Case {
    std::size_t size;
    const char* src;
    const char* want;  // null: the buffer stays untouched
    std::size_t copied;
  } cases[] = {{0, "abc", nullptr, 0}, {1, "abc", "", 0},    {3, "abc", "ab", 2},
               {4, "abc", "abc", 3},   {5, "abc", "abc", 3}, {4, "", "", 0}};
  for (const auto& c : cases) {
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    EXPECT_EQ(CopyTruncated(buf, c.size, c.src), c.copied) << c.size << " " << c.src;
    if (c.want != nullptr) {
      EXPECT_STREQ(buf, c.want) << c.size << " " << c.src;
    }
    for (std::size_t i = c.size; i < sizeof buf; ++i)
      EXPECT_EQ(buf[i], '#') << "wrote past " << c.size;
  }
  char buf[6] = "ab";
  EXPECT_EQ(AppendTruncated(buf, "cdefg"), 5u);
  EXPECT_STREQ(buf, "abcde");
}

TEST(AppendSlashIfMissing, AddsOnlyWhenNeeded) {
  const struct {
    const char* in;
    bool even_if_empty;
    const char* want;
  } cases[] = {{"dir", false, "dir/"}, {"dir\\", false, "dir\\"}, {"", false, ""}, {"", true, "/"}};
  for (const auto& c : cases) {
    char buf[8];
    std::strcpy(buf, c.in);
    AppendSlashIfMissing(buf, c.even_if_empty);
    EXPECT_STREQ(buf, c.want) << c.in;
  }
}

}  // namespace
}  // namespace storegen
