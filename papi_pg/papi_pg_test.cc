// The PostgreSQL product library through its C ABI (loaded with dlopen),
// against the test binary's own server: records as the built-in reader gives
// them, and what an operator meets: tables it cannot read, passwords in the
// wrong place, a server that goes away and comes back.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "papi_pg/pg_import.h"
#include "tests/support/papi_conn.h"
#include "tests/support/pg_server.h"
#include "tests/support/test_util.h"

namespace storegen {
namespace {

using testing::Api;
using testing::Conn;
using testing::Pairs;
using testing::PgServer;
using testing::ScopedTempDir;
using testing::WriteFile;

const Api& Pg() {
  static const Api api = testing::LoadApi(PAPI_PG_LIB);
  return api;
}

class PapiPgTest : public ::testing::Test {
 protected:
  void SetUp() override {
    conninfo_ = PgServer::Get().FreshSchema("papi");
    WriteFile(cfg_, "# the test's schema\n\n" + conninfo_ + "\n");
  }

  // Writes |text| as the product database, and as the category database
  // unless |categories| is false, and imports them.
  void Import(const std::string& text, bool categories = true) {
    WriteFile(txt_, text);
    if (categories) WriteFile(dir_.Path("products.cdb"), text);
    std::string report, err;
    ASSERT_TRUE(ImportIntoPostgres(txt_, conninfo_, &report, &err)) << err;
  }

  std::string Query(const std::string& sql) { return PgServer::Get().Query(conninfo_, sql); }

  ScopedTempDir dir_;
  std::string txt_ = dir_.Path("products.txt");
  std::string cfg_ = dir_.Path("store.pgconf");
  std::string conninfo_;
};

// SKUs A0, A1, ... in order: more rows than the first batch of a walk.
std::string ManyRows(int n) {
  std::string text = "SKU\tName\n";
  for (int i = 0; i < n; ++i)
    text += "A" + std::to_string(i) + "\t" + std::to_string(i) + "\n";
  return text;
}

TEST_F(PapiPgTest, RecordsMatchTheBuiltinReader) {
  for (const auto& [what, text] : testing::ReaderCases()) {
    Import(text);
    for (const char* db : {"products.txt", "products.cdb"}) {
      SCOPED_TRACE(std::string(what) + " / " + db);
      Conn builtin(testing::kBuiltin, dir_.Path(db));
      Conn pg(Pg(), dir_.Path(db), cfg_);
      testing::ExpectSameRecords(pg, builtin);
    }
  }
}

TEST_F(PapiPgTest, IterationSurvivesLookupsAndResumesFromAnEarlierPosition) {
  Import(ManyRows(40));
  Conn conn(Pg(), txt_, cfg_);
  std::vector<int32_t> positions;
  int n = 0;
  for (Pairs item = conn.First(); !item.empty(); item = conn.Next(), ++n) {
    EXPECT_EQ(item, (Pairs{{"SKU", "A" + std::to_string(n)}, {"Name", std::to_string(n)}}));
    positions.push_back(conn.position);
    EXPECT_EQ(conn.Lookup("a7"), (Pairs{{"SKU", "A7"}, {"Name", "7"}}));
  }
  EXPECT_EQ(n, 40);
  conn.position = positions[2];
  EXPECT_EQ(conn.Next(), (Pairs{{"SKU", "A3"}, {"Name", "3"}}));
  EXPECT_EQ(conn.Next(), (Pairs{{"SKU", "A4"}, {"Name", "4"}}));
}

TEST_F(PapiPgTest, TablesItCannotReadGiveNoHandleAndSayWhy) {
  Import("SKU\tName\nA\t1\n", /*categories=*/false);
  WriteFile(dir_.Path("password.pgconf"), conninfo_ + " password=secret\n");
  const struct {
    std::string sql, db, cfg, message;
  } cases[] = {
      {"", "p.cdb", cfg_, ""},  // no categories: no message, as for a missing file
      {"", "p.txt", dir_.Path("none.pgconf"), "none.pgconf: cannot read the connection string"},
      {"", "p.txt", dir_.Path("password.pgconf"), "holds a password; keep it in ~/.pgpass"},
      {"CREATE TABLE categories (\"Name\" text)", "p.cdb", cfg_,
       "table \"categories\" has no column \"storegen_row\""},
  };
  for (const auto& c : cases) {
    if (!c.sql.empty()) Query(c.sql);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(Conn(Pg(), c.db, c.cfg).handle(), nullptr) << c.cfg;
    std::string err = ::testing::internal::GetCapturedStderr();
    if (c.message.empty()) {
      EXPECT_EQ(err, "");
    } else {
      EXPECT_NE(err.find(": PostgreSQL product library: "), std::string::npos) << err;
      EXPECT_NE(err.find(c.message), std::string::npos) << err;
    }
  }
  // A table made by hand: NULL reads as "NA", other types as their text.
  Query(
      "DROP TABLE products; CREATE TABLE products (\"Price\" numeric, id int, \"Name\" text,"
      " storegen_row int); INSERT INTO products VALUES (2.50, 7, NULL, 1)");
  EXPECT_EQ(Conn(Pg(), "p", cfg_).Lookup("2.50"),
            (Pairs{{"Price", "2.50"}, {"id", "7"}, {"Name", "NA"}}));
}

TEST_F(PapiPgTest, ALostConnectionIsTriedOnceMoreAndAStoppedServerFailsCleanly) {
  Import(ManyRows(20));
  PgServer& server = PgServer::Get();
  Conn conn(Pg(), txt_, cfg_);
  EXPECT_EQ(conn.First()[0].second, "A0");
  // A restart ends the session in the middle of a walk.
  server.Stop();
  ASSERT_TRUE(server.Start());
  ::testing::internal::CaptureStderr();
  for (int i = 1; i < 20; ++i)
    EXPECT_EQ(conn.Next()[0].second, "A" + std::to_string(i));
  EXPECT_EQ(conn.Lookup("a5")[1].second, "5");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

  server.Stop();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(conn.Lookup("a5"), Pairs());
  EXPECT_EQ(Conn(Pg(), txt_, cfg_).handle(), nullptr);
  std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find(": PostgreSQL product library: " + cfg_ + ": "), std::string::npos) << err;
  EXPECT_EQ(err.find('\n'), err.size() - 1) << "one line: " << err;

  ASSERT_TRUE(server.Start());
  EXPECT_EQ(conn.Lookup("a5")[1].second, "5");
  EXPECT_EQ(Conn(Pg(), txt_, cfg_).Lookup("A19")[1].second, "19");
}

}  // namespace
}  // namespace storegen
