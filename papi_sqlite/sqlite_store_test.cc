// The bundled sample store generated twice, once from its tab-separated
// files and once from a SQLite file made by storegen-import and read through
// the SQLite product library: every page must come out byte for byte the
// same, and so must storegen-fcgi's answers over the SQLite file.
#include <unistd.h>

#include <sqlite3.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::RunProgram;
using testing::RunResult;
using testing::ScopedTempDir;

TEST(SqliteStoreTest, StaticRunDynamicRequestsAndTheResponderWriteTheSamePages) {
  ScopedTempDir a, b;
  testing::SampleStore text = testing::InstallSampleStore(a.path());
  testing::SampleStore sqlite = testing::InstallSampleStore(b.path());
  std::string db = sqlite.Store("store.sqlite");
  RunResult r = RunProgram({STOREGEN_IMPORT_BIN, sqlite.Store("products.txt"), db});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  testing::UseLibrary(sqlite, PAPI_SQLITE_LIB, db, db);
  auto responder = testing::StoreResponder::Start(sqlite);
  testing::ExpectSamePages(text, sqlite, responder.get());
  if (responder == nullptr) return;

  // Commits to the file in place show on the responder's next list pages,
  // further down a list included, after it kept track of the file as it
  // stood for a moment.
  sleep(3);
  const std::vector<std::vector<std::string>> lists = {{"-C", "Garden", "-f", "1"}, {"-f", "3"}};
  for (const auto& list : lists)
    ASSERT_EQ(responder->Get(list), sqlite.Run(list).out) << list[1];
  sqlite3* handle = nullptr;
  ASSERT_EQ(sqlite3_open(db.c_str(), &handle), SQLITE_OK);
  EXPECT_EQ(sqlite3_exec(handle,
                         "UPDATE products SET TILLBOXCATEGORY = 'Garden' WHERE SKU = 'LL-102';"
                         " DELETE FROM products WHERE SKU = 'LL-101'",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(handle);
  for (const auto& list : lists)
    EXPECT_EQ(responder->Get(list), sqlite.Run(list).out) << list[1];
}

}  // namespace
}  // namespace storegen
