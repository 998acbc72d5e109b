// The responder over a copy of the sample store: its answers against the
// program run once per request, and files changed between requests.
#include "driver/fcgi/responder.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/file_identity.h"
#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

constexpr char kScript[] = "/cgi-bin/storegen";

class ResponderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    store_ = InstallSampleStore(dir_.path());
    // The files count as settled at once, so that they are kept between
    // requests as on a server; a change must still be seen.
    g_settle_clock_ahead = 3;
    FrontConfig config{"", dir_.Path("store"), {"lantern.cfg"}};
    responder_ = std::make_unique<Responder>(config, store_.bin);
    std::string error;
    ASSERT_TRUE(responder_->Open(&error)) << error;
  }
  void TearDown() override { g_settle_clock_ahead = 0; }

  std::string Get(const std::string& query, std::string* failure = nullptr) {
    std::string ignored;
    return responder_->Answer({"GET", query.c_str(), kScript}, failure ? failure : &ignored);
  }
  // What storegen-cgi passes on from the program run for the request alone.
  std::string OneShot(std::vector<std::string> args) {
    args.insert(args.begin(), store_.bin);
    RunOptions options;
    options.unset_env = {"PATH_INFO", "PATH_TRANSLATED"};
    options.set_env = {{"SCRIPT_NAME", kScript}};
    return RunProgram(args, options).out;
  }
  // Replaces |path| by a new file with |from| changed to |to|, as a writer
  // that renames a finished file into place does.
  void Replace(const std::string& path, const std::string& from, const std::string& to) {
    std::string text = ReadFile(path);
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    WriteFile(path + ".new", text.replace(at, from.size(), to));
    std::filesystem::rename(path + ".new", path);
  }

  ScopedTempDir dir_;
  SampleStore store_;
  std::unique_ptr<Responder> responder_;
};

std::size_t OpenDescriptors() {
  std::size_t n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++n;
  return n;
}

TEST_F(ResponderTest, AnswersAsTheProgramRunForEachRequestAndSeesChangedFiles) {
  const std::string cfg = store_.cfg;
  const struct {
    std::string query;
    std::vector<std::string> args;
  } cases[] = {
      {"-p+-c+lantern.cfg+LL-102", {"-c", cfg, "-p", "LL-102"}},
      {"-c+lantern.cfg+-C+Garden+-f+2", {"-c", cfg, "-C", "Garden", "-f", "2"}},
      {"-c+lantern.cfg+-f+0", {"-c", cfg, "-f", "0"}},
      {"-c+lantern.cfg+-f+7", {"-c", cfg, "-f", "7"}},
  };
  std::size_t descriptors = 0;
  for (int round = 0; round < 3; ++round) {
    for (const auto& c : cases)
      EXPECT_EQ(Get(c.query), OneShot(c.args)) << c.query;
    if (round == 0) descriptors = OpenDescriptors();
  }
  EXPECT_EQ(OpenDescriptors(), descriptors);

  Replace(store_.root + "/store/modern/product.html", "</html>", "<!-- v2 --></html>");
  Replace(store_.root + "/store/products.txt", "Paper Lantern\t24.00", "Paper Lantern\t25.50");
  const std::string page = Get(cases[0].query);
  EXPECT_NE(page.find("<!-- v2 -->"), std::string::npos);
  EXPECT_NE(page.find("25.50"), std::string::npos);
  EXPECT_EQ(page, OneShot(cases[0].args));
  // A product moved into another category: the lists it leaves and joins,
  // further down than their first page.
  Replace(store_.root + "/store/products.txt", "Candle Snuffer\t18.00\tLighting",
          "Candle Snuffer\t18.00\tGarden");
  for (const auto& c : cases)
    EXPECT_EQ(Get(c.query), OneShot(c.args)) << c.query;
}

TEST_F(ResponderTest, RequestsThatMakeNoPageGetAnErrorStatus) {
  const struct {
    const char* method;
    const char* query;
    const char* status;
    bool logged;
  } cases[] = {
      {"GET", "-p+-c+lantern.cfg+NO-SUCH", "404 Not Found", true},
      {"GET", "-p+-c+other.cfg+LL-102", "404 Not Found", false},
      {"GET", "-c+lantern.cfg+-tx+/etc/passwd+-f+0", "400 Bad Request", false},
      {"GET", nullptr, "400 Bad Request", false},
      {"POST", "-p+-c+lantern.cfg+LL-102", "405 Method Not Allowed", false},
      {nullptr, "-p+-c+lantern.cfg+LL-102", "405 Method Not Allowed", false},
  };
  for (const auto& c : cases) {
    std::string failure;
    const std::string answer = responder_->Answer({c.method, c.query, kScript}, &failure);
    EXPECT_EQ(answer.rfind(std::string("Status: ") + c.status + "\n", 0), 0u)
        << (c.query ? c.query : "(none)") << "\n"
        << answer;
    EXPECT_EQ(failure.empty(), !c.logged) << failure;
  }
  // A template that cannot be read fails the page: a server error.
  std::filesystem::remove(store_.root + "/store/modern/product.html");
  std::string failure;
  EXPECT_EQ(Get("-p+-c+lantern.cfg+LL-102", &failure).rfind("Status: 500 ", 0), 0u);
  EXPECT_NE(failure.find("-p LL-102 ended with status"), std::string::npos) << failure;
}

}  // namespace
}  // namespace storegen::testing
