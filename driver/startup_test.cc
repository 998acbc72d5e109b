// Runs the program itself: exit codes and messages of start-up, the run lock,
// the status log and the output directory.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/file_util.h"
#include "pagegen/html_page.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;
using namespace testing;

constexpr char kLockMessage[] = "Page generator already running\n";

// A store beside its own copy of the program: configuration, template set,
// product database, all relative to the program's directory.
class StartupTest : public ::testing::Test {
 protected:
  void SetUp() override {
    bin_ = InstallStoregen(dir_.path());
    WriteConfig({});
    WriteFile(Path("basic.cfg"), "StyleName\tBasic\n");
    WriteFile(Path("prod.txt"), "");
  }

  std::string Path(const std::string& relative) const { return dir_.Path(relative); }

  // Writes store.cfg from the default keys; a null value leaves a key out.
  void WriteConfig(const std::map<std::string, const char*>& changes,
                   const std::string& file = "store.cfg") {
    std::map<std::string, const char*> keys = {
        {"AllowPagegen", "yes"}, {"ShoppingCartDirectory", "cart"}, {"PageGenTmpltSet", "basic"},
        {"StoreDir", "/acme"},   {"ProductDatabase", "prod.txt"},
    };
    for (const auto& [key, value] : changes)
      keys[key] = value;
    std::string text;
    for (const auto& [key, value] : keys) {
      if (value != nullptr) text += key + "\t" + value + "\n";
    }
    WriteFile(Path(file), text);
  }

  RunResult Run(std::vector<std::string> args, const RunOptions& options = {}) {
    args.insert(args.begin(), bin_);
    return RunProgram(args, options);
  }

  ScopedTempDir dir_;
  std::string bin_;
};

// Banner and usage without arguments; help and version only as the one
// argument. They create no lock file, and help leaves another run's alone.
TEST_F(StartupTest, BannerUsageHelpAndVersion) {
  const struct {
    std::vector<std::string> args;
    std::string out;  // what the output starts with, holds or is
    int code;
  } cases[] = {
      {{}, "\nstoregen (c)2025-2026 The storegen developers version 4.2.0.9\nUsage:", 0},
      {{"-v"}, " version 4.2.0.9\n\nUsage:", 0},
      {{"--version"}, "storegen (c)2025-2026 The storegen developers version 4.2.0.9\n", 0},
      {{"--help"}, "Usage:\n  storegen [-v] -o OutPath", 0},
      {{"--help", "-v"}, "", -3},
  };
  for (const auto& c : cases) {
    RunResult r = Run(c.args);
    EXPECT_EQ(r.exit_code, ExitStatusOf(c.code)) << r.out;
    EXPECT_NE(r.out.find(c.out), std::string::npos) << r.out;
    EXPECT_TRUE(c.code != 0 ||
                !(FileExists(Path("pgstatus.pid")) || FileExists(Path("pgstatus.lck"))));
  }
  WriteFile(Path("pgstatus.pid"), "another run's");
  EXPECT_EQ(Run({"--help"}).exit_code, 0);
  EXPECT_TRUE(FileExists(Path("pgstatus.pid")));
}

struct ExitCase {
  const char* name;
  std::map<std::string, const char*> config;
  std::vector<std::string> args;  // "@" stands for the test directory
  int code;
  std::string message;  // last verbose output; "@" stands for the test directory
  std::string says;     // on standard error without -v; "@" as above
};

std::string Expand(std::string text, const std::string& dir) {
  for (std::size_t at; (at = text.find('@')) != std::string::npos;)
    text.replace(at, 1, dir);
  return text;
}

