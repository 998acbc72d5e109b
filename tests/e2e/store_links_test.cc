// The links of the generated sample store: walked page by page, they lead to
// pages the run wrote, and the templates' relative links come out absolute
// under the store's HTML alias with their action keywords in front.
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;
using testing::FileExists;
using testing::InstallStoregen;
using testing::ListDir;
using testing::ReadFile;
using testing::RunOptions;
using testing::RunProgram;
using testing::RunResult;
using testing::ScopedTempDir;
using testing::WriteFile;

constexpr const char* kActionKeywords[] = {
    "ADDTOCART#", "CLEARCART#", "GEOGRAPHY#",     "USERGEN#",     "USERPROG#",
    "IMAGEMAP#",  "TAKEORDER#", "MAILFORM#",      "ADDPRODUCT#",  "CYBERCASH#",
    "WALLET#",    "NOPARSE#",   "PWAY_USERPROG#", "PWAY_WALLET#",
};

// A link as the cart sees it: an action keyword (or none) and the target.
struct Link {
  std::string keyword;
  std::string target;
};

Link SplitLink(const std::string& value) {
  for (const char* keyword : kActionKeywords) {
    if (value.rfind(keyword, 0) == 0) return {keyword, value.substr(std::string(keyword).size())};
  }
  return {"", value};
}

bool HasScheme(const std::string& target) {
  std::size_t colon = target.find(':');
  return colon != std::string::npos && colon < target.find_first_of("/?");
}

// The link values of the tags whose links the generator rewrites.
std::vector<std::string> Links(const std::string& html) {
  static const std::regex tag(R"(<(img|a|form|body|frame|area|base)\s[^>]*>)", std::regex::icase);
  static const std::regex attribute(
      R"(\b(src|href|action|background)\s*=\s*("[^"]*"|'[^']*'|[^\s>]+))", std::regex::icase);
  std::vector<std::string> links;
  for (std::sregex_iterator t(html.begin(), html.end(), tag), end; t != end; ++t) {
    const std::string markup = t->str();
    std::smatch m;
    if (!std::regex_search(markup, m, attribute)) continue;
    std::string value = m[2].str();
    if (value.front() == '"' || value.front() == '\'') value = value.substr(1, value.size() - 2);
    links.push_back(value);
  }
  return links;
}

void ReplaceLine(const std::string& path, const std::string& key, const std::string& value) {
  std::string text = ReadFile(path);
  std::size_t at = text.find("\n" + key + "\t");
  if (at == std::string::npos) {
    text += key + "\t" + value + "\n";
  } else {
    std::size_t end = text.find('\n', at + 1);
    text.replace(at + 1, end - at - 1, key + "\t" + value);
  }
  WriteFile(path, text);
}

class StoreLinksTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bin_ = InstallStoregen(dir_.Path("bin"));
    fs::copy(SAMPLE_DIR, store_, fs::copy_options::recursive);
    ReplaceLine(Store("lantern.cfg"), "ProductDatabase", Store("products.txt"));
  }

  std::string Store(const std::string& name) const { return store_ + "/" + name; }
  std::string Page(const std::string& name) const { return pages_ + "/" + name; }

  RunResult StaticRun(const std::vector<std::string>& extra = {}) {
    std::vector<std::string> args = {bin_, "-o", dir_.Path("www"), "-c", Store("lantern.cfg")};
    args.insert(args.end(), extra.begin(), extra.end());
    RunOptions options;
    options.unset_env = {"PATH_INFO", "PATH_TRANSLATED", "SCRIPT_NAME"};
    return RunProgram(args, options);
  }

  std::vector<std::string> HtmlPages() const {
    std::vector<std::string> pages;
    for (const std::string& name : ListDir(pages_))
      if (name.ends_with(".html")) pages.push_back(name);
    return pages;
  }

  ScopedTempDir dir_;
  std::string bin_;
  std::string store_ = dir_.Path("store");
  std::string pages_ = dir_.Path("www/lantern");
};

