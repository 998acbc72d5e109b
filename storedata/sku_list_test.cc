#include "storedata/sku_list.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/result_codes.h"
#include "cgisupport/run_state.h"
#include "pagegen/filelist/file_list.h"
#include "storedata/product_api.h"
#include "templateset/template_set.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;
using Strings = std::vector<std::string>;

// "SKU:template" per node; the list is freed.
Strings Take(SkuList* list) {
  Strings nodes;
  for (const SkuList* n = list; n != nullptr; n = NextSkuNode(n)) {
    nodes.push_back(std::string(n->sku) + ":" + n->tmplt);
  }
  FreeSkuList(list);
  return nodes;
}

class SkuListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    PageGenState.verbose = 1;
    set_.product_pages = {{"Fancy", "fancy.html", "", 0}, {"Blank", "", "", 0}};
    set_.default_product_page = {{"Default", "product.html", "", 0}};
  }
  void TearDown() override {
    FreeFileList(errors_);
    ShutdownProdAPI();
    ResetRunState();
  }

  // Products served by the built-in reader.
  void UseProductFile(const std::string& content) {
    db_ = dir_.Path("products.txt");
    WriteFile(db_, content);
    ASSERT_EQ(InitProdAPI(""), 1);
  }
  // Products served by the fixture library, one "name=value" list a line.
  void UseLibrary(const std::string& content) {
    api_cfg_ = dir_.Path("products.api");
    WriteFile(api_cfg_, content);
    ASSERT_EQ(InitProdAPI(PAPI_FIXTURE_LIB), 1);
  }

  Strings Build(const char* category, const char* first_index, int page_flag, std::string* out) {
    ::testing::internal::CaptureStdout();
    SkuList* list = BuildAllSkuList(db_.c_str(), "store.cfg", api_cfg_.c_str(), "cart", &set_,
                                    category, first_index, page_flag, &errors_);
    *out = ::testing::internal::GetCapturedStdout();
    return Take(list);
  }

  // The entries recorded so far, "text=code" each.
  Strings Errors() const {
    Strings errors;
    for (FileList* e = errors_; e != nullptr; e = e->next)
      errors.push_back(std::string(e->text) + "=" + std::to_string(e->code));
    return errors;
  }

  ScopedTempDir dir_;
  FileList* errors_ = nullptr;
  std::string db_;
  std::string api_cfg_;
  TemplateSet set_;
};

TEST_F(SkuListTest, TemplateComesFromTheProductOrTheDefaultPage) {
  UseProductFile(
      "SKU\tName\tTILLBOXTEMPLATE\n"
      "A1\tShirt\tFancy\n"
      "A2\tHat\tfancy\n"  // display names are exact
      "A3\tCap\tBlank\n"
      "A4\tBag\n");
  std::string out;
  EXPECT_EQ(Build(nullptr, nullptr, 0, &out),
            (Strings{"A1:fancy.html", "A2:product.html", "A4:product.html"}));
  EXPECT_EQ(out, "No template specified, skipping sku A3\n");
  EXPECT_EQ(Errors(), Strings{"A3=-15"});

  set_.default_product_page.clear();
  EXPECT_EQ(Build("", "", 0, &out), Strings{"A1:fancy.html"});
  EXPECT_EQ(out,
            "Error resolving template display name\n"
            "No template specified, skipping sku A3\n"
            "Error resolving template display name\n");
}

// A page reads its product's line back from where the list found it. After
// an edit in place, a line that no longer ends where it did, or that holds
// another SKU there now, is refused (its page is not written); one that kept
// its SKU and length reads as it is now. (The file is larger than the blocks
// the list reads it in, so that the lines are read anew.)
TEST_F(SkuListTest, LinesReadBackMustStillBeTheProducts) {
  std::string padding;
  for (int i = 0; i < 6000; ++i)
    padding += "P" + std::to_string(i) + "\t" + std::string(100, 'p') + "\n";
  UseProductFile("SKU\tName\nA1\tone\n" + padding + "B2\ttwo\nC3\tsix\n");
  SkuList* list =
      BuildAllSkuList(db_.c_str(), "store.cfg", "", "cart", &set_, nullptr, nullptr, 0, &errors_);
  WriteFile(db_, "SKU\tName\nA1\tONE\n" + padding + "B2\ttwo-x\nC3\tsix\n");
  Strings read;
  SkuRecord record;
  for (const SkuList* node = list; node != nullptr; node = node->next) {
    const PAPI_Pair* pairs = nullptr;
    const bool ok = record.Read(node, &pairs);
    if (node->sku[0] != 'P') read.push_back(ok ? pairs[1].value : "refused");
  }
  FreeSkuList(list);
  EXPECT_EQ(read, (Strings{"ONE", "refused", "refused"}));
}

