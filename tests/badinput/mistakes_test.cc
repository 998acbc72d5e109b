// A store owner's usual mistakes, each made once in a copy of the sample
// store: without -v the run says on standard error which file (and line) is
// at fault and what to do; standard output keeps only what the run has
// always printed there, and with -v the old messages are where they were.
#include <cstdio>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

// "@" stands for the test directory, "{FILE|TEXT}" for "@/store/FILE:N", N
// being the number of the first line of the file that holds TEXT.
std::string Expand(std::string text, const std::string& dir) {
  for (std::size_t open; (open = text.find('{')) != std::string::npos;) {
    const std::size_t bar = text.find('|', open), close = text.find('}', bar);
    const std::string file = dir + "/store/" + text.substr(open + 1, bar - open - 1);
    const std::string what = text.substr(bar + 1, close - bar - 1);
    std::istringstream lines(ReadFile(file));
    std::string line;
    int n = 1;
    while (std::getline(lines, line) && line.find(what) == std::string::npos)
      ++n;
    text.replace(open, close + 1 - open, file + ":" + std::to_string(n));
  }
  for (std::size_t at; (at = text.find('@')) != std::string::npos;)
    text.replace(at, 1, dir);
  return text;
}

// Makes the mistake in the store: |from| replaced by |to| in |file|, or the
// file removed when |to| is null; no file: no change.
void Make(const SampleStore& store, const std::string& file, const std::string& from,
          const char* to) {
  const std::string path = store.root + "/store/" + file;
  if (file.empty()) return;
  if (to == nullptr) {
    std::remove(path.c_str());
    return;
  }
  std::string text = ReadFile(path);
  std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from << " not in " << file;
  WriteFile(path, text.replace(at, from.size(), to));
}

enum Command { kStaticRun, kRelativeConfig, kUnknownProduct };

struct Mistake {
  const char* name;
  const char* file;  // in the store's directory, with what to replace
  const char* from;
  const char* to;
  Command command;
  int code;
  // What standard error says without -v, the first part being where.
  std::vector<std::string> says;
  const char* verbose;  // the verbose message on standard output; "" for a warning
};