TEST_F(StartupTest, ExitCodesAndMessages) {
  const std::vector<std::string> run = {"-o", "@/www", "-c", "store.cfg"};
  // clang-format off
  const ExitCase cases[] = {
      {"value option last", {}, {"-o"}, -3, "Invalid command line\n",
       "option -o needs a value"},
      {"no AllowPagegen", {{"AllowPagegen", nullptr}}, run, -16,
       "The page generator is not configured to run\n", "@/store.cfg: AllowPagegen is missing"},
      {"AllowPagegen no", {{"AllowPagegen", "No"}}, run, -16,
       "The page generator is not configured to run\n", "@/store.cfg:1: AllowPagegen says no"},
      {"no store directory", {{"StoreDir", nullptr}}, run, -3,
       "StoreDir not found in @/store.cfg\n", "required key StoreDir is missing"},
      {"product page without SKU", {}, {"-c", "store.cfg", "-p"}, -3,
       "Sku argument required for dynamic pages\n", "-p needs the product's SKU"},
      {"static run without output root", {}, {"-c", "store.cfg"}, -3,
       "Config file, OutPath, TargetDir and ProductDatabase required\n",
       "a static run needs -o OutPath"},
      {"no product database named", {{"ProductDatabase", nullptr}}, run, -3,
       "Config file, OutPath, TargetDir and ProductDatabase required\n",
       "@/store.cfg names neither ProductDatabase nor ProductAPILibrary"},
      {"missing product database", {{"ProductDatabase", "nothere.txt"}}, run, -2,
       "File not found: @/nothere.txt\n", "@/nothere.txt: product database not found"},
      {"output directory not creatable", {}, {"-o", "@/blocker/www", "-c", "store.cfg"}, -4,
       "Unable to create directory: @/blocker/www/acme/\n",
       "@/blocker/www/acme/: cannot create the store's output directory"},
      {"support directory not copyable", {}, run, -12,
       "Unable to create directory: @/www/acme/images\n",
       "@/www/acme/images: cannot create the directory"},
      {"copy-only run", {}, {"-d", "-o", "@/www", "-c", "store.cfg"}, -4,
       "Unable to create directory: @/www/acme/images\n", "the run ended with -4"},
      {"complete run", {}, {"-o", "@/fresh", "-c", "store.cfg"}, 0, "Done rc=0\n",
       "@/prod.txt: the product database holds no product"},
  };
  // clang-format on
  WriteFile(Path("blocker"), "a file where a directory should be");
  WriteFile(Path("basic/images/logo.gif"), "GIF");
  // A dangling link where the copy wants to make its directory.
  fs::create_directories(Path("www/acme"));
  fs::create_symlink(Path("gone"), Path("www/acme/images"));

  for (const auto& c : cases) {
    WriteConfig(c.config);
    std::vector<std::string> args;
    for (const auto& a : c.args)
      args.push_back(Expand(a, dir_.path()));
    RunResult quiet = Run(args);
    EXPECT_EQ(quiet.exit_code, ExitStatusOf(c.code)) << c.name;
    EXPECT_EQ(quiet.out, "") << c.name;
    EXPECT_NE(quiet.err.find(Expand(c.says, dir_.path())), std::string::npos) << c.name << ":\n"
                                                                              << quiet.err;

    args.insert(args.begin(), "-v");
    RunResult verbose = Run(args);
    EXPECT_EQ(verbose.exit_code, ExitStatusOf(c.code)) << c.name;
    EXPECT_TRUE(verbose.out.ends_with(Expand(c.message, dir_.path()))) << c.name << ":\n"
                                                                       << verbose.out;
    EXPECT_FALSE(FileExists(Path("pgstatus.pid"))) << c.name;
  }
}

