#include "tests/support/sample_store.h"

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;

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

// The first field of every line but the first of one of the store's
// databases.
std::vector<std::string> Keys(const std::string& file) {
  std::string text = ReadFile(file);
  std::vector<std::string> keys;
  std::size_t at = text.find('\n');
  while (at != std::string::npos && ++at < text.size()) {
    keys.push_back(text.substr(at, text.find_first_of("\t\n", at) - at));
    at = text.find('\n', at);
  }
  return keys;
}

}  // namespace

SampleStore::SampleStore(const std::string& sample_dir) {
  fs::copy(sample_dir, dir_.path(), fs::copy_options::recursive);
  SetProductDatabase(dir_.Path("products.txt"));
  WriteFile(dir_.Path("modern/list.html"), ReadFile(dir_.Path("modern/list.html")) +
                                               "<p>probe %%CATEGORY.TILLBOXCATEGORY%%</p>\n");
  WriteFile(dir_.Path("modern/home.html"),
            ReadFile(dir_.Path("modern/home.html")) +
                "<!-- PAGEGEN_CATEGORYLIST_BEGIN -->%%CATEGORY.TILLBOXCATEGORY%%"
                "<!-- PAGEGEN_CATEGORYLIST_END -->\n");
  program_ = InstallStoregen(dir_.path());
}

void SampleStore::UseLibrary(const std::string& library, const std::string& api_cfg,
                             const std::string& product_db) {
  for (const char* ext : {"txt", "cdb", "adb"})
    fs::remove(dir_.Path("products.") + ext);
  SetProductDatabase(product_db);
  WriteFile(cfg(), ReadFile(cfg()) + "ProductAPILibrary\t" + library + "\nProductAPILibConfig\t" +
                       api_cfg + "\n");
}

void SampleStore::SetProductDatabase(const std::string& value) {
  std::string text = ReadFile(cfg());
  std::size_t key = text.find("ProductDatabase\t");
  text.replace(key, text.find('\n', key) - key, "ProductDatabase\t" + value);
  WriteFile(cfg(), text);
}

RunResult SampleStore::Run(std::vector<std::string> args) const {
  args.insert(args.begin(), {program_, "-c", cfg()});
  return RunProgram(args);
}

void ExpectSamePages(const SampleStore& reference, const SampleStore& store) {
  RunResult a = reference.Run({"-o", reference.dir() + "/out"});
  RunResult b = store.Run({"-o", store.dir() + "/out"});
  EXPECT_EQ(b.exit_code, a.exit_code);
  EXPECT_EQ(b.out, a.out);
  std::set<std::string> files = FilesBelow(reference.dir() + "/out");
  ASSERT_GT(files.size(), 30u);
  ASSERT_EQ(FilesBelow(store.dir() + "/out"), files);
  for (const std::string& file : files) {
    // The list of generated files names them by their absolute paths.
    EXPECT_EQ(Replaced(ReadFile(store.dir() + "/out/" + file), store.dir(), reference.dir()),
              ReadFile(reference.dir() + "/out/" + file))
        << file;
  }

  std::vector<std::vector<std::string>> requests = {
      {"-p", "ll-101"}, {"-p", "NO-SUCH"}, {"-f", "0"}, {"-f", "3"}};
  for (const std::string& sku : Keys(reference.Path("products.txt")))
    requests.push_back({"-p", sku});
  for (const std::string& category : Keys(reference.Path("products.cdb")))
    requests.push_back({"-C", category, "-f", "0"});
  for (const auto& request : requests) {
    a = reference.Run(request);
    b = store.Run(request);
    EXPECT_EQ(b.exit_code, a.exit_code) << request[1];
    EXPECT_EQ(b.out, a.out) << request[1];
    if (request[0] == "-C") {
      EXPECT_NE(b.out.find("<p>probe " + request[1] + "</p>"), std::string::npos) << request[1];
    }
  }
}

}  // namespace storegen::testing
