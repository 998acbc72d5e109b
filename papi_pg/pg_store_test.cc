// The bundled sample store served from PostgreSQL: imported with
// storegen-import and read through the PostgreSQL product library, it must
// give the pages its text files give, byte for byte; a change committed to
// the database shows on the next page, and a server that is down makes a
// request fail cleanly until it is back.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/pg_server.h"
#include "tests/support/sample_store.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::PgServer;
using testing::RunProgram;
using testing::RunResult;
using testing::SampleStore;
using testing::ScopedTempDir;

// The sample store reading the schema |schema| of the test server, which it
// fills with storegen-import; the connection string is in "store.pgconf",
// which is also its ProductDatabase, with the attribute database beside it.
struct PgStore {
  explicit PgStore(const std::string& schema)
      : store(testing::InstallSampleStore(dir.path())),
        conninfo(PgServer::Get().FreshSchema(schema)) {
    RunResult r = RunProgram({STOREGEN_IMPORT_BIN, store.Store("products.txt"), "pg:" + conninfo});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::filesystem::copy_file(store.Store("products.adb"), store.Store("store.adb"));
    testing::WriteFile(store.Store("store.pgconf"), conninfo + "\n");
    testing::UseLibrary(store, PAPI_PG_LIB, store.Store("store.pgconf"),
                        store.Store("store.pgconf"));
  }
  RunResult Run(const std::vector<std::string>& args) const { return store.Run(args); }
  std::string Query(const std::string& sql) { return PgServer::Get().Query(conninfo, sql); }

  ScopedTempDir dir;
  SampleStore store;
  std::string conninfo;
};

TEST(PgStoreTest, StaticRunAndDynamicRequestsWriteThePagesOfTheTextFiles) {
  ScopedTempDir dir;
  PgStore pg("store_pages");
  testing::ExpectSamePages(testing::InstallSampleStore(dir.path()), pg.store);
}

TEST(PgStoreTest, ARequestSeesCommittedChangesAndFailsCleanlyWhileTheServerIsDown) {
  PgStore pg("store_changes");
  ASSERT_NE(pg.Run({"-p", "ll-101"}).out.find("<p class=\"price\">$89.00</p>"), std::string::npos);
  pg.Query("UPDATE products SET \"PRICE\" = '31.50' WHERE \"SKU\" = 'LL-101'");
  RunResult r = pg.Run({"-p", "ll-101"});
  EXPECT_NE(r.out.find("<p class=\"price\">$31.50</p>"), std::string::npos);

  PgServer& server = PgServer::Get();
  server.Stop();
  RunResult down = pg.Run({"-p", "ll-101"});
  ASSERT_TRUE(server.Start());
  EXPECT_EQ(down.signal, 0);
  EXPECT_NE(down.exit_code, 0);
  EXPECT_EQ(down.out, "");
  EXPECT_NE(down.err.find("PostgreSQL product library: " + pg.store.Store("store.pgconf")),
            std::string::npos)
      << down.err;
  EXPECT_EQ(pg.Run({"-p", "ll-101"}).out, r.out);
}

}  // namespace
}  // namespace storegen