TEST_F(StartupTest, ConfigurationPathWithExtraDot) {
  // The program in cgi/, the store configuration in cgi/shop.v2/, the
  // index's files in swish/ beside cgi/. The product database is found from
  // the program's directory, the template set from the configuration's.
  std::string bin = InstallStoregen(Path("cgi"));
  WriteConfig({{"PageGenTmpltSet", "../../basic"},
               {"ProductDatabase", "../prod.txt"},
               {"ShoppingCartDirectory", nullptr},
               {"AllowIndex", "Yes"}},
              "cgi/shop.v2/acme.cfg");
  WriteFile(Path("cgi/wwwwais.cfg"), "ExeExtension\n");
  WriteFile(Path("swish/swish.cfg"), "IndexDir\tindex\n");
  RunResult r = RunProgram({bin, "-v", "-o", Path("www"), "-c", "shop.v2/acme.cfg"});
  EXPECT_EQ(r.exit_code, 0) << r.out;
  // A missing cart directory is reported and the run goes on.
  EXPECT_NE(r.out.find("ShoppingCartDirectory not found in " + Path("cgi/shop.v2/acme.cfg") + "\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("Template Set Config: " + Path("basic.cfg") + "\n"), std::string::npos)
      << r.out;
  // The index is named after the path cut at its first ".".
  EXPECT_TRUE(FileExists(Path("swish/shop.wcf")));
}

TEST_F(StartupTest, OutputDirectoryComposition) {
  const std::map<std::string, std::string> server = {{"PATH_INFO", "/store/docs/p.html"},
                                                     {"PATH_TRANSLATED", Path("cgi/docs/p.html")}};
  struct Case {
    std::string root;  // "-o", relative to the test directory; empty: not given
    std::string alias;
    const char* store_dir;
    std::map<std::string, std::string> env;
    std::string expected;  // relative to the test directory
  } cases[] = {
      {"www", "/store", "/store/acme", {}, "www/acme/"},
      {"www/", "/store/", "/store/acme/", {}, "www/acme/"},
      {"www", "", "/store/acme", {}, "www/store/acme/"},
      {"", "", "/store/acme", server, "cgi/acme/"},
      // An output root given on the command line takes no alias from the server.
      {"www", "", "/store/acme", server, "www/store/acme/"},
  };
  for (const auto& c : cases) {
    WriteConfig({{"StoreDir", c.store_dir}});
    std::vector<std::string> args = {"-v", "-c", "store.cfg"};
    if (!c.root.empty()) args.insert(args.end(), {"-o", c.root});
    if (!c.alias.empty()) args.insert(args.end(), {"-a", c.alias});
    RunOptions options;
    options.set_env = c.env;
    options.unset_env = {"PATH_INFO", "PATH_TRANSLATED"};
    RunResult r = Run(args, options);
    EXPECT_EQ(r.exit_code, 0) << c.store_dir << "\n" << r.out;
    EXPECT_NE(r.out.find("\nOutput Path: " + Path(c.expected) + "\n"), std::string::npos)
        << c.root << " " << c.alias << " " << c.store_dir << ":\n"
        << r.out;
  }
}

// The products the pages of the shop home series list, "|" between pages.
std::string ListedProducts(const std::string& first_page) {
  std::string listed;
  for (int n = 0; FileExists(PageFileName(first_page, n)); ++n) {
    const std::string page = ReadFile(PageFileName(first_page, n));
    if (n > 0) listed += "|";
    for (std::size_t at = page.find('['); at != std::string::npos; at = page.find('[', at + 1))
      listed += page.substr(at + 1, page.find(']', at) - at - 1);
  }
  return listed;
}

TEST_F(StartupTest, DynamicPageKeysDecideWhichPagesAStaticRunWrites) {
  WriteFile(Path("prod.txt"), "SKU\tNAME\nA1\tLamp\nA2\tx\nA3\tx\nA4\tx\nA5\tx\n");
  WriteFile(Path("basic.cfg"),
            "DefaultProductPage\tProduct;product.html\nShopHomePage1\tHome;home.html;index.html\n"
            "MaxProdPerPage\t2\n");
  WriteFile(Path("product.html"), "<p>%%PRODUCT.NAME%%</p>\n");
  WriteFile(Path("home.html"),
            "<!--PAGEGEN_PRODUCTLIST_BEGIN-->[%%PRODUCT.SKU%%]<!--PAGEGEN_PRODUCTLIST_END-->\n");
  struct Case {
    const char* product_pages;  // null: key absent
    const char* list_pages;
    bool product_page_written;
    const char* listed;  // by the shop home series
  } cases[] = {
      {nullptr, nullptr, true, "A1A2|A3A4|A5"},
      {"no", nullptr, true, "A1A2|A3A4|A5"},
      {"yes", nullptr, false, "A1A2"},
      {"yes", "no", false, "A1A2|A3A4|A5"},
      {"no", "yes", true, "A1A2"},
      {"yes", "yes", false, "A1A2"},
  };
  for (const auto& c : cases) {
    WriteConfig({{"PageGenDynamicProductPages", c.product_pages},
                 {"PageGenDynamicListPages", c.list_pages},
                 {"PageGenShopHomePage", "ShopHomePage1"}});
    RemoveTree(Path("www"));
    RunResult r = Run({"-o", Path("www"), "-c", "store.cfg"});
    std::string label = std::string(c.product_pages ? c.product_pages : "-") + "/" +
                        (c.list_pages ? c.list_pages : "-");
    EXPECT_EQ(r.exit_code, 0) << label;
    EXPECT_EQ(FileExists(Path("www/acme/p-A1.html")), c.product_page_written) << label;
    EXPECT_EQ(ListedProducts(Path("www/acme/index.html")), c.listed) << label;
  }
}

// A page made on request is the page a static run writes, links into the
// cart's home page included; it goes to standard output only.
TEST_F(StartupTest, DynamicPagesAreThoseOfTheStaticRun) {
  WriteFile(Path("prod.txt"), "SKU\tNAME\nA1\tLamp\n");
  WriteFile(Path("basic.cfg"),
            "DefaultProductPage\tProduct;page.html\nShopHomePage1\tHome;page.html;index.html\n");
  WriteFile(Path("page.html"),
            "<a href=\"PG_TILLBOX#\">home</a><a href=\"PG_STOREENTERURL#\">enter</a>"
            "%%PRODUCT.NAME%%\n");
  WriteConfig({{"PageGenShopHomePage", "ShopHomePage1"}, {"CGIBinDirectory", "/cgi-bin"}});
  ASSERT_EQ(Run({"-o", Path("www"), "-c", "store.cfg"}).exit_code, 0);
  const std::string product = ReadFile(Path("www/acme/p-A1.html"));
  EXPECT_NE(product.find("/acme/index.html?E+store\""), std::string::npos) << product;
  const std::vector<std::string> files[] = {ListDir(dir_.path()), ListDir(Path("www/acme"))};
  for (const auto& [args, page] :
       {std::pair{std::vector<std::string>{"-p", "A1"}, product},
        {{"-t", "page.html", "-f", "0"}, ReadFile(Path("www/acme/index.html"))}}) {
    std::vector<std::string> request = {"-c", "store.cfg"};
    request.insert(request.end(), args.begin(), args.end());
    RunResult r = Run(request);
    EXPECT_EQ(r.exit_code, 0) << args[0];
    EXPECT_EQ(r.out, "Content-type: text/html\n\n" + page) << args[0];
  }
  EXPECT_EQ(ListDir(dir_.path()), files[0]);
  EXPECT_EQ(ListDir(Path("www/acme")), files[1]);
}

TEST_F(StartupTest, StatusLogGetsOutputAndReturnCode) {
  RunResult r = Run({"-b", "-o"});
  EXPECT_EQ(r.exit_code, ExitStatusOf(-3));
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(ReadFile(Path("pgstatus.log")), "ReturnCode=-3");

  // Started elsewhere, the program still works from its own directory: the
  // relative output root, the log and the file list are found from there.
  WriteFile(Path("basic/images/logo.gif"), "GIF");
  RunOptions from_root;
  from_root.cwd = "/";
  r = Run({"-v", "-b", "-o", "www", "-c", "store.cfg"}, from_root);
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.out, "");
  std::string log = ReadFile(Path("pgstatus.log"));
  EXPECT_TRUE(log.ends_with("Done rc=0\nReturnCode=0")) << log;
  EXPECT_EQ(log.find("ReturnCode=-3"), std::string::npos) << "the old log is replaced";
  EXPECT_TRUE(FileExists(Path("www/acme/Xzq3Jpo9")));
  EXPECT_FALSE(FileExists(Path("Xzq3Jpo9")));
  EXPECT_EQ(ReadFile(Path("www/acme/images/logo.gif")), "GIF");
  EXPECT_FALSE(FileExists(Path("pgstatus.pid")));

  // Options act in order: "-b" after a failing "-c" is never reached.
  std::remove(Path("pgstatus.log").c_str());
  r = Run({"-c", "nothere.cfg", "-b"});
  EXPECT_EQ(r.exit_code, ExitStatusOf(-2));
  EXPECT_FALSE(FileExists(Path("pgstatus.log")));
}

// Copy of the program run by a bare name: its directory comes from the
// executable itself.
TEST_F(StartupTest, BareProgramNameFindsItsDirectory) {
  fs::create_directories(Path("bin"));
  fs::copy_file(testing::StoregenBinary(), Path("bin/storegen"));
  fs::permissions(Path("bin/storegen"), fs::perms::owner_all, fs::perm_options::add);
  RunOptions options;
  options.set_env = {{"PATH", Path("bin")}};
  RunResult r = RunProgram({"/bin/sh", "-c", "cd / && exec storegen -b -o"}, options);
  EXPECT_EQ(r.exit_code, ExitStatusOf(-3));
  EXPECT_EQ(ReadFile(Path("bin/pgstatus.log")), "ReturnCode=-3");
}

// Holds the named lock files of the test directory, as a running generation
// does, until destroyed.
HeldInChild LockHolder(const std::string& dir, const std::vector<std::string>& names) {
  return HeldInChild([=] {
    for (const auto& name : names) {
      if (openlock((dir + "/" + name).c_str(), 0, 0644) < 0) return false;
    }
    return true;
  });
}

TEST_F(StartupTest, RunLockKeepsStaticRunsApart) {
  const std::vector<std::string> args = {"-o", Path("www"), "-c", "store.cfg"};
  {
    HeldInChild running = LockHolder(dir_.path(), {"pgstatus.pid", "pgstatus.lck"});
    ASSERT_TRUE(running.held());
    // The log is the running generation's: a refused "-b" run leaves it
    // alone and says why on standard output and standard error; so does a
    // "-b" run that ends before it would take the lock.
    WriteFile(Path("pgstatus.log"), "running\n");
    RunResult r = Run({"-b", "-o", Path("www"), "-c", "store.cfg"});
    EXPECT_EQ(r.exit_code, ExitStatusOf(-50));
    EXPECT_EQ(r.out, kLockMessage);
    EXPECT_NE(r.err.find(kLockMessage), std::string::npos) << r.err;
    EXPECT_EQ(Run({"-b", "-o"}).out, "ReturnCode=-3");
    EXPECT_EQ(ReadFile(Path("pgstatus.log")), "running\n");
    EXPECT_FALSE(FileExists(Path("pgstatus.pid")));  // the refused run removed it
  }
  // Either lock alone refuses a run: the lock file a refused run removed
  // does not let a third one in. The message shows even without "-v".
  for (const char* name : {"pgstatus.pid", "pgstatus.lck"}) {
    HeldInChild holder = LockHolder(dir_.path(), {name});
    ASSERT_TRUE(holder.held());
    RunResult r = Run(args);
    EXPECT_EQ(r.exit_code, ExitStatusOf(-50)) << name;
    EXPECT_EQ(r.out, kLockMessage) << name;
  }
  EXPECT_EQ(Run(args).exit_code, 0);
}

}  // namespace
}  // namespace storegen