TEST(Mistakes, EachIsToldOnStandardErrorWithStandardOutputUnchanged) {
  // clang-format off
  const Mistake mistakes[] = {
      {"misspelt required key", "lantern.cfg", "PageGenTmpltSet\t", "PageGenTmpltSte\t",
       kStaticRun, -3, {"{lantern.cfg|PageGenTmpltSte}: required key",
                        "\"PageGenTmpltSte\" there is not \"PageGenTmpltSet\""},
       "PageGenTmpltSet not found in"},
      {"wrong template-set name", "lantern.cfg", "PageGenTmpltSet\tmodern",
       "PageGenTmpltSet\tmodrn", kStaticRun, -5,
       {"@/store/modrn.cfg: template set not found", "{lantern.cfg|PageGenTmpltSet}"},
       "Error processing template set config file"},
      {"missing template file", "modern/product.html", "", nullptr, kStaticRun, -7,
       {"{modern.cfg|modern/product.html}: cannot open the template "
        "@/store/modern/product.html",
        "error list: 31 entries with -7: the page named was not written",
        "the run ended with -7 (exit status 249)"},
       "Unable to open file modern/product.html\n"},
      {"missing category template", "modern/home.html", "modern/category.html",
       "modern/categry.html", kStaticRun, 0,
       {"{modern/home.html|CategoryTemplate}: warning: CategoryTemplate "
        "\"modern/categry.html\" does not exist"}, ""},
      {"product line with missing fields", "products.txt", "\tNA\t1:1,2\t", "\tNA\n",
       kStaticRun, 0,
       {"@/store/products.txt:3: warning: \"LL-102\" has 5 of the name line's 9 fields"}, ""},
      {"unknown column in a tag", "modern/product.html", "PRODUCT.PRICE", "PRODUCT.PRCE",
       kStaticRun, 0,
       {"{modern/product.html|PRODUCT.PRCE}: warning: %%PRODUCT.PRCE%% names no column of the "
        "product database (is PRICE meant?)"}, ""},
      {"relative -c from the wrong directory", "", "", "", kRelativeConfig, -2,
       {"@/bin/store/lantern.cfg: store configuration not found; relative paths are taken "
        "from the program's directory, @/bin", "give its full path, @/store/lantern.cfg"},
       "File not found:"},
      {"bad ProductAPILibrary path", "lantern.cfg", "ShopName\t",
       "ProductAPILibrary\tlibnothere.so\nShopName\t", kStaticRun, -6,
       {"@/bin/libnothere.so: cannot use the product library (ProductAPILibrary in "
        "{lantern.cfg|ProductAPILibrary})"},
       "Error initializing product API\n"},
      {"missing attribute database", "products.adb", "", nullptr, kStaticRun, 0,
       {"@/store/products.adb: warning: product \"LL-101\": TILLBOXATTRIBUTES names attribute "
        "5, but the attribute database does not exist"}, ""},
      {"unknown product of a product page", "", "", "", kUnknownProduct, -2,
       {"@/store/products.txt: no product \"NO-SUCH\""}, ""},
  };
  // clang-format on
  // Standard output holds nothing but the error list of a static run.
  const std::regex error_list("([^\t\n]*\t-?[0-9]+\n)*");
  for (const Mistake& m : mistakes) {
    for (bool verbose : {false, true}) {
      ScopedTempDir dir;
      SampleStore store = InstallSampleStore(dir.path());
      Make(store, m.file, m.from, m.to);
      std::vector<std::string> args =
          m.command == kUnknownProduct ? store.ProductPage("NO-SUCH") : store.StaticRun();
      if (m.command == kRelativeConfig)
        args = {store.bin, "-o", store.out, "-c", "store/lantern.cfg"};
      if (verbose) args.insert(args.begin() + 1, "-v");
      RunOptions options;
      options.cwd = dir.path();
      RunResult run = RunProgram(args, options);
      EXPECT_EQ(run.exit_code, ExitStatusOf(m.code)) << m.name << "\n" << run.err;
      std::vector<std::string> says;
      for (const std::string& part : m.says)
        says.push_back(Expand(part, dir.path()));
      for (const std::string& part : says) {
        EXPECT_TRUE(verbose || run.err.find(part) != std::string::npos)
            << m.name << ": " << part << "\n"
            << run.err;
      }
      // With -v an error is told on standard output only; a warning, which
      // has no place there, still on standard error.
      EXPECT_EQ(run.err.find(says[0]) != std::string::npos, !verbose || m.verbose[0] == '\0')
          << m.name << (verbose ? " (-v)" : "") << "\n"
          << run.err;
      if (verbose) {
        EXPECT_NE(run.out.find(m.verbose), std::string::npos) << m.name << "\n" << run.out;
      } else {
        EXPECT_TRUE(std::regex_match(run.out, error_list)) << m.name << "\n" << run.out;
      }
    }
  }
}

// Product pages written by two processes: a warning that both meet is
// still told once.
TEST(Mistakes, AreToldOnceWhenTwoProcessesWriteThePages) {
  ScopedTempDir dir;
  SampleStore store = InstallSampleStore(dir.path());
  WriteManyProducts(store, 1200);
  Make(store, "modern/product.html", "PRODUCT.PRICE", "PRODUCT.PRCE");
  RunOptions options;
  options.set_env["STOREGEN_PAGE_PROCESSES"] = "2";
  RunResult run = RunProgram(store.StaticRun(), options);
  EXPECT_EQ(run.exit_code, 0) << run.err;
  std::size_t told = 0;
  for (std::size_t at = 0; (at = run.err.find("%%PRODUCT.PRCE%%", at)) != std::string::npos; ++at)
    ++told;
  EXPECT_EQ(told, 1u) << run.err;
}

}  // namespace
}  // namespace storegen
