// The bundled sample store generated twice, once from its tab-separated
// files and once from a SQLite file made by storegen-import and read through
// the SQLite product library: every page must come out byte for byte the same.
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_util.h"

namespace storegen {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;
using testing::RunProgram;
using testing::RunResult;
using testing::ScopedTempDir;
using testing::WriteFile;

// A copy of the sample store in a directory of its own, with its own link of
// the program. The SQLite copy keeps none of the text files, so that the
// generator can only have read the SQLite file.
class SampleStore {
 public:
  explicit SampleStore(bool sqlite) {
    fs::copy(SAMPLE_DIR, dir_.path(), fs::copy_options::recursive);
    std::string cfg = ReadFile(this->cfg());
    std::string db = dir_.Path("products.txt");
    if (sqlite) {
      db = dir_.Path("store.sqlite");
      RunResult r = RunProgram({STOREGEN_IMPORT_BIN, dir_.Path("products.txt"), db});
      EXPECT_EQ(r.exit_code, 0) << r.err;
      for (const char* ext : {"txt", "cdb", "adb"})
        fs::remove(dir_.Path("products.") + ext);
      cfg += std::string("ProductAPILibrary\t") + PAPI_SQLITE_LIB + "\nProductAPILibConfig\t" + db +
             "\n";
    }
    std::size_t key = cfg.find("ProductDatabase\t");
    cfg.replace(key, cfg.find('\n', key) - key, "ProductDatabase\t" + db);
    WriteFile(this->cfg(), cfg);
    // Category data through the category connection: a category tag on the
    // list pages and a category list on the home page.
    WriteFile(dir_.Path("modern/list.html"), ReadFile(dir_.Path("modern/list.html")) +
                                                 "<p>probe %%CATEGORY.TILLBOXCATEGORY%%</p>\n");
    WriteFile(dir_.Path("modern/home.html"),
              ReadFile(dir_.Path("modern/home.html")) +
                  "<!-- PAGEGEN_CATEGORYLIST_BEGIN -->%%CATEGORY.TILLBOXCATEGORY%%"
                  "<!-- PAGEGEN_CATEGORYLIST_END -->\n");
    program_ = testing::InstallStoregen(dir_.path());
  }

  const std::string& dir() const { return dir_.path(); }
  std::string cfg() const { return dir_.Path("lantern.cfg"); }
  RunResult Run(std::vector<std::string> args) const {
    args.insert(args.begin(), {program_, "-c", cfg()});
    return RunProgram(args);
  }

 private:
  ScopedTempDir dir_;
  std::string program_;
};

// Every file below |root|, by its path relative to it.
std::set<std::string> FilesBelow(const std::string& root) {
  std::set<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root))
    if (entry.is_regular_file()) files.insert(fs::relative(entry.path(), root).string());
  return files;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  std::size_t at = 0;
  while ((at = text.find(from, at)) != std::string::npos) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
  return text;
}

// The first field of every line but the first of a sample database.
std::vector<std::string> Keys(const char* file) {
  std::string text = ReadFile(std::string(SAMPLE_DIR) + "/" + file);
  std::vector<std::string> keys;
  std::size_t at = text.find('\n');
  while (at != std::string::npos && ++at < text.size()) {
    keys.push_back(text.substr(at, text.find_first_of("\t\n", at) - at));
    at = text.find('\n', at);
  }
  return keys;
}

TEST(SqliteStoreTest, StaticRunAndDynamicRequestsWriteTheSamePages) {
  SampleStore text(false), sqlite(true);
  RunResult a = text.Run({"-o", text.dir() + "/out"});
  RunResult b = sqlite.Run({"-o", sqlite.dir() + "/out"});
  EXPECT_EQ(b.exit_code, a.exit_code);
  EXPECT_EQ(b.out, a.out);
  std::set<std::string> files = FilesBelow(text.dir() + "/out");
  ASSERT_GT(files.size(), 30u);
  ASSERT_EQ(FilesBelow(sqlite.dir() + "/out"), files);
  for (const std::string& file : files) {
    // The list of generated files names them by their absolute paths.
    EXPECT_EQ(Replaced(ReadFile(sqlite.dir() + "/out/" + file), sqlite.dir(), text.dir()),
              ReadFile(text.dir() + "/out/" + file))
        << file;
  }

  std::vector<std::vector<std::string>> requests = {
      {"-p", "ll-101"}, {"-p", "NO-SUCH"}, {"-f", "0"}, {"-f", "3"}};
  for (const std::string& sku : Keys("products.txt"))
    requests.push_back({"-p", sku});
  for (const std::string& category : Keys("products.cdb"))
    requests.push_back({"-C", category, "-f", "0"});
  for (const auto& request : requests) {
    a = text.Run(request);
    b = sqlite.Run(request);
    EXPECT_EQ(b.exit_code, a.exit_code) << request[1];
    EXPECT_EQ(b.out, a.out) << request[1];
    if (request[0] == "-C") {
      EXPECT_NE(b.out.find("<p>probe " + request[1] + "</p>"), std::string::npos) << request[1];
    }
  }
}

}  // namespace
}  // namespace storegen
