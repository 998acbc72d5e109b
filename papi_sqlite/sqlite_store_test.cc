// The bundled sample store generated twice, once from its tab-separated
// files and once from a SQLite file made by storegen-import and read through
// the SQLite product library: every page must come out byte for byte the
// same, and so must storegen-fcgi's answers over the SQLite file.
#include <string>

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
}

}  // namespace
}  // namespace storegen
