// The dynamic-page front: its request parser, and the program driven as a
// web server runs it, with a stand-in page generator that records how it was
// started.
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/front/dynamic_request.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;
using Kind = DynamicRequest::Kind;

DynamicRequest Product(const std::string& sku) {
  return {Kind::kProductPage, "lantern.cfg", sku, "", 0};
}

DynamicRequest List(const std::string& category, std::uint32_t first) {
  return {Kind::kListPage, "lantern.cfg", "", category, first};
}

TEST(DynamicRequest, TheShapesOfTheStoreLinksAndNothingElse) {
  const std::string x256(256, 'x');
  const std::string x128(128, 'x');
  const struct {
    std::string query;
    std::optional<DynamicRequest> request;
  } cases[] = {
      // The links of a store's pages.
      {"-p+-c+lantern.cfg+LL-106", Product("LL-106")},
      {"-c+lantern.cfg+-f+0+-C+Home%20%26%20Garden", List("Home & Garden", 0)},
      {"-c+lantern.cfg+-C+Kitchen+-f+12", List("Kitchen", 12)},
      {"-c+lantern.cfg+-f+20", List("", 20)},
      // Written otherwise, read as the page generator reads its arguments.
      {"-c+lantern.cfg+-p+A%2FB", Product("A/B")},
      {"-c+lantern.cfg+-C+Home+Garden+-f+007", List("Home Garden", 7)},
      {"-c+lantern.cfg+-C+-10%25+off+-f+0", List("-10% off", 0)},
      // Options the generator would take for others ("-tx" is "-t").
      {"-c+lantern.cfg+-tx+/etc/passwd+-f+0", std::nullopt},
      {"-tt+-p+-oo+/tmp/x+-ss+0", std::nullopt},
      {"-p+-c+lantern.cfg+A1+-t+x", std::nullopt},
      {"-p+-c+lantern.cfg+A1+-o+/tmp/x", std::nullopt},
      {"-p+-c+lantern.cfg+%2Dtx", std::nullopt},
      {"-c+lantern.cfg+-C+%2Do+-f+0", std::nullopt},
      // Store names that are paths.
      {"-p+-c+../lantern.cfg+A1", std::nullopt},
      {"-p+-c+-p+A1", std::nullopt},
      // Parts repeated, missing, or of both kinds of page.
      {"-p+-c+a.cfg+-c+lantern.cfg+A1", std::nullopt},
      {"-p+-p+-c+lantern.cfg+A1", std::nullopt},
      {"-c+lantern.cfg+-f+0+-f+1", std::nullopt},
      {"-c+lantern.cfg+-C+a+-C+b+-f+0", std::nullopt},
      {"-p+-c+lantern.cfg+A1+B2", std::nullopt},
      {"-p+-c+lantern.cfg", std::nullopt},
      {"-p+A1", std::nullopt},
      {"-c+lantern.cfg+-f", std::nullopt},
      {"-c+lantern.cfg+-p+A1+-f+0", std::nullopt},
      {"-c+lantern.cfg+-C+Kitchen+-p+A1", std::nullopt},
      {"-c+lantern.cfg+A1+-f+0", std::nullopt},
      {"-c+lantern.cfg+-C+-f+0", std::nullopt},
      {"-c+lantern.cfg+-f+1e3", std::nullopt},
      {"-c+lantern.cfg+-f+1234567890", std::nullopt},
      // Bytes no name holds, broken escapes, empty and over-long words.
      {"-p+-c+lantern.cfg+A%00B", std::nullopt},
      {"-p+-c+lantern.cfg%00.x+A1", std::nullopt},
      {"-p+-c+lantern.cfg+A%G0", std::nullopt},
      {"-p+-c+lantern.cfg++A1", std::nullopt},
      {"", std::nullopt},
      {"-p+-c+lantern.cfg+" + x256, std::nullopt},
      {"-c+lantern.cfg+-C+" + x128 + "+" + x128 + "+-f+0", std::nullopt},
      {"-p+-c+lantern.cfg+A1" + std::string(2048, '+'), std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ParseDynamicRequest(c.query), c.request) << c.query.substr(0, 80);

  const std::string cfg = "/s/lantern.cfg";
  using Args = std::vector<std::string>;
  EXPECT_EQ(DynamicRequestArguments(Product("A/B"), cfg), (Args{"-c", cfg, "-p", "A/B"}));
  EXPECT_EQ(DynamicRequestArguments(List("Home Garden", 10), cfg),
            (Args{"-c", cfg, "-C", "Home Garden", "-f", "10"}));
  EXPECT_EQ(DynamicRequestArguments(List("", 0), cfg), (Args{"-c", cfg, "-f", "0"}));
}

// Records its arguments and the request's variables it was left, then acts
// on the SKU: NOSUCH ends as a missing product does, BROKEN fails silently.
constexpr char kFakeGenerator[] = R"(#!/bin/sh
log="$(dirname "$0")/launches.log"
printf '%s|' "$@" >> "$log"
for v in SCRIPT_NAME QUERY_STRING PATH_INFO PATH_TRANSLATED HTTP_HOST; do
  if env | grep -q "^$v="; then printf 'env:%s|' "$v" >> "$log"; fi
done
echo >> "$log"
case "$4" in
  NOSUCH) exit 254 ;;
  BROKEN) exit 3 ;;
