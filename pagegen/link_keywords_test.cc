// The "PG_...#" link keywords and the store entry and exit links.
#include <errno.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "cgisupport/copy_truncated.h"
#include "driver/runstate/run_state.h"
#include "pagegen/link_rewrite.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

PAPI_Pair kProduct[] = {{const_cast<char*>("SKU"), const_cast<char*>("A-100")},
                        {const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("Cutlery")},
                        {nullptr, nullptr}};
PAPI_Pair kNoCategory[] = {{const_cast<char*>("SKU"), const_cast<char*>("B-2")},
                           {const_cast<char*>("TILLBOXCATEGORY"), const_cast<char*>("NA")},
                           {nullptr, nullptr}};

constexpr char kCgi[] = "CGIBinDirectory\t/cgi-bin\n";
constexpr char kProg[] = "CGIBinDirectory\t/cgi-bin/\nPageGenProg\t/usr/lib/cgi-bin/storegen\n";
constexpr char kSecure[] =
    "CGIBinDirectory\t/cgi-bin\nSecureCGIBinDirectory\t/scgi/\nSecureDomain\thttps://s.example\n"
    "StoreDir\t/acme\nSecureConfig\tsecure\n";
constexpr char kNonSecure[] =
    "CGIBinDirectory\t/cgi-bin\nNonSecureDomain\thttp://www.example\nStoreDir\tacme/\n";

