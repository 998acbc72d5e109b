#include "cgisupport/diagnostics.h"

#include <string>

#include <gtest/gtest.h>

#include "cgisupport/config_hints.h"
#include "cgisupport/run_state.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

class DiagnosticsTest : public ::testing::Test {
 protected:
  void SetUp() override { CaptureDiagnostics(&shown_); }
  void TearDown() override {
    ResetDiagnostics();
    ResetRunState();
  }
  std::string shown_;
};

TEST_F(DiagnosticsTest, ErrorsGoToStandardOutputOnlyWithVerbose) {
  ::testing::internal::CaptureStdout();
  ReportError({"a.cfg", 3}, "key missing", "%s not found\n", "Key");
  ReportWarning({"t.html"}, "odd tag");
  ReportError({}, "no stdout form", nullptr);
  PageGenState.verbose = 1;
  ReportError({"a.cfg", 4}, "other key missing", "%s not found\n", "Other");
  ReportWarning({"t.html"}, "odd tag");  // shown once only
  ReportError({}, "no stdout form either", nullptr);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Other not found\n");
  EXPECT_EQ(shown_,
            "a.cfg:3: key missing\n"
            "t.html: warning: odd tag\n"
            "no stdout form\n"
            "no stdout form either\n");
}

TEST_F(DiagnosticsTest, ReplayedLinesAreShownOnce) {
  ReportNote("from here");
  ReplayDiagnostics("from there\nfrom here\nfrom there\n");
  EXPECT_EQ(shown_, "from here\nfrom there\n");
  EXPECT_TRUE(FirstTime("k"));
  EXPECT_FALSE(FirstTime("k"));
}

TEST(ConfigHints, NameTheLineAndTheLikelyMistake) {
  ScopedTempDir dir;
  const std::string cfg = dir.Path("store.cfg");
  WriteFile(cfg,
            "ShopName\tAcme\n"
            "StoreDir\n"
            "PageGenTmpltSte\tbasic\n"
            "AllowPagegen yes\n"
            "StoreDir\t/acme\n");
  const struct {
    const char* key;
    int line;
    const char* hint;  // the start of it
  } cases[] = {
      {"PageGenTmpltSet", 3, "\"PageGenTmpltSte\" there is not"},
      {"AllowPagegen", 4, "the key is followed by a blank"},
      {"StoreDir", 2, "the key has no value"},
      {"ProductDatabase", 0, ""},
  };
  for (const auto& c : cases) {
    int line = -1;
    EXPECT_EQ(MissingKeyHint(cfg.c_str(), c.key, &line).rfind(c.hint, 0), 0u) << c.key;
    EXPECT_EQ(line, c.line) << c.key;
  }
  EXPECT_EQ(ConfigKeyLine(cfg.c_str(), "storedir"), 5);
  EXPECT_EQ(ConfigValueLine(cfg.c_str(), "basic"), 3);

  // Below the limit the distance is exact; at or above it, not below it.
  const struct {
    const char *a, *b;
    std::size_t limit, distance;
  } distances[] = {
      {"Price", "PRCIE", 3, 1},     {"kitten", "sitting", 4, 3}, {"kitten", "sitting", 3, 3},
      {"abcdef", "abcdefgh", 3, 2}, {"", "abc", 3, 3},           {"abcxyz", "uvwabc", 99, 6},
  };
  for (const auto& d : distances) {
    const std::size_t got = NameDistance(d.a, d.b, d.limit);
    if (d.distance < d.limit) {
      EXPECT_EQ(got, d.distance) << d.a << " " << d.b;
    } else {
      EXPECT_GE(got, d.limit) << d.a << " " << d.b;
    }
  }
}

}  // namespace
}  // namespace storegen
