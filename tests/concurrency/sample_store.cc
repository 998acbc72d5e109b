#include "tests/concurrency/sample_store.h"

#include <cstdio>
#include <filesystem>
#include <utility>

#include <gtest/gtest.h>

#include "cgisupport/config_file.h"
#include "cgisupport/config_item_list.h"
#include "tests/support/test_util.h"

namespace storegen::testing {

namespace fs = std::filesystem;

std::vector<std::string> SampleStore::StaticRun() const {
  return {bin, "-o", out, "-c", cfg, "-s", "0"};
}

std::vector<std::string> SampleStore::ProductPage(const std::string& sku) const {
  return {bin, "-c", cfg, "-p", sku};
}

SampleStore InstallSampleStore(const std::string& root,
                               const std::map<std::string, std::string>& keys) {
  SampleStore s;
  s.root = root;
  s.bin = InstallStoregen(root + "/bin");
  s.cfg = root + "/store/lantern.cfg";
  s.out = root + "/out";
  s.pages = s.out + "/lantern/";
  std::error_code ec;
  fs::create_directories(root + "/store", ec);
  fs::create_directories(s.out, ec);
  for (const char* name :
       {"modern", "modern.cfg", "lantern.cfg", "products.txt", "products.cdb", "products.adb"}) {
    fs::copy(std::string(SAMPLE_DIR) + "/" + name, root + "/store/" + name,
             fs::copy_options::recursive | fs::copy_options::overwrite_existing, ec);
    EXPECT_FALSE(ec) << name << ": " << ec.message();
  }
  // The store allows indexing: the search gateway template goes beside the
  // program, the indexer's template into the sibling swish/.
  for (const auto& [from, to] :
       {std::pair{"cgi-bin/wwwwais.cfg", "bin/wwwwais.cfg"}, std::pair{"swish", "swish"}}) {
    fs::copy(std::string(SAMPLE_DIR) + "/" + from, root + "/" + to, fs::copy_options::recursive,
             ec);
    EXPECT_FALSE(ec) << from << ": " << ec.message();
  }
  std::map<std::string, std::string> all = keys;
  all.emplace("ProductDatabase", root + "/store/products.txt");
  SetConfigKeys(s.cfg, all);
  return s;
}

void SetConfigKeys(const std::string& cfg, const std::map<std::string, std::string>& keys) {
  ConfigItemList* list = CIL_CreateList();
  for (const auto& [key, value] : keys)
    CIL_AddItem(list, key.c_str(), value.c_str());
  EXPECT_EQ(SetConfigItems(cfg.c_str(), list), 0) << cfg;
  CIL_FreeList(list);
  std::remove(fs::path(cfg).replace_extension(".bak").c_str());
}

void WriteManyProducts(const SampleStore& store, int count) {
  std::string text = "SKU\tNAME\tPRICE\tTILLBOXCATEGORY\tDESCRIPTION\n";
  for (int i = 1; i <= count; ++i) {
    char sku[16];
    std::snprintf(sku, sizeof sku, "P%05d", i);
    text += std::string(sku) + "\tProduct " + std::to_string(i) + "\t" +
            std::to_string(i % 90 + 1) + ".50\t" + (i % 2 ? "Kitchen" : "Garden") +
            "\tA plain product, number " + std::to_string(i) + ".\n";
  }
  WriteFile(store.root + "/store/products.txt", text);
}

}  // namespace storegen::testing
