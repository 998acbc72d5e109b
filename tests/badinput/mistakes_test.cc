// A store owner's usual mistakes, each made once in a copy of the sample
// store: without -v the run says on standard error which file (and line) is
// at fault and what to do; standard output keeps only what the run has
// always printed there, and with -v the old messages are where they were.
#include <cstdio>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/concurrency/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using namespace testing;

// "FILE:N" for the first line of |file| that holds |text|.
std::string At(const std::string& file, const std::string& text) {
  std::istringstream lines(ReadFile(file));
  std::string line;
  for (int n = 1; std::getline(lines, line); ++n) {
    if (line.find(text) != std::string::npos) return file + ":" + std::to_string(n);
  }
  ADD_FAILURE() << text << " not in " << file;
  return file;
}

void Replace(const std::string& file, const std::string& from, const std::string& to) {
  std::string text = ReadFile(file);
  std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from << " not in " << file;
  WriteFile(file, text.replace(at, from.size(), to));
}

struct Mistake {
  const char* name;
  // Makes the mistake in the store; returns the command line (program first).
  std::function<std::vector<std::string>(const SampleStore&)> make;
  int code;
  // What standard error says without -v ("@" stands for the store's
  // directory); the first part is where, as "FILE:LINE" or "FILE".
  std::function<std::vector<std::string>(const std::string&)> says;
  const char* verbose;  // the verbose message on standard output; "" for a warning
};

TEST(Mistakes, EachIsToldOnStandardErrorWithStandardOutputUnchanged) {
  const std::string cfg = "/store/lantern.cfg";
  const Mistake mistakes[] = {
      {"misspelt required key",
       [](const SampleStore& s) {
         Replace(s.cfg, "PageGenTmpltSet\t", "PageGenTmpltSte\t");
         return s.StaticRun();
       },
       -3,
       [&](const std::string& d) {
         return std::vector<std::string>{At(d + cfg, "PageGenTmpltSte") + ": required key",
                                         "\"PageGenTmpltSte\" there is not \"PageGenTmpltSet\""};
       },
       "PageGenTmpltSet not found in"},
      {"wrong template-set name",
       [](const SampleStore& s) {
         Replace(s.cfg, "PageGenTmpltSet\tmodern", "PageGenTmpltSet\tmodrn");
         return s.StaticRun();
       },
       -5,
       [&](const std::string& d) {
         return std::vector<std::string>{d + "/store/modrn.cfg: template set not found",
                                         At(d + cfg, "PageGenTmpltSet")};
       },
       "Error processing template set config file"},
      {"missing template file",
       [](const SampleStore& s) {
         std::remove((s.root + "/store/modern/product.html").c_str());
         return s.StaticRun();
       },
       -7,
       [](const std::string& d) {
         return std::vector<std::string>{
             At(d + "/store/modern.cfg", "modern/product.html") + ": cannot open the template " +
                 d + "/store/modern/product.html",
             "error list: 31 entries with -7: the page named was not written",
             "the run ended with -7 (exit status 249)"};
       },
       "Unable to open file modern/product.html\n"},
      {"missing category template",
       [](const SampleStore& s) {
         Replace(s.root + "/store/modern/home.html", "modern/category.html", "modern/categry.html");
         return s.StaticRun();
       },
       0,
       [](const std::string& d) {
         return std::vector<std::string>{
             At(d + "/store/modern/home.html", "CategoryTemplate") +
             ": warning: CategoryTemplate \"modern/categry.html\" does not exist"};
       },
       ""},
      {"product line with missing fields",
       [](const SampleStore& s) {
         Replace(s.root + "/store/products.txt", "\tNA\t1:1,2\t", "\tNA\n");
         return s.StaticRun();
       },
       0,
       [](const std::string& d) {
         return std::vector<std::string>{d +
                                         "/store/products.txt:3: warning: \"LL-102\" has 5 of "
                                         "the name line's 9 fields"};
       },
       ""},
      {"unknown column in a tag",
       [](const SampleStore& s) {
         Replace(s.root + "/store/modern/product.html", "PRODUCT.PRICE", "PRODUCT.PRCE");
         return s.StaticRun();
       },
       0,
       [](const std::string& d) {
         return std::vector<std::string>{
             At(d + "/store/modern/product.html", "PRODUCT.PRCE") +
             ": warning: %%PRODUCT.PRCE%% names no column of the product database (is PRICE "
             "meant?)"};
       },
       ""},
      {"relative -c from the wrong directory",
       [](const SampleStore& s) {
         return std::vector<std::string>{s.bin, "-o", s.out, "-c", "store/lantern.cfg"};
       },
       -2,
       [](const std::string& d) {
         return std::vector<std::string>{d +
                                             "/bin/store/lantern.cfg: store configuration not "
                                             "found; relative paths are taken from the program's "
                                             "directory, " +
                                             d + "/bin",
                                         "give its full path, " + d + "/store/lantern.cfg"};
       },
       "File not found:"},
      {"missing -o",
       [](const SampleStore& s) {
         return std::vector<std::string>{s.bin, "-c", s.cfg};
       },
       -3,
       [](const std::string&) { return std::vector<std::string>{"a static run needs -o OutPath"}; },
       "Config file, OutPath, TargetDir and ProductDatabase required\n"},
      {"bad ProductAPILibrary path",
       [](const SampleStore& s) {
         SetConfigKeys(s.cfg, {{"ProductAPILibrary", "libnothere.so"}});
         return s.StaticRun();
       },
       -6,
       [&](const std::string& d) {
         return std::vector<std::string>{d +
                                         "/bin/libnothere.so: cannot use the product library "
                                         "(ProductAPILibrary in " +
                                         At(d + cfg, "ProductAPILibrary") + ")"};
       },
       "Error initializing product API\n"},
      {"missing attribute database",
       [](const SampleStore& s) {
         std::remove((s.root + "/store/products.adb").c_str());
         return s.StaticRun();
       },
       0,
       [](const std::string& d) {
         return std::vector<std::string>{d +
                                         "/store/products.adb: warning: product \"LL-101\": "
                                         "TILLBOXATTRIBUTES names attribute 5, but the "
                                         "attribute database does not exist"};
       },
       ""},
      {"unknown product of a product page",
       [](const SampleStore& s) { return s.ProductPage("NO-SUCH"); }, -2,
       [](const std::string& d) {
         return std::vector<std::string>{d + "/store/products.txt: no product \"NO-SUCH\""};
       },
       ""},
  };
  // Standard output holds nothing but the error list of a static run.
  const std::regex error_list("([^\t\n]*\t-?[0-9]+\n)*");
  for (const Mistake& m : mistakes) {
    for (bool verbose : {false, true}) {
      ScopedTempDir dir;
      SampleStore store = InstallSampleStore(dir.path());
      std::vector<std::string> args = m.make(store);
      if (verbose) args.insert(args.begin() + 1, "-v");
      RunOptions options;
      options.cwd = dir.path();
      RunResult run = RunProgram(args, options);
      EXPECT_EQ(run.exit_code, ExitStatusOf(m.code)) << m.name << "\n" << run.err;
      const std::vector<std::string> says = m.says(dir.path());
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
  Replace(dir.Path("store/modern/product.html"), "PRODUCT.PRICE", "PRODUCT.PRCE");
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
