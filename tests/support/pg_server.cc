#include "tests/support/pg_server.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <libpq-fe.h>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace storegen::testing {
namespace {

namespace fs = std::filesystem;

// The user that runs the server when the tests run as root (the server
// refuses to run as root).
constexpr uid_t kServerUser = 65534;
constexpr char kInstallRoot[] = "/usr/lib/postgresql";

// Runs |argv| as the server's user, its output appended to |log|; returns
// its pid. With |die_with_us| it gets SIGQUIT (the server's immediate
// shutdown) when this process ends, however it ends.
pid_t Spawn(const std::vector<std::string>& argv, const std::string& log, bool die_with_us) {
  std::vector<char*> args;
  for (const std::string& arg : argv)
    args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const pid_t parent = getpid();
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  int out = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  int in = open("/dev/null", O_RDONLY);
  if (out < 0 || in < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(out, 2) < 0) _exit(126);
  if (geteuid() == 0 &&
      (setgroups(0, nullptr) != 0 || setgid(kServerUser) != 0 || setuid(kServerUser) != 0))
    _exit(125);
  if (die_with_us && (prctl(PR_SET_PDEATHSIG, SIGQUIT) != 0 || getppid() != parent)) _exit(124);
  execv(args[0], args.data());
  _exit(127);
}

// The server's own account of what went wrong.
std::string LogOf(const std::string& log) {
  return "\n--- " + log + " ---\n" + ReadFile(log, false);
}

}  // namespace

std::string PgServer::BinDir() {
  std::string best;
  int best_version = 0;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(kInstallRoot, ec)) {
    std::string bin = entry.path().string() + "/bin";
    int version = std::atoi(entry.path().filename().c_str());
    if (version > best_version && access((bin + "/initdb").c_str(), X_OK) == 0 &&
        access((bin + "/postgres").c_str(), X_OK) == 0) {
      best = bin;
      best_version = version;
    }
  }
  return best;
}

PgServer& PgServer::Get() {
  static PgServer server;
  return server;
}

// Small write-ahead log segments keep the server's directory under 30 MB, as
// the memory file system of a container may be small.
PgServer::PgServer()
    : socket_dir_(dir_.Path("pg")), data_dir_(socket_dir_ + "/data"), log_(dir_.Path("pg.log")) {
  // The server's user must reach its directory.
  chmod(dir_.path().c_str(), 0711);
  mkdir(socket_dir_.c_str(), 0700);
  if (geteuid() == 0 && chown(socket_dir_.c_str(), kServerUser, kServerUser) != 0)
    ADD_FAILURE() << "cannot hand " << socket_dir_ << " to user " << kServerUser;
  const std::string bin = BinDir();
  pid_t pid = Spawn({bin + "/initdb", "-D", data_dir_, "-U", "storegen", "-A", "trust", "-E",
                     "UTF8", "--locale=C", "--no-sync", "--no-instructions", "--wal-segsize=1"},
                    log_, false);
  int status = -1;
  if (pid < 0 || waitpid(pid, &status, 0) != pid || status != 0) {
    ADD_FAILURE() << "initdb failed" << LogOf(log_);
    return;
  }
  EXPECT_TRUE(Start()) << "the PostgreSQL server did not start" << LogOf(log_);
}

PgServer::~PgServer() {
  Stop();
}

bool PgServer::Start() {
  pid_ = Spawn(
      {BinDir() + "/postgres", "-D", data_dir_, "-k", socket_dir_, "-c", "listen_addresses=", "-c",
       "fsync=off", "-c", "full_page_writes=off", "-c", "synchronous_commit=off"},
      log_, true);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
    if (PQping(ConnInfo().c_str()) == PQPING_OK) return true;
    if (waitpid(pid_, nullptr, WNOHANG) == pid_) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  pid_ = -1;
  return false;
}

void PgServer::Stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGINT);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

std::string PgServer::ConnInfo() const {
  return "host=" + socket_dir_ + " user=storegen dbname=postgres";
}

std::string PgServer::FreshSchema(const std::string& name) {
  Query(ConnInfo(), "DROP SCHEMA IF EXISTS " + name + " CASCADE; CREATE SCHEMA " + name);
  return ConnInfo() + " options='-csearch_path=" + name + "'";
}

std::string PgServer::Query(const std::string& conninfo, const std::string& sql) {
  PGconn* conn = PQconnectdb(conninfo.c_str());
  PQsetNoticeProcessor(
      conn, [](void*, const char*) {}, nullptr);
  PGresult* result = PQexec(conn, sql.c_str());
  std::string values;
  ExecStatusType status = PQresultStatus(result);
  if (status == PGRES_TUPLES_OK) {
    for (int row = 0; row < PQntuples(result); ++row) {
      for (int column = 0; column < PQnfields(result); ++column)
        values += std::string(PQgetvalue(result, row, column)) + "|";
    }
  } else if (status != PGRES_COMMAND_OK) {
    ADD_FAILURE() << sql << ": " << PQerrorMessage(conn);
  }
  PQclear(result);
  PQfinish(conn);
  return values;
}

}  // namespace storegen::testing

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (storegen::testing::PgServer::BinDir().empty()) {
    const char* ci = std::getenv("CI");
    std::printf("SKIPPED: no PostgreSQL server under %s (Debian: postgresql)\n",
                storegen::testing::kInstallRoot);
    return ci != nullptr && std::strcmp(ci, "true") == 0 ? 1 : 77;
  }
  return RUN_ALL_TESTS();
}
