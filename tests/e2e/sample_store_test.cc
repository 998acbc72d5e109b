// End-to-end runs of storegen over a copy of the sample store, and a walk over
// the links of the pages it writes.
#include "tests/support/sample_store.h"

#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "driver/request.h"
#include "tests/support/test_util.h"

namespace storegen::testing {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::size_t Count(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++n;
  return n;
}

// A copy of the sample store: the program in bin/ beside the search gateway
// template, the indexer's template in swish/, the store in store/.
class SampleStoreTest : public ::testing::Test {
 protected:
  void SetUp() override { store_ = InstallSampleStore(dir_.path()); }

  std::string Store(const std::string& name) const { return dir_.Path("store/" + name); }
  std::string Page(const std::string& name) const { return store_.pages + name; }
  // The search page is named after the store's index, "<name>.wcf" in
  // swish/: the store configuration's path up to its first ".".
  std::string SearchPage() const {
    for (const std::string& name : ListDir(dir_.Path("swish")))
      if (name.ends_with(".wcf")) return Page(name.substr(0, name.size() - 4) + ".html");
    return Page("(no index)");
  }

  RunResult Run(std::vector<std::string> args) {
    args.insert(args.begin(), store_.bin);
    RunOptions options;
    options.unset_env = {"PATH_INFO", "PATH_TRANSLATED", "SCRIPT_NAME"};
    return RunProgram(args, options);
  }
  RunResult StaticRun(std::vector<std::string> extra = {"-s", "0"}) {
    std::vector<std::string> args = {"-o", store_.out, "-c", store_.cfg};
    args.insert(args.end(), extra.begin(), extra.end());
    return Run(args);
  }

  // The SKUs of the sample's product database, in database order.
  std::vector<std::string> Skus() const {
    std::vector<std::string> skus;
    std::vector<std::string> lines = Lines(ReadFile(Store("products.txt")));
    for (std::size_t i = 1; i < lines.size(); ++i)
      skus.push_back(lines[i].substr(0, lines[i].find('\t')));
    return skus;
  }

  // The pages in the store's output directory, as absolute paths.
  std::set<std::string> PagesWritten() const {
    std::set<std::string> pages;
    for (const std::string& name : ListDir(store_.pages))
      if (name.ends_with(".html")) pages.insert(Page(name));
    return pages;
  }

  // The pages a full run of the unchanged sample writes.
  std::set<std::string> SamplePages() const {
    std::set<std::string> pages = {SearchPage()};
    // The shop home page lists 12 products a page, the category pages 6.
    for (const char* page :
         {"index.html", "about.html", "shipping.html", "contact.html", "cart.html", "order.html",
          "error.html", "index1.html", "index2.html", "c-Lighting.html", "c-Textiles.html",
          "c-Textiles1.html", "c-Kitchen.html", "c-Kitchen1.html", "c-Stationery.html",
          "c-Garden.html"}) {
      pages.insert(Page(page));
    }
    for (const std::string& sku : Skus())
      pages.insert(Page("p-" + sku + ".html"));
    return pages;
  }

  std::set<std::string> FileListEntries() const {
    std::vector<std::string> lines = Lines(ReadFile(Page("Xzq3Jpo9")));
    return {lines.begin(), lines.end()};
  }