esac
printf 'Content-type: text/html\n\npage of %s\n' "$4"
)";

class FrontTest : public ::testing::Test {
 protected:
  void SetUp() override {
    WriteFile(dir_.Path("stores/lantern.cfg"), "StoreDir\t/lantern/\n");
    WriteFile(dir_.Path("stores/other.cfg"), "StoreDir\t/other/\n");  // not served
    WriteFile(dir_.Path("gen/storegen"), kFakeGenerator);
    ASSERT_EQ(chmod(dir_.Path("gen/storegen").c_str(), 0755), 0);
    // Installed under the name the store's links call.
    WriteFile(dir_.Path("cgi/storegen-cgi.cfg"),
              "StoregenProgram\t../gen/storegen\nStoreConfigDir\t../stores\n"
              "Stores\tlantern.cfg, shop.cfg\n");
    ASSERT_EQ(symlink(STOREGEN_CGI_BIN, dir_.Path("cgi/storegen").c_str()), 0);
  }

  RunResult Request(const std::string& query, const char* method = "GET") {
    RunOptions options;
    options.unset_env = {"STOREGEN_CGI_CONFIG"};
    options.set_env = {{"REQUEST_METHOD", method},           {"QUERY_STRING", query},
                       {"SCRIPT_NAME", "/cgi-bin/storegen"}, {"PATH_INFO", "/x.html"},
                       {"PATH_TRANSLATED", "/srv/x.html"},   {"HTTP_HOST", "shop"}};
    RunResult r = RunProgram({dir_.Path("cgi/storegen")}, options);
    EXPECT_EQ(r.exit_code, 0) << r.err;
    return r;
  }

  std::string Launches() { return ReadFile(dir_.Path("gen/launches.log"), false); }

  ScopedTempDir dir_;
};

TEST_F(FrontTest, RunsTheGeneratorWithArgumentsOfItsOwnAndPassesThePageOn) {
  const std::string cfg = dir_.Path("stores/lantern.cfg");
  EXPECT_EQ(Request("-p+-c+lantern.cfg+LL-106").out, "Content-type: text/html\n\npage of LL-106\n");
  Request("-c+lantern.cfg+-f+0+-C+Home%20Garden");
  // Only the program's name the server called is left of the request.
  EXPECT_EQ(Launches(), "-c|" + cfg + "|-p|LL-106|env:SCRIPT_NAME|\n-c|" + cfg +
                            "|-C|Home Garden|-f|0|env:SCRIPT_NAME|\n");
  EXPECT_EQ(Request("-p+-c+lantern.cfg+NOSUCH").out.rfind("Status: 404 Not Found\n", 0), 0u);
  RunResult broken = Request("-p+-c+lantern.cfg+BROKEN");
  EXPECT_EQ(broken.out.rfind("Status: 500 Internal Server Error\n", 0), 0u);
  EXPECT_NE(broken.err.find("ended with status 3"), std::string::npos) << broken.err;
}

TEST_F(FrontTest, HostileRequestsGetAnErrorAndStartNothing) {
  const struct {
    const char* method;
    std::string query;
    const char* status;
  } cases[] = {
      {"GET", "-c+lantern.cfg+-tx+/etc/passwd+-f+0", "400 Bad Request"},
      {"GET", "-tt+-p+-oo+/tmp/x+-ss+0", "400 Bad Request"},
      {"GET", "-p+-c+lantern.cfg%00.x+A1", "400 Bad Request"},
      {"GET", "-p+-c+lantern.cfg+" + std::string(10000, 'A'), "400 Bad Request"},
      {"GET", "-p+-c+other.cfg+A1", "404 Not Found"},  // there, but not served
      {"GET", "-p+-c+shop.cfg+A1", "404 Not Found"},   // served, but missing
      {"POST", "-p+-c+lantern.cfg+A1", "405 Method Not Allowed"},
  };
  for (const auto& c : cases) {
    RunResult r = Request(c.query, c.method);
    EXPECT_EQ(r.out.rfind(std::string("Status: ") + c.status + "\n", 0), 0u)
        << c.query.substr(0, 80) << "\n"
        << r.out;
    EXPECT_EQ(r.out.find("passwd"), std::string::npos);  // nothing of the request echoed
  }
  EXPECT_EQ(Launches(), "");
}

TEST_F(FrontTest, AnUnusableConfigurationIsAServerError) {
  WriteFile(dir_.Path("cgi/storegen-cgi.cfg"), "StoregenProgram\t../gen/storegen\n");
  RunResult r = Request("-p+-c+lantern.cfg+A1");
  EXPECT_EQ(r.out.rfind("Status: 500 Internal Server Error\n", 0), 0u);
  EXPECT_NE(r.err.find("StoreConfigDir is not set in"), std::string::npos) << r.err;
  EXPECT_EQ(Launches(), "");
}

}  // namespace
}  // namespace storegen
