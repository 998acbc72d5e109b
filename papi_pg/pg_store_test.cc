// The bundled sample store served from PostgreSQL: imported with
// storegen-import and read through the PostgreSQL product library, it must
// give the pages its text files give, byte for byte; a change committed to
// the database shows on the next page, and a server that is down makes a
// request fail cleanly until it is back.
#include <filesystem>
#include <string>

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

// The sample store reading the schema |schema| of the test server, which it
// fills with storegen-import; the connection string is in "store.pgconf",
// which is also its ProductDatabase, with the attribute database beside it.
class PgStore : public SampleStore {
 public:
  explicit PgStore(const std::string& schema)
      : SampleStore(SAMPLE_DIR), conninfo_(PgServer::Get().FreshSchema(schema)) {
    RunResult r = RunProgram({STOREGEN_IMPORT_BIN, Path("products.txt"), "pg:" + conninfo_});
    EXPECT_EQ(r.exit_code, 0) << r.err;
    std::filesystem::copy_file(Path("products.adb"), Path("store.adb"));
    testing::WriteFile(Path("store.pgconf"), conninfo_ + "\n");
    UseLibrary(PAPI_PG_LIB, Path("store.pgconf"), Path("store.pgconf"));
  }
  std::string Query(const std::string& sql) { return PgServer::Get().Query(conninfo_, sql); }

 private:
  std::string conninfo_;
};

TEST(PgStoreTest, StaticRunAndDynamicRequestsWriteThePagesOfTheTextFiles) {
  SampleStore text(SAMPLE_DIR);
  PgStore pg("store_pages");
  testing::ExpectSamePages(text, pg);
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
  EXPECT_NE(down.err.find("PostgreSQL product library: " + pg.Path("store.pgconf")),
            std::string::npos)
      << down.err;
  EXPECT_EQ(pg.Run({"-p", "ll-101"}).out, r.out);
}

}  // namespace
}  // namespace storegen