TEST_F(SkuListTest, CategoryKeepsItsOwnProductsAndThoseWithoutOne) {
  UseLibrary(
      "SKU=S1\tTILLBOXCATEGORY=shirts\n"
      "SKU=H1\tTILLBOXCATEGORY=Hats\n"
      "Name=no SKU\n"
      "SKU=N1\n"
      "SKU=S2\tTILLBOXCATEGORY=Shirts\n");
  std::string out;
  EXPECT_EQ(Build("Shirts", nullptr, 0, &out),
            (Strings{"S1:product.html", "N1:product.html", "S2:product.html"}));
  for (const char* none : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(Build(none, nullptr, 0, &out), (Strings{"S1:product.html", "H1:product.html",
                                                      "N1:product.html", "S2:product.html"}));
  }
  EXPECT_EQ(out, "");
}

TEST_F(SkuListTest, PagesHoldOneProductMoreThanThePageSize) {
  std::string products = "SKU\tTILLBOXCATEGORY\n";
  for (int i = 1; i <= 7; ++i) {
    products += "P" + std::to_string(i) + "\t" + (i % 3 == 0 ? "other" : "main") + "\n";
  }
  UseProductFile(products);  // P3 and P6 are in another category
  set_.max_prod_per_page = 2;
  std::string out;
  EXPECT_EQ(Build("main", nullptr, 0, &out).size(), 5u);  // no page flag: no limit
  // Verbose, the page's list is built whole; else in part, as the page walks it.
  for (int verbose : {1, 0}) {
    PageGenState.verbose = verbose;
    set_.max_prod_per_page = 2;
    EXPECT_EQ(Build("main", nullptr, 1, &out),
              (Strings{"P1:product.html", "P2:product.html", "P4:product.html"}));
    EXPECT_EQ(Build("main", "2", 1, &out),
              (Strings{"P4:product.html", "P5:product.html", "P7:product.html"}));
    EXPECT_EQ(Build("main", "4", 1, &out), Strings{"P7:product.html"});
    EXPECT_EQ(Build("main", "-3", 1, &out).size(), 3u);
    EXPECT_EQ(out, "");
    for (const char* past_the_end : {"5", "20"}) {
      EXPECT_EQ(Build("main", past_the_end, 1, &out), Strings{});
      EXPECT_EQ(out, verbose ? "No more products for product list\n" : "");
    }
    set_.max_prod_per_page = 0;
    EXPECT_EQ(Build(nullptr, nullptr, 1, &out).size(), 7u);
  }
}

TEST_F(SkuListTest, EmptyOrMissingDatabaseGivesNoList) {
  UseProductFile("SKU\tName\n");
  std::string out;
  EXPECT_EQ(Build(nullptr, nullptr, 0, &out), Strings{});
  EXPECT_EQ(out, "Error reading database\n");
  db_ = dir_.Path("absent.txt");
  EXPECT_EQ(Build(nullptr, nullptr, 0, &out), Strings{});
  EXPECT_EQ(out, "Error opening database\n");
}

TEST_F(SkuListTest, SingleSkusAreFoundFilledAndCopied) {
  PageGenState.verbose = 0;
  UseProductFile(
      "SKU\tName\tTILLBOXTEMPLATE\n"
      "A1\tShirt\tFancy\n"
      "A2\tHat\tBlank\n");
  SkuList* one = FindSkuData("a1", db_.c_str(), "", "", "", &set_, &errors_);
  ASSERT_NE(one, nullptr);
  EXPECT_STREQ(one->tmplt, "fancy.html");
  EXPECT_STREQ(FindProdAttr(one->record, "Name")->value, "Shirt");
  FreeSkuList(one);

  // The command line's list: SKUs only.
  SkuList* wanted = nullptr;
  SkuList** tail = &wanted;
  for (const char* sku : {"A1", "X9", "A2"}) {
    *tail = NewSkuNode();
    (*tail)->sku = strdup(sku);
    tail = &(*tail)->next;
  }
  // An unknown SKU and one without a usable template both fail the request.
  EXPECT_EQ(FillSkuData(wanted, db_.c_str(), "", "", "", &set_, &errors_), kFileNotFound);
  EXPECT_EQ(Errors(), Strings{"A2=-15"});
  EXPECT_STREQ(wanted->tmplt, "fancy.html");
  EXPECT_EQ(wanted->next->record, nullptr);
  EXPECT_EQ(wanted->next->next->record, nullptr);
  FreeProdRecord(wanted->record);
  wanted->record = nullptr;

  SkuList* all = BuildAllSkuList(db_.c_str(), "", "", "", &set_, nullptr, nullptr, 0, nullptr);
  ASSERT_NE(all, nullptr);
  std::free(wanted->tmplt);
  wanted->tmplt = nullptr;
  EXPECT_EQ(CopySkuData(wanted, all), 1);
  FreeSkuList(all);  // the copies are the target's own
  EXPECT_STREQ(wanted->tmplt, "fancy.html");
  EXPECT_STREQ(FindProdAttr(wanted->record, "name")->value, "Shirt");
  EXPECT_EQ(wanted->next->tmplt, nullptr);
  FreeSkuList(wanted);
}

}  // namespace
}  // namespace storegen
