#include "storedata/product_api.h"

#include <dlfcn.h>

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cgisupport/run_state.h"
#include "storedata/product_db.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::ScopedTempDir;
using testing::WriteFile;

bool Resident(const char* lib) {
  void* handle = dlopen(lib, RTLD_LAZY | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  dlclose(handle);
  return true;
}

class ProductApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetRunState();
    PageGenState.verbose = 1;
  }
  void TearDown() override {
    ShutdownProdAPI();
    ResetRunState();
  }

  // "SKU=Name" of every record the bound entry points iterate over.
  std::vector<std::string> Skus(const char* api_cfg) {
    std::vector<std::string> skus;
    void* h = pdbInit(kPapiKey, "db", "store.cfg", api_cfg, "cart");
    if (h == nullptr) return {"<no connection>"};
    int32_t position = 0;
    for (PAPI_Pair* r = pdbRetrieveFirstItem(h, kPapiKey, 1, "db", "store.cfg", api_cfg, "cart",
                                             &position, nullptr);
         r != nullptr; r = pdbRetrieveNextItem(h, kPapiKey, 1, "db", "store.cfg", api_cfg, "cart",
                                               &position, nullptr)) {
      const PAPI_Pair* sku = FindProdAttr(r, "sku");
      const PAPI_Pair* name = FindProdAttr(r, "NAME");
      skus.push_back(std::string(sku ? sku->value : "?") + "=" + (name ? name->value : "?"));
      pdbRelease(h, kPapiKey, "", r);
    }
    pdbCleanup(h, kPapiKey, "db", "store.cfg", api_cfg, "cart");
    return skus;
  }
};

TEST_F(ProductApiTest, LibraryLackingAnEntryPointIsRefusedAndUnloaded) {
  for (const char* lib : {PAPI_FIVE_LIB, "/nonexistent/libpapi.so"}) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(InitProdAPI(lib), 0) << lib;
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Error initializing product API\n");
    EXPECT_EQ(hProdApiLib, nullptr);
    EXPECT_EQ(pdbInit, nullptr);
    EXPECT_EQ(pdbCleanup, nullptr);
    EXPECT_FALSE(Resident(lib));
  }
  PageGenState.verbose = 0;
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(InitProdAPI(PAPI_FIVE_LIB), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  // A corrected path may be tried afterwards.
  EXPECT_EQ(InitProdAPI(PAPI_FIXTURE_LIB), 1);
}

TEST_F(ProductApiTest, LibraryServesThroughTheBoundEntryPoints) {
  ASSERT_EQ(InitProdAPI(PAPI_FIXTURE_LIB), 1);
  void* lib = hProdApiLib;
  EXPECT_TRUE(Resident(PAPI_FIXTURE_LIB));
  EXPECT_EQ(InitProdAPI(""), 1);  // already bound: the built-in reader does not replace it
  EXPECT_EQ(hProdApiLib, lib);

  EXPECT_EQ(Skus(""), (std::vector<std::string>{"F1=First fixture", "F2=Second fixture",
                                                "F3=Third fixture"}));
  ScopedTempDir dir;
  std::string api_cfg = dir.Path("products.api");
  WriteFile(api_cfg, "Name=Lamp\tSKU=L1\n\nSKU=L2\n");
  EXPECT_EQ(Skus(api_cfg.c_str()), (std::vector<std::string>{"L1=Lamp", "L2=?"}));

  EXPECT_EQ(pdbInit("wrongkey", "db", "", "", ""), nullptr);
  void* h = pdbInit(kPapiKey, "db", "", "", "");
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(pdbRetrieve(h, "wrongkey", "F2", 1, "db", "", "", "", nullptr), nullptr);
  PAPI_Pair* record = pdbRetrieve(h, kPapiKey, "f2", 1, "db", "", "", "", nullptr);
  ASSERT_NE(record, nullptr);
  EXPECT_STREQ(FindProdAttr(record, "tillboxcategory")->value, "Toys");
  // A copy is the generator's own: freed with free(), not through the library.
  PAPI_Pair* copy = CopyProdRecord(record);
  pdbRelease(h, kPapiKey, "", record);
  EXPECT_STREQ(FindProdAttr(copy, "price")->value, "2.50");
  FreeProdRecord(copy);
  pdbCleanup(h, kPapiKey, "db", "", "", "");

  ShutdownProdAPI();
  EXPECT_EQ(hProdApiLib, nullptr);
  EXPECT_FALSE(Resident(PAPI_FIXTURE_LIB));
  EXPECT_EQ(pdbRelease, nullptr);
  ShutdownProdAPI();
  // The built-in reader's entry points stay bound past a shutdown.
  EXPECT_EQ(InitProdAPI(""), 1);
  ShutdownProdAPI();
  EXPECT_EQ(pdbRelease, &storegen::PAPI_ReleaseInfo);
}

}  // namespace
}  // namespace storegen