  ScopedTempDir dir_;
  SampleStore store_;
};

// Every page of the sample with its tags replaced, listed in the file list;
// the cart learns where its pages are. The next full run removes the page of
// a product no longer in the database, and the list page it alone filled.
TEST_F(SampleStoreTest, FullRunsWriteEveryPageAndRemoveTheStaleOnes) {
  ASSERT_EQ(StaticRun().exit_code, 0);
  std::set<std::string> expected = SamplePages();
  EXPECT_EQ(PagesWritten(), expected);
  EXPECT_EQ(FileListEntries(), expected);
  for (const std::string& page : expected) {
    std::string html = ReadFile(page);
    for (const char* left :
         {"%%PRODUCT.", "%%CATEGORY.", "PAGEGEN_STORE", "PAGEGEN_BODYTAG", "PG_"})
      EXPECT_EQ(html.find(left), std::string::npos) << left << " in " << page;
    EXPECT_EQ(Count(html, "<html"), 1u) << page;
  }
  EXPECT_NE(ReadFile(store_.cfg)
                .find("PostModCartPage\t/lantern/cart.html\nOnlineOrderPage\t"
                      "/lantern/order.html\nErrorPage\t/lantern/error.html\n"),
            std::string::npos);

  std::string products;
  for (const std::string& line : Lines(ReadFile(Store("products.txt"))))
    if (!line.starts_with("KT-305\t")) products += line + "\n";
  WriteFile(Store("products.txt"), products);
  RunResult r = StaticRun();
  ASSERT_EQ(r.exit_code, 0) << r.out;
  expected = SamplePages();
  expected.erase(Page("c-Kitchen1.html"));  // six products fit on one page
  EXPECT_EQ(PagesWritten(), expected);
  EXPECT_EQ(FileListEntries(), expected);
}

TEST_F(SampleStoreTest, SingleSitePageRun) {
  RunResult r = StaticRun({"-s", "3"});
  ASSERT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(PagesWritten(), std::set<std::string>{Page("contact.html")});
  EXPECT_NE(ReadFile(Page("contact.html")).find("hello@lantern-and-loom.example"),
            std::string::npos);

  r = StaticRun({"-s", "9"});  // no such site page
  EXPECT_EQ(r.exit_code, 0) << r.out;
  EXPECT_EQ(PagesWritten(), std::set<std::string>{Page("contact.html")});
}

// The whole content of |fp|, which is closed.
std::string Contents(FILE* fp) {
  std::string text(static_cast<std::size_t>(std::ftell(fp)), '\0');
  std::rewind(fp);
  text.resize(std::fread(text.data(), 1, text.size(), fp));
  std::fclose(fp);
  return text;
}

// A process serving one request after another answers each as a process of
// its own does: the same bytes and exit status, whatever came before.
TEST_F(SampleStoreTest, RequestsServedInOneProcessAnswerAsSeparateProcesses) {
  const std::vector<std::vector<std::string>> requests = {
      {"-c", store_.cfg, "-p", "LL-102"},  {"-v", "-c", store_.cfg, "-C", "Garden", "-f", "2"},
      {"-c", store_.cfg, "-p", "NO-SUCH"}, {"-c", store_.cfg, "-f", "0"},
      {"-c", store_.cfg, "-p", "LL-102"},  {"-c", store_.cfg, "-p", "NO-SUCH"},
  };
  std::vector<RunResult> separate;
  for (const auto& args : requests)
    separate.push_back(Run(args));
  for (std::size_t i = 0; i < requests.size(); ++i) {
    std::vector<std::string> args = requests[i];
    args.insert(args.begin(), store_.bin);
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    ASSERT_TRUE(out != nullptr && err != nullptr);
    const int rc = RunDynamicRequest(args, fileno(out), fileno(err));
    EXPECT_EQ(ExitStatusOf(rc), separate[i].exit_code) << i;
    EXPECT_EQ(Contents(out), separate[i].out) << i;
    EXPECT_EQ(Contents(err), separate[i].err) << i;
  }
}

// A category list request uses the category list template once the store
// names one, the shop home page's list template before; a request without a
// category keeps the latter.
TEST_F(SampleStoreTest, CategoryListRequestsUseTheCategoryListTemplate) {
  for (const char* heading : {"<h1>Products</h1>", "<h1>Garden</h1>"}) {
    RunResult category = Run({"-c", store_.cfg, "-C", "Garden", "-f", "0"});
    EXPECT_EQ(category.exit_code, 0) << category.out;
    EXPECT_NE(category.out.find(heading), std::string::npos) << category.out;
    SetConfigKeys(store_.cfg, {{"PageGenCategoryListTplt", "modern/category.html"}});
  }
  RunResult home = Run({"-c", store_.cfg, "-f", "0"});
  EXPECT_NE(home.out.find("<h1>Products</h1>"), std::string::npos) << home.out;
}

TEST_F(SampleStoreTest, FailingPagesAreReportedInGenerationOrderAndTheRunGoesOn) {
  SetConfigKeys(Store("modern.cfg"), {{"SitePage1", "About;modern/gone.html;about.html"},
                                      {"TillboxPage3", "Error;modern/gone.html;error.html"},
                                      {"ProductPage2", "Broken;modern/gone.html"}});
  std::string products = ReadFile(Store("products.txt"));
  std::size_t at = products.find("\nGD-506\t");
  for (int field = 0; field < 4; ++field)  // to its TILLBOXTEMPLATE
    at = products.find('\t', at + 1);
  WriteFile(Store("products.txt"),
            products.replace(at + 1, products.find('\t', at + 1) - at - 1, "Broken"));

  RunResult r = StaticRun();
  EXPECT_EQ(r.exit_code, ExitStatusOf(-7));
  // Site pages, the shop home page's lists (the thumbnail of LL-106), the
  // product pages, the cart pages.
  at = 0;
  for (const char* entry :
       {"about.html\t-7\n", "%%PRODUCT.THUMBNAIL%%\t-19\nLL-106\t-19\n",
        "%%PRODUCT.GRAPHIC%%\t-19\nLL-106\t-19\nGD-506\t-7\n", "error.html\t-7\n"}) {
    at = r.out.find(entry, at);
    ASSERT_NE(at, std::string::npos) << entry << " in order in\n" << r.out;
  }
  // Everything else was written.
  std::set<std::string> expected = SamplePages();
  for (const char* failed : {"about.html", "error.html", "p-GD-506.html"})
    expected.erase(Page(failed));
  EXPECT_EQ(PagesWritten(), expected);
  EXPECT_TRUE(FileExists(Page("index.html")));
  EXPECT_TRUE(FileExists(Page("order.html")));
}

}  // namespace
}  // namespace storegen::testing
