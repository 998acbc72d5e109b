// A PostgreSQL server of the test binary's own, for the tests of the
// PostgreSQL product library: made with initdb in a temporary directory, run
// as an unprivileged user (65534 when the tests run as root), reached only
// through a Unix socket in that directory (so it needs no free port), and
// stopped when the binary ends, or dies. One server per test binary: the
// binary is one CTest case.
//
// pg_server.cc also gives the binary its main: without the server's
// programs it says so and exits 77, which CTest counts as skipped, or, under
// CI=true, fails.
#ifndef STOREGEN_TESTS_SUPPORT_PG_SERVER_H_
#define STOREGEN_TESTS_SUPPORT_PG_SERVER_H_

#include <sys/types.h>

#include <string>

#include "tests/support/test_util.h"

namespace storegen::testing {

class PgServer {
 public:
  // The directory of the newest installed server's programs, "" when none.
  static std::string BinDir();
  // The binary's server, made and started at first use.
  static PgServer& Get();

  PgServer(const PgServer&) = delete;
  PgServer& operator=(const PgServer&) = delete;
  ~PgServer();

  // Starts the server again after Stop(); false when it does not come up.
  bool Start();
  // Stops it the way an operator would (fast shutdown), ending every session.
  void Stop();

  // A connection string for the superuser "storegen" in database
  // "postgres", without a password (the server trusts local connections).
  std::string ConnInfo() const;
  // A schema of its own for one test, made empty, and the connection string
  // whose search_path selects it: each test's "products" and "categories".
  std::string FreshSchema(const std::string& name);
  // Runs |sql| (statements separated by ";") on |conninfo|; the values of
  // the last statement's rows, each followed by "|". Fails the test on an
  // error.
  std::string Query(const std::string& conninfo, const std::string& sql);

 private:
  PgServer();

  ScopedTempDir dir_;
  std::string socket_dir_, data_dir_, log_;
  pid_t pid_ = -1;
};

}  // namespace storegen::testing

#endif  // STOREGEN_TESTS_SUPPORT_PG_SERVER_H_
