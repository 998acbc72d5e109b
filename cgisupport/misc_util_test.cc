#include "cgisupport/misc_util.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(MiscUtil, ParseMailCommandExpandsFieldsWithinDstSize) {
  struct {
    const char* tmpl;
    char mode;
    const char* expect;
  } cases[] = {{"mail -s <S> <R> < <O>", 'f', "mail -s Hello bob@x < /tmp/body"},
               {"mail -s <S> <R> < <O>", 'x', "mail -s Hello bob@x < "},
               {"a<X>b", 'f', "ab"},     // unknown field: nothing
               {"a<Rb", 'f', "abob@x"},  // no closing '>': the rest is dropped
               {"<Subject>:<recipient>", 'f', "Hello:bob@x"}};
  for (const auto& c : cases) {
    char dst[64];
    ParseMailCommand(c.tmpl, c.mode, dst, sizeof(dst), "Hello", "bob@x", "/tmp/body");
    EXPECT_STREQ(dst, c.expect) << c.tmpl << " mode " << c.mode;
  }
  char dst[8];
  std::memset(dst, '#', sizeof(dst));
  ParseMailCommand("mail <R>", 'f', dst, 6, "", "someone", "");
  EXPECT_EQ(std::memcmp(dst, "mail \0##", 8), 0);
  ParseMailCommand("x", 'f', dst, 0, "", "", "");
  EXPECT_EQ(dst[0], 'm');
}

TEST(MiscUtil, DynaBufferGrowsInZeroedStepsAndKeepsItOnRefusal) {
  void* buf = DynaBuffer_alloc(nullptr, 10);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(DynaBuffer_size(buf), 256u);
  EXPECT_EQ(std::string(static_cast<char*>(buf), 256), std::string(256, '\0'));
  std::memset(buf, 'x', 256);
  EXPECT_EQ(DynaBuffer_alloc(buf, 256), buf);  // already large enough
  buf = DynaBuffer_alloc(buf, 257);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(DynaBuffer_size(buf), 512u);
  EXPECT_EQ(std::string(static_cast<char*>(buf) + 255, 257), 'x' + std::string(256, '\0'));
  // No capacity word can describe this request: the old buffer stays.
  EXPECT_EQ(DynaBuffer_alloc(buf, UINT32_MAX), nullptr);
  EXPECT_EQ(DynaBuffer_size(buf), 512u);
  EXPECT_EQ(static_cast<char*>(buf)[0], 'x');
  EXPECT_EQ(DynaBuffer_free(buf), 0);
  void* fresh = DynaBuffer_alloc(nullptr, 256);
  EXPECT_EQ(DynaBuffer_size(fresh), 512u);
  EXPECT_EQ(DynaBuffer_free(fresh), 0);
  EXPECT_EQ(DynaBuffer_free(nullptr), 0);
  EXPECT_EQ(DynaBuffer_size(nullptr), 0u);
}

TEST(MiscUtil, RoundDoubleUsesPrintfRounding) {
  EXPECT_DOUBLE_EQ(roundDouble(1.23456, 2), 1.23);
  EXPECT_DOUBLE_EQ(roundDouble(2.5, 0), 2.0);  // not std::round
  EXPECT_DOUBLE_EQ(roundDouble(9.996, 2), 10.0);
  EXPECT_DOUBLE_EQ(roundDouble(1e300, 1), 1e300);
}

}  // namespace
}  // namespace storegen
