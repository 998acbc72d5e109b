// The bundled sample store served from PostgreSQL: imported with
// storegen-import and read through the PostgreSQL product library, it must
// give the pages its text files give, byte for byte; a change committed to
// the database shows on the next page, and a server that is down makes a
// request fail cleanly until it is back; the same through storegen-fcgi,
// whose worker keeps the library loaded and its connection open between
// requests.
#include <unistd.h>

#include <cstdio>
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
using testing::StoreResponder;

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

TEST(PgStoreTest, StaticRunDynamicRequestsAndTheResponderWriteThePagesOfTheTextFiles) {
  ScopedTempDir dir;
  PgStore pg("store_pages");
  auto responder = StoreResponder::Start(pg.store);
  testing::ExpectSamePages(testing::InstallSampleStore(dir.path()), pg.store, responder.get());
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

TEST(PgStoreTest, AResponderSeesCommitsOutlivesTheServerAndStaysTheSameSize) {
  PgStore pg("store_responder");
  auto started = StoreResponder::Start(pg.store);
  if (started == nullptr) GTEST_SKIP() << "no storegen-fcgi, or no cgi-fcgi (Debian: libfcgi-bin)";
  const StoreResponder& responder = *started;
  const pid_t worker = responder.Worker();
  const std::vector<std::string> product = {"-p", "ll-101"}, list = {"-C", "Lighting", "-f", "0"};
  const std::vector<std::vector<std::string>> requests = {product,
                                                          list,
                                                          {"-C", "Lighting", "-f", "2"},
                                                          {"-C", "Garden", "-f", "0"},
                                                          {"-f", "0"},
                                                          {"-f", "3"},
                                                          {"-f", "20"}};
  // A worker may keep what it derives from the store's files once they have
  // stood unchanged for a moment; the database's rows change under them.
  sleep(3);
  for (const auto& request : requests)
    ASSERT_EQ(responder.Get(request), pg.Run(request).out) << request[1];
  ASSERT_NE(responder.Get(list).find("$89.00"), std::string::npos);

  // Commits show on the next answers, which stay those of the program run
  // for the request alone: a new price, a product moved to another
  // category, one removed (what a list passes over changes).
  pg.Query(
      "UPDATE products SET \"PRICE\" = '31.50' WHERE \"SKU\" = 'LL-101';"
      " UPDATE products SET \"TILLBOXCATEGORY\" = 'Garden' WHERE \"SKU\" = 'LL-102';"
      " DELETE FROM products WHERE \"SKU\" = 'LL-103'");
  for (const auto& request : requests)
    EXPECT_EQ(responder.Get(request), pg.Run(request).out) << request[1];
  const std::string page = responder.Get(product);
  EXPECT_NE(page.find("$31.50"), std::string::npos) << page;
  EXPECT_NE(responder.Get({"-C", "Garden", "-f", "0"}).find("LL-102"), std::string::npos);
  // A connection the server ended is made again within the request.
  pg.Query(
      "SELECT pg_terminate_backend(pid) FROM pg_stat_activity"
      " WHERE application_name = 'storegen'");
  EXPECT_EQ(responder.Get(product), page);
  EXPECT_EQ(responder.Log().find("PostgreSQL"), std::string::npos) << responder.Log();

  // While the server is down a request is answered 503, with a line in the
  // log; the worker carries on, and answers once the server is back.
  PgServer& server = PgServer::Get();
  server.Stop();
  const std::string down[] = {responder.Get(product), responder.Get(list)};
  ASSERT_TRUE(server.Start());
  for (const std::string& answer : down)
    EXPECT_EQ(answer.rfind("Status: 503 ", 0), 0u) << answer;
  EXPECT_NE(responder.Log().find("PostgreSQL product library: " + pg.store.Store("store.pgconf")),
            std::string::npos)
      << responder.Log();
  EXPECT_NE(responder.Log().find("-C Lighting -f 0: the product database cannot be opened"),
            std::string::npos)
      << responder.Log();
  EXPECT_EQ(responder.Get(product), page);

  // Many requests later the worker holds the same descriptors (its
  // connections among them), and has not grown by more than its allocator's
  // slack.
  std::size_t descriptors = 0;
  long kib = 0;
  for (int i = 0; i < 300; ++i) {
    responder.Get(i % 2 ? product : list);
    if (i == 10) {
      descriptors = responder.WorkerDescriptors();
      kib = responder.WorkerKiB();
    }
  }
  EXPECT_EQ(responder.Worker(), worker);
  EXPECT_EQ(responder.WorkerDescriptors(), descriptors);
  std::printf("worker: %ld KiB, then %ld KiB 290 requests later\n", kib, responder.WorkerKiB());
#if !defined(__SANITIZE_ADDRESS__)
  EXPECT_LT(responder.WorkerKiB() - kib, 512);
#endif
}

}  // namespace
}  // namespace storegen
