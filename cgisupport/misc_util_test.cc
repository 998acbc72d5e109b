#include "cgisupport/misc_util.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(MiscUtil, ParseMailCommandExpandsFields) {
  struct {
    const char* tmpl;
    char mode;
    const char* expect;
  } cases[] = {
      {"mail -s <S> <R> < <O>", 'f', "mail -s Hello bob@x < /tmp/body"},
      {"mail -s <S> <R> < <O>", 'x', "mail -s Hello bob@x < "},
      {"<Subject>:<recipient>", 'f', "Hello:bob@x"},
      {"a<X>b", 'f', "ab"},     // unknown field: nothing
      {"a<Rb", 'f', "abob@x"},  // no closing '>': the rest is dropped
      {"a<", 'f', "a<"},
      {"", 'f', ""},
  };
  for (const auto& c : cases) {
    char dst[64];
    std::memset(dst, '#', sizeof(dst));
    ParseMailCommand(c.tmpl, c.mode, dst, sizeof(dst), "Hello", "bob@x", "/tmp/body");
    EXPECT_STREQ(dst, c.expect) << c.tmpl << " mode " << c.mode;
  }
}

TEST(MiscUtil, ParseMailCommandNeverPassesDstSize) {
  char dst[8];
  std::memset(dst, '#', sizeof(dst));
  ParseMailCommand("mail <R>", 'f', dst, 6, "", "someone", "");
  EXPECT_EQ(std::memcmp(dst, "mail \0##", 8), 0);
  ParseMailCommand("x", 'f', dst, 0, "", "", "");
  EXPECT_EQ(dst[0], 'm');
}

TEST(MiscUtil, DynaBufferGrowsInZeroedSteps) {
  void* buf = DynaBuffer_alloc(nullptr, 10);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(DynaBuffer_size(buf), 256u);
  for (int i = 0; i < 256; ++i)
    ASSERT_EQ(static_cast<char*>(buf)[i], 0) << i;
  std::memset(buf, 'x', 256);

  EXPECT_EQ(DynaBuffer_alloc(buf, 256), buf);  // already large enough
  EXPECT_EQ(DynaBuffer_size(buf), 256u);

  buf = DynaBuffer_alloc(buf, 257);
  ASSERT_NE(buf, nullptr);
  EXPECT_EQ(DynaBuffer_size(buf), 512u);
  const char* bytes = static_cast<const char*>(buf);
  EXPECT_EQ(bytes[255], 'x');  // old content kept
  for (int i = 256; i < 512; ++i)
    ASSERT_EQ(bytes[i], 0) << i;

  void* fresh = DynaBuffer_alloc(nullptr, 256);
  EXPECT_EQ(DynaBuffer_size(fresh), 512u);
  EXPECT_EQ(DynaBuffer_free(fresh), 0);
  EXPECT_EQ(DynaBuffer_free(buf), 0);
  EXPECT_EQ(DynaBuffer_free(nullptr), 0);
  EXPECT_EQ(DynaBuffer_size(nullptr), 0u);
}

TEST(MiscUtil, DynaBufferRefusalKeepsOldBuffer) {
  void* buf = DynaBuffer_alloc(nullptr, 0);
  ASSERT_NE(buf, nullptr);
  std::memcpy(buf, "keep", 5);
  // No capacity word can describe this request.
  EXPECT_EQ(DynaBuffer_alloc(buf, UINT32_MAX), nullptr);
  EXPECT_STREQ(static_cast<char*>(buf), "keep");
  EXPECT_EQ(DynaBuffer_size(buf), 256u);
  DynaBuffer_free(buf);
}

TEST(MiscUtil, RoundDoubleAndFixedAnswers) {
  EXPECT_DOUBLE_EQ(roundDouble(1.23456, 2), 1.23);
  EXPECT_DOUBLE_EQ(roundDouble(2.5, 0), 2.0);  // printf rounding, not std::round
  EXPECT_DOUBLE_EQ(roundDouble(9.996, 2), 10.0);
  EXPECT_DOUBLE_EQ(roundDouble(1e300, 1), 1e300);
  EXPECT_STREQ(GetTillboxVersion(), "4.2.0.9");
  EXPECT_EQ(LookupExtInReg(), 0);
}

}  // namespace
}  // namespace storegen
