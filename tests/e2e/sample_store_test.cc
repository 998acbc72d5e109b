// End-to-end runs of storegen over a copy of the sample store, and a walk over
// the links of the pages it writes.
#include "tests/concurrency/sample_store.h"

#include <cstdio>
#include <filesystem>
#include <map>
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

TEST_F(SampleStoreTest, StaticRunWritesEveryPageWithItsTagsReplaced) {
  RunResult r = StaticRun();
  ASSERT_EQ(r.exit_code, 0) << r.out << r.err;

  const std::set<std::string> expected = SamplePages();
  EXPECT_EQ(PagesWritten(), expected);
  EXPECT_EQ(FileListEntries(), expected);

  for (const std::string& page : expected) {
    std::string html = ReadFile(page);
    for (const char* left : {"%%PRODUCT.", "%%CATEGORY.", "PAGEGEN_STORE", "PAGEGEN_BODYTAG",
                             "PAGEGEN_CURRENCYSYMBOL", "PG_"}) {
      EXPECT_EQ(html.find(left), std::string::npos) << left << " in " << page;
    }
    EXPECT_EQ(Count(html, "<html"), 1u) << page;
  }
  std::string lamp = ReadFile(Page("p-LL-101.html"));
  EXPECT_NE(lamp.find("<h1>Brass Table Lamp</h1>"), std::string::npos);
  EXPECT_NE(lamp.find("<p class=\"price\">$89.00</p>"), std::string::npos);
  EXPECT_NE(ReadFile(Page("p-TX-207.html")).find("letterpress envelope"), std::string::npos)
      << "a product's own template";
  EXPECT_NE(ReadFile(Page("p-LL-106.html")).find("/lantern/images/placeholder.svg"),
            std::string::npos);

  // The run's report: the product without a picture.
  EXPECT_NE(r.out.find("%%PRODUCT.GRAPHIC%%\t-19\nLL-106\t-19\n"), std::string::npos) << r.out;
  // The cart learns where its pages are.
  std::string cfg = ReadFile(store_.cfg);
  EXPECT_NE(cfg.find("OnlineOrderPage\t/lantern/order.html\n"), std::string::npos);
  EXPECT_NE(cfg.find("PostModCartPage\t/lantern/cart.html\n"), std::string::npos);
  EXPECT_NE(cfg.find("ErrorPage\t/lantern/error.html\n"), std::string::npos);
}