TEST(LinkKeywords, ExpandedWithAndWithoutTheirOptionalKeys) {
  testing::ScopedTempDir dir(true);
  const std::string cfg = dir.Path("acme.cfg");
  const std::string self = program_invocation_short_name;
  struct {
    const char* config;  // besides TillboxExtension "cgi"
    uint32_t options;    // besides kGenRewriteLinks
    const char* category;
    PAPI_Pair* product;
    const char* page_path;
    const char* script;  // SCRIPT_NAME, null: unset
    const char* in;
    std::string out;  // "-": nothing expanded
  } cases[] = {
      {kCgi, 0, "Tea Cups", nullptr, "/shop/", nullptr, "<a href=\"PG_CATEGORYFILE#\">",
       "<a href=\"/shop/c-Tea_Cups.html\">"},
      {kCgi, 0, "Tea", nullptr, "shop/", nullptr, "<a href=pg_categoryfile#>",
       "<a href=c-Tea.html>"},
      {kProg, kGenDynamicLists, "Tea Cups", nullptr, "/shop/", nullptr, "<a href=PG_CATEGORYFILE#>",
       "<a href=USERPROG#/cgi-bin/storegen?-c+acme.cfg+-f+0+-C+Tea%20Cups>"},
      {kCgi, 0, nullptr, kProduct, "/", nullptr, "<a href=PG_CATEGORYFILE#>",
       "<a href=/c-Cutlery.html>"},
      {kCgi, 0, nullptr, kNoCategory, "/", nullptr, "<a href=PG_CATEGORYFILE#>", "-"},
      {kCgi, 0, nullptr, kProduct, "/shop/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=/shop/p-A-100.html>"},
      {kProg, kGenDynamicProducts, nullptr, kProduct, "/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=USERPROG#/cgi-bin/storegen?-p+-c+acme.cfg+A-100>"},
      {kCgi, kGenDynamicProducts, nullptr, kProduct, "/", nullptr, "<a href=PG_PRODUCTFILE#>",
       "<a href=USERPROG#/cgi-bin/" + self + "?-p+-c+acme.cfg+A-100>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_PRODUCTFILE#>", "-"},
      // Secure switch: the secure keys, else the non-secure ones; never "//".
      {kSecure, 0, nullptr, nullptr, "/", nullptr, "<a href=\"PG_SSLSWITCH#/order.html\" id=b>",
       "<a href=\"NOPARSE#https://s.example/scgi/Tillbox.cgi/acme/order.html?L+secure+"
       "%%tillbox.sessionid%%\" id=b>"},
      {kSecure, 0, nullptr, nullptr, "/", nullptr, "<form action='USERPROG#PG_SSLSWITCH#pay.cgi'>",
       "<form action='NOPARSE#https://s.example/scgi/Tillbox.cgi/acme/pay.cgi?U+secure+"
       "%%tillbox.sessionid%%'>"},
      {"CGIBinDirectory\t/cgi-bin\nStoreDir\t/\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_SSLSWITCH#o.html>",
       "<a href=NOPARSE#/cgi-bin/Tillbox.cgi/o.html?L+acme+%%tillbox.sessionid%%>"},
      // Non-secure switch: the query marker follows the action keyword.
      {kNonSecure, 0, nullptr, nullptr, "/", nullptr,
       "<a href=\"GEOGRAPHY#PG_NONSSLSWITCH#/g.html\">",
       "<a href=\"NOPARSE#http://www.example/cgi-bin/Tillbox.cgi/acme/g.html?R+acme+"
       "%%tillbox.sessionid%%\">"},
      {kNonSecure, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_NONSSLSWITCH#PG_SEARCHPAGE#>",
       "<a "
       "href=NOPARSE#http://www.example/cgi-bin/Tillbox.cgi/store?L+acme+%%tillbox.sessionid%%>"},
      // Through the cart program to the shop home page.
      {kCgi, 0, nullptr, nullptr, "/shop/", nullptr, "<a href=PG_TILLBOX#>",
       "<a href=/cgi-bin/Tillbox.cgi/shop/index.html?E+acme>"},
      {kCgi, 0, nullptr, nullptr, "shop/", "/tb/bin/Tillbox.cgi", "<a href=PG_TILLBOX#>",
       "<a href=/tb/bin/Tillbox.cgi/index.html?E+acme>"},
      {kCgi, 0, nullptr, nullptr, "/shop/", nullptr, "<a href=PG_STOREENTERURL#>",
       "<a href=NOPARSE#/cgi-bin/Tillbox.cgi/shop/index.html?E+acme+%%Tillbox.cart.AffiliateID%%>"},
      {"NonSecureDomain\thttp://www.example\n", 0, nullptr, nullptr, "shop/", "/tb/Tillbox.cgi",
       "<a href=PG_STOREENTERURL#>",
       "<a href=NOPARSE#http://www.example/tb/Tillbox.cgi/index.html?E+acme+"
       "%%Tillbox.cart.AffiliateID%%>"},
      // Exit: the store directory, without a double slash behind the domain.
      {"NonSecureDomain\thttp://www.example\nStoreDir\t/acme/\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_STOREEXITURL#/a.html>", "<a href=NOPARSE#http://www.example/acme/a.html>"},
      {"NonSecureDomain\thttp://www.example/\nStoreDir\tacme\n", 0, nullptr, nullptr, "/", nullptr,
       "<a href=PG_StoreExitUrl#a.html>", "<a href=NOPARSE#http://www.example/acme/a.html>"},
      {"StoreDir\t/acme\n", 0, nullptr, nullptr, "/", nullptr, "<a href=PG_STOREEXITURL#\\a.html>",
       "<a href=NOPARSE#/acme/a.html>"},
      // The index is not set up: no search page path, no gateway.
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=PG_SEARCHPAGE#>", "<a href=/store>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<form action=PG_WWWWAIS#>", "<form action=>"},
      // The first keyword of the list wins, wherever it stands.
      {kCgi, 0, "Tea", nullptr, "/", nullptr, "<a title=PG_TILLBOX# href=PG_CATEGORYFILE#>",
       "<a title=PG_TILLBOX# href=/c-Tea.html>"},
      {kCgi, 0, nullptr, nullptr, "/", nullptr, "<a href=\"x.html\">", "-"},
  };
  for (const auto& c : cases) {
    ResetRunState();
    CopyTruncated(PageGenState.szShopHomeName, "index.html");
    CopyTruncated(PageGenState.szHtmlAlias, "/store");
    testing::WriteFile(cfg, std::string("TillboxExtension\tcgi\n") + c.config);
    if (c.script != nullptr) {
      setenv("SCRIPT_NAME", c.script, 1);
    } else {
      unsetenv("SCRIPT_NAME");
    }
    PageContext ctx;
    ctx.store_cfg = cfg.c_str();
    ctx.options = kGenRewriteLinks | c.options;
    ctx.category = c.category;
    ctx.product = c.product;
    ctx.page_path = c.page_path;

    char* text = nullptr;
    std::size_t length = 0;
    PageOutput out;
    out.fp = open_memstream(&text, &length);
    int rc = ExpandLinkKeyword(&out, c.in, ctx);
    std::fclose(out.fp);
    EXPECT_EQ(rc == 1 ? std::string(text, length) : "-", c.out) << c.in << "\n" << c.config;
    EXPECT_TRUE(rc == 1 || length == 0) << c.in;
    std::free(text);
  }
  unsetenv("SCRIPT_NAME");
  ResetRunState();
}

}  // namespace
}  // namespace storegen