TEST_F(StoreLinksTest, EveryLinkToAGeneratedPageNamesAPageTheRunWrote) {
  // The store is served under the alias /shop.
  ReplaceLine(Store("lantern.cfg"), "StoreDir", "/shop/lantern/");
  RunResult r = StaticRun({"-a", "/shop", "-s", "0"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;

  const std::regex page_link(R"(/shop/lantern/([^/?#"]+\.html))");
  std::set<std::string> linked;
  for (const std::string& name : HtmlPages()) {
    const std::string html = ReadFile(Page(name));
    EXPECT_EQ(html.find("PG_"), std::string::npos) << "keyword left in " << name;
    for (const std::string& value : Links(html)) {
      Link link = SplitLink(value);
      // Links with a scheme are complete URLs; every other link is a path
      // under the alias, or one into the CGI directory for the cart's
      // programs.
      if (!HasScheme(link.target)) {
        EXPECT_TRUE(link.target.starts_with("/shop/") || link.target.starts_with("/cgi-bin/"))
            << value << " in " << name;
      }
      for (std::sregex_iterator m(value.begin(), value.end(), page_link), end; m != end; ++m) {
        std::string target = (*m)[1].str();
        EXPECT_TRUE(FileExists(Page(target))) << value << " in " << name;
        linked.insert(target);
      }
    }
  }
  // Every kind of generated page is reached: category pages, the list pages
  // that continue the shop home page and a category, products.
  for (const char* page : {"c-Lighting.html", "c-Garden.html", "c-Kitchen1.html", "index1.html",
                           "index2.html", "p-LL-106.html", "p-TX-207.html", "order.html"}) {
    EXPECT_EQ(linked.count(page), 1u) << page;
  }
  EXPECT_EQ(linked.count("c-Garden1.html"), 0u);  // six products fit on one page

  // The templates' relative links, keyword in front, in a page of each.
  const std::map<std::string, std::string> page_of = {
      {"home.html", "index.html"},       {"category.html", "c-Kitchen.html"},
      {"product.html", "p-LL-101.html"}, {"gift.html", "p-TX-207.html"},
      {"about.html", "about.html"},      {"contact.html", "contact.html"},
      {"cart.html", "cart.html"},        {"order.html", "order.html"},
  };
  int relative = 0;
  for (const auto& [tmpl, page] : page_of) {
    const std::vector<std::string> written = Links(ReadFile(Page(page)));
    for (const std::string& value : Links(ReadFile(Store("modern/" + tmpl)))) {
      Link link = SplitLink(value);
      if (link.target.empty() || link.target[0] == '/' || HasScheme(link.target) ||
          link.target.find("%%") != std::string::npos || link.target.find("PG_") == 0) {
        continue;
      }
      ++relative;
      const std::string absolute = link.keyword + "/shop/lantern/" + link.target;
      EXPECT_NE(std::find(written.begin(), written.end(), absolute), written.end())
          << value << " of " << tmpl << " not written as " << absolute << " in " << page;
    }
  }
  EXPECT_GT(relative, 50);
}

TEST_F(StoreLinksTest, ListPagesServedByTheCartLinkThroughThePageGenerator) {
  ReplaceLine(Store("lantern.cfg"), "PageGenDynamicListPages", "yes");
  RunResult r = StaticRun({"-s", "0"});
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;

  // The product pages are still written, since the lists link to them; the
  // list pages are not.
  std::vector<std::string> pages = HtmlPages();
  EXPECT_EQ(std::count_if(pages.begin(), pages.end(),
                          [](const std::string& p) { return p.rfind("p-", 0) == 0; }),
            32);
  EXPECT_FALSE(FileExists(Page("index1.html")));
  EXPECT_FALSE(FileExists(Page("c-Lighting.html")));

  const std::string home = ReadFile(Page("index.html"));
  EXPECT_NE(home.find("href=\"USERPROG#/cgi-bin/storegen?-c+lantern.cfg+-f+0+-C+Lighting\""),
            std::string::npos);
  EXPECT_NE(home.find("<A HREF=\"USERPROG#/cgi-bin/storegen?-c+lantern.cfg+-f+12\">&gt;&gt;</A>"),
            std::string::npos);
  EXPECT_NE(home.find("href=\"/lantern/p-LL-101.html\""), std::string::npos);
}

}  // namespace
}  // namespace storegen