TEST_F(SampleStoreTest, NextFullRunRemovesTheStalePageOfARemovedProduct) {
  ASSERT_EQ(StaticRun().exit_code, 0);
  ASSERT_TRUE(FileExists(Page("p-KT-305.html")));

  std::string products;
  for (const std::string& line : Lines(ReadFile(Store("products.txt"))))
    if (!line.starts_with("KT-305\t")) products += line + "\n";
  WriteFile(Store("products.txt"), products);
  RunResult r = StaticRun();
  ASSERT_EQ(r.exit_code, 0) << r.out;

  // The kitchen's second list page went with it: six products fit on one.
  std::set<std::string> expected = SamplePages();
  expected.erase(Page("c-Kitchen1.html"));
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

TEST_F(SampleStoreTest, DynamicRequestsWriteOnePageToStandardOutputOnly) {
  const std::vector<std::string> before = ListDir(Store(""));
  struct {
    std::vector<std::string> args;
    const char* contains;
  } cases[] = {
      {{"-c", store_.cfg, "-p", "LL-102"}, "<h1>Paper Lantern</h1>"},
      {{"-c", store_.cfg, "-p", "ll-102"}, "<h1>Paper Lantern</h1>"},
      {{"-c", store_.cfg, "-f", "0"}, "<h1>Products</h1>"},
      {{"-c", store_.cfg, "-C", "Garden", "-f", "2"}, "<h1>Products</h1>"},
  };
  for (const auto& c : cases) {
    RunResult r = Run(c.args);
    EXPECT_EQ(r.exit_code, 0) << c.args[3] << r.out;
    EXPECT_TRUE(r.out.starts_with("Content-type: text/html\n\n<!DOCTYPE html>")) << r.out;
    EXPECT_EQ(Count(r.out, "Content-type:"), 1u);
    EXPECT_EQ(Count(r.out, "<html"), 1u);
    EXPECT_NE(r.out.find(c.contains), std::string::npos) << r.out;
  }
  EXPECT_EQ(ListDir(store_.out), std::vector<std::string>{});
  EXPECT_EQ(ListDir(Store("")), before);

  RunResult unknown = Run({"-c", store_.cfg, "-p", "NO-SUCH"});
  EXPECT_EQ(unknown.exit_code, ExitStatusOf(-2));
  EXPECT_EQ(unknown.out, "");
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
// names one; a request without a category keeps the shop home page's list
// template. (Without that key, the cases above show the fallback.)
TEST_F(SampleStoreTest, CategoryListRequestsUseTheCategoryListTemplate) {
  SetConfigKeys(store_.cfg, {{"PageGenCategoryListTplt", "modern/category.html"}});
  RunResult category = Run({"-c", store_.cfg, "-C", "Garden", "-f", "0"});
  EXPECT_EQ(category.exit_code, 0) << category.out;
  EXPECT_NE(category.out.find("<h1>Garden</h1>"), std::string::npos) << category.out;
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

// Product pages written by two processes: the same pages, messages, error
// list and file list as when one process writes them all, with failing
// pages in both halves.
TEST_F(SampleStoreTest, ProductPagesWrittenByTwoProcessesAreThoseOfOne) {
  // Early and late in the database, each half's with its own code: the run
  // ends with the code of the last failing page, the second process's.
  std::string products = ReadFile(Store("products.txt"));
  for (const auto& [sku, tmpl] : {std::pair{"\nLL-101\t", "Broken"}, {"\nGD-506\t", "Folder"}}) {
    std::size_t at = products.find(sku);
    ASSERT_NE(at, std::string::npos) << sku;
    for (int field = 0; field < 4; ++field)  // to its TILLBOXTEMPLATE
      at = products.find('\t', at + 1);
    products.replace(at + 1, products.find('\t', at + 1) - at - 1, tmpl);
  }
  WriteFile(Store("products.txt"), products);
  SetConfigKeys(Store("modern.cfg"), {{"ProductPage2", "Broken;modern/gone.html"},
                                      {"ProductPage3", "Folder;modern/images"}});
  const std::string cfg = ReadFile(store_.cfg);

  struct Outcome {
    RunResult run;
    std::map<std::string, std::string> files;
    std::string cfg;  // the store configuration as the run left it
  };
  auto run = [&](const std::string& processes) {
    const std::string out = dir_.Path("out" + processes);
    WriteFile(store_.cfg, cfg);
    RunOptions options;
    options.unset_env = {"PATH_INFO", "PATH_TRANSLATED", "SCRIPT_NAME"};
    options.set_env = {{"STOREGEN_PAGE_PROCESSES", processes}};
    Outcome o{RunProgram({store_.bin, "-o", out, "-c", store_.cfg, "-s", "0"}, options), {}, ""};
    o.cfg = ReadFile(store_.cfg);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(out)) {
      if (!entry.is_regular_file()) continue;
      std::string text = ReadFile(entry.path().string());
      // The file list names the output directory.
      for (std::size_t at; (at = text.find(out)) != std::string::npos;)
        text.replace(at, out.size(), "OUT");
      o.files[entry.path().string().substr(out.size())] = text;
    }
    return o;
  };
  Outcome one = run("1");
  Outcome two = run("2");
  EXPECT_EQ(one.run.exit_code, ExitStatusOf(-10));
  EXPECT_EQ(two.run.exit_code, one.run.exit_code);
  EXPECT_EQ(two.run.out, one.run.out);
  EXPECT_NE(one.run.out.find("LL-101\t-7\n"), std::string::npos) << one.run.out;
  EXPECT_NE(one.run.out.find("GD-506\t-10\n"), std::string::npos) << one.run.out;
  EXPECT_EQ(two.files.size(), one.files.size());
  for (const auto& [name, text] : one.files)
    EXPECT_EQ(two.files[name], text) << name;
  EXPECT_EQ(two.cfg, one.cfg);
}

}  // namespace
}  // namespace storegen::testing
