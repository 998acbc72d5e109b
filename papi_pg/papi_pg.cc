// The PostgreSQL product library: the six product-API entry points over one
// table of a PostgreSQL database. Only the entry points are exported.
#include "papi_pg/papi_pg.h"

#include <errno.h>  // program_invocation_short_name
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "papi_pg/pg_util.h"
#include "storedata/papi_record.h"

namespace storegen::pg {
namespace {

constexpr int64_t kBeforeFirstRow = std::numeric_limits<int64_t>::min();
// Rows fetched per query while walking a table: few at first, since a page
// made on request often needs only the first products, more the further the
// walk goes.
constexpr int kFirstBatch = 16;
constexpr int kLargestBatch = 1024;
// Connections kept open for later passes of the process.
constexpr std::size_t kIdleSessions = 4;

// The category database is the product database's path with ".cdb" in place
// of its extension; everything else is the product database.
const char* TableFor(const char* db) {
  return IsCategoryDatabase(db) ? kCategoriesTable : kProductsTable;
}

// Says on standard error why a call fails, naming the configuration file;
// the same line is not repeated until a connection has worked again.
class Complaints {
 public:
  void Say(const std::string& cfg, const std::string& reason) {
    std::string line = std::string(program_invocation_short_name) +
                       ": PostgreSQL product library: " + cfg + ": " + reason + "\n";
    std::lock_guard<std::mutex> lock(mutex_);
    if (line == last_) return;
    last_ = line;
    std::fputs(line.c_str(), stderr);
  }
  void Forget() {
    std::lock_guard<std::mutex> lock(mutex_);
    last_.clear();
  }

 private:
  std::mutex mutex_;
  std::string last_;
};

Complaints& Complaint() {
  static Complaints complaints;
  return complaints;
}

// A connection, the statements prepared on it, and the process it belongs
// to.
struct Session {
  std::string conninfo;
  Conn conn;
  pid_t pid = getpid();
  std::map<std::string, std::string> prepared;  // SQL text -> statement name
};

// The sessions between two passes. A session of another process (this one
// forked after it connected) is never used or ended here: ending it would
// end the other process's session on the server.
class IdleSessions {
 public:
  ~IdleSessions() {
    for (auto& session : idle_)
      Abandon(std::move(session));
  }

  std::unique_ptr<Session> Take(const std::string& conninfo) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = idle_.begin(); it != idle_.end(); ++it) {
      if ((*it)->conninfo != conninfo) continue;
      std::unique_ptr<Session> session = std::move(*it);
      idle_.erase(it);
      if (session->pid == getpid()) return session;
      Abandon(std::move(session));
      return nullptr;
    }
    return nullptr;
  }

  // Keeps |session| when it is healthy and outside a transaction; the oldest
  // goes when there are too many.
  void Give(std::unique_ptr<Session> session) {
    PGconn* conn = session->conn.get();
    if (session->pid != getpid()) return Abandon(std::move(session));
    if (PQstatus(conn) != CONNECTION_OK || PQtransactionStatus(conn) != PQTRANS_IDLE) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.size() >= kIdleSessions) idle_.erase(idle_.begin());
    idle_.push_back(std::move(session));
  }

 private:
  // Keeps another process's session out of reach of PQfinish, for good.
  static void Abandon(std::unique_ptr<Session> session) {
    if (session == nullptr || session->pid == getpid()) return;
    static auto* abandoned = new std::vector<PGconn*>;
    abandoned->push_back(session->conn.release());
  }

  std::mutex mutex_;
  std::vector<std::unique_ptr<Session>> idle_;
};

IdleSessions& Idle() {
  static IdleSessions sessions;
  return sessions;
}

// The connection string in the library's configuration file |cfg|: its
// lines but blank ones and "#" comments, joined by blanks. False, with the
// reason in |err|, when the file cannot be read.
bool ReadConnectionString(const char* cfg, std::string* conninfo, std::string* err) {
  std::ifstream in(cfg);
  if (!in) {
    *err = std::string("cannot read the connection string: ") + std::strerror(errno);
    return false;
  }
  for (std::string line; std::getline(in, line);) {
    std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') continue;
    std::size_t end = line.find_last_not_of(" \t\r");
    *conninfo += (conninfo->empty() ? "" : " ") + line.substr(begin, end - begin + 1);
  }
  return true;
}

// One PAPI_Initialization: a session and the two queries on its table. Both
// select "storegen_row" first, then every other column as text.
class Connection {
 public:
  // A connection to the table of |db| in the database that the
  // configuration file |api_cfg| names. Null when the file cannot be read or
  // names a password, the server cannot be reached, or the table is missing
  // or has no "storegen_row".
  static std::unique_ptr<Connection> Open(const char* db, const char* api_cfg) {
    std::string conninfo, err;
    if (!ReadConnectionString(api_cfg, &conninfo, &err) ||
        !(err = CheckConnectionString(conninfo)).empty()) {
      Complaint().Say(api_cfg, err);
      return nullptr;
    }
    auto c = std::unique_ptr<Connection>(new Connection(api_cfg));
    c->session_ = Idle().Take(conninfo);
    if (c->session_ == nullptr) {
      Conn conn = Connect(conninfo, &err);
      if (conn == nullptr) return c->Fail(err);
      c->session_ = std::make_unique<Session>();
      c->session_->conninfo = conninfo;
      c->session_->conn = std::move(conn);
      Complaint().Forget();
    }
    return c->Describe(TableFor(db)) ? std::move(c) : nullptr;
  }

  ~Connection() {
    if (session_ != nullptr) Idle().Give(std::move(session_));
  }

  PAPI_Pair* Lookup(const char* sku, char** names) {
    Result result = Run(lookup_, {sku});
    return result != nullptr && PQntuples(result.get()) > 0 ? RecordOf(result.get(), 0, names)
                                                            : nullptr;
  }

  PAPI_Pair* First(int32_t* position, char** names) {
    after_ = kBeforeFirstRow;
    batch_.reset();
    batch_size_ = kFirstBatch;
    return Next(position, names, /*restart=*/true);
  }

  // Continues after the row last returned, or after the row in *position
  // when the caller changed it since.
  PAPI_Pair* Next(int32_t* position, char** names, bool restart = false) {
    int64_t from = after_;
    if (!restart && position != nullptr && *position != handed_out_) from = *position;
    if (from != after_) batch_.reset();
    if (batch_ == nullptr || row_ == PQntuples(batch_.get())) {
      if (batch_ != nullptr && last_batch_) return End(from);
      batch_ = Run(walk_, {std::to_string(from), std::to_string(batch_size_)});
      row_ = 0;
      if (batch_ == nullptr || PQntuples(batch_.get()) == 0) return End(from);
      last_batch_ = PQntuples(batch_.get()) < batch_size_;
      if (!last_batch_ && batch_size_ < kLargestBatch) batch_size_ *= 2;
    }
    int row = row_++;
    after_ = std::strtoll(PQgetvalue(batch_.get(), row, 0), nullptr, 10);
    // A row number beyond 32 bits is carried by after_; the position then
    // only has to come back unchanged.
    handed_out_ = static_cast<int32_t>(after_);
    if (position != nullptr) *position = handed_out_;
    return RecordOf(batch_.get(), row, names);
  }

 private:
  explicit Connection(std::string cfg) : cfg_(std::move(cfg)) {}

  std::nullptr_t Fail(const std::string& reason) {
    Complaint().Say(cfg_, reason);
    return nullptr;
  }

  PAPI_Pair* End(int64_t from) {
    batch_.reset();
    after_ = from;
    return nullptr;
  }

  // Reads the table's columns and builds its queries. False (with a message
  // unless the table is missing) when it cannot be read.
  bool Describe(const char* table) {
    Result columns =
        Run("SELECT a.attname, a.atttypid = 'pg_catalog.text'::pg_catalog.regtype"
            " FROM pg_catalog.pg_attribute a WHERE a.attrelid = pg_catalog.to_regclass($1)"
            " AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum",
            {QuoteIdentifier(table)});
    if (columns == nullptr || PQntuples(columns.get()) == 0) return false;
    std::string select = "SELECT " + QuoteIdentifier(kRowColumn), key;
    bool ordered = false;
    for (int i = 0; i < PQntuples(columns.get()); ++i) {
      const char* name = PQgetvalue(columns.get(), i, 0);
      if (std::strcmp(name, kRowColumn) == 0) {
        ordered = true;
        continue;
      }
      std::string column = QuoteIdentifier(name);
      if (*PQgetvalue(columns.get(), i, 1) != 't') column += "::text";
      if (names_.empty()) key = column;
      select += ", " + column;
      names_.emplace_back(name);
    }
    if (!ordered || names_.empty()) {
      Fail("table \"" + std::string(table) + "\" has no column \"" + kRowColumn +
           "\" to keep its rows in order");
      return false;
    }
    std::string from = select + " FROM " + QuoteIdentifier(table);
    std::string order = " ORDER BY " + QuoteIdentifier(kRowColumn);
    walk_ = from + " WHERE " + QuoteIdentifier(kRowColumn) + " > $1::bigint" + order + " LIMIT $2";
    // The inner query is planned on its own (OFFSET 0), so that it finds its
    // rows through the key index even where the planner would rather walk
    // the order index looking for the first match (a table not analysed).
    lookup_ = "SELECT * FROM (" + from + " WHERE " + KeyExpression(key) + " = " +
              KeyExpression("$1::text") + " OFFSET 0) m" + order + " LIMIT 1";
    return true;
  }

  // Runs |sql| as a statement prepared on the session. A failure on a lost
  // connection reconnects, any other forgets the prepared statements (the
  // table may have changed under them); either way the query is tried once
  // more. Null, with a message, when that fails too.
  Result Run(const std::string& sql, const std::vector<std::string>& params) {
    std::vector<const char*> values;
    for (const std::string& param : params)
      values.push_back(param.c_str());
    PGconn* conn = session_->conn.get();
    std::string error;
    for (int attempt = 0; attempt < 2; ++attempt) {
      auto [it, fresh] = session_->prepared.try_emplace(
          sql, "storegen_" + std::to_string(session_->prepared.size()));
      Result result;
      if (fresh) {
        result.reset(PQprepare(conn, it->second.c_str(), sql.c_str(),
                               static_cast<int>(values.size()), nullptr));
      }
      if (!fresh || PQresultStatus(result.get()) == PGRES_COMMAND_OK) {
        result.reset(PQexecPrepared(conn, it->second.c_str(), static_cast<int>(values.size()),
                                    values.data(), nullptr, nullptr, 0));
        if (PQresultStatus(result.get()) == PGRES_TUPLES_OK) return result;
      }
      error = OneLine(result != nullptr ? PQresultErrorMessage(result.get()) : "out of memory");
      session_->prepared.clear();
      if (PQstatus(conn) != CONNECTION_OK) {
        PQreset(conn);
        if (PQstatus(conn) != CONNECTION_OK || !SetUpSession(conn)) {
          error = OneLine(PQerrorMessage(conn));
          break;
        }
        Complaint().Forget();
      } else {
        Result(PQexec(conn, "DEALLOCATE ALL"));
      }
    }
    return Fail(error);
  }

  // Row |row| of |result| as a malloc'd record (column 0, "storegen_row",
  // left out): every column, or with |names| each named one in the caller's
  // spelling; null when memory runs out.
  PAPI_Pair* RecordOf(PGresult* result, int row, char** names) const {
    return MakePapiRecord(
        static_cast<int>(names_.size()), names, [&](int i) { return names_[i].c_str(); },
        [&](const char* name) { return ColumnOf(name); },
        [&](int column) {
          return PQgetisnull(result, row, column + 1) ? nullptr
                                                      : PQgetvalue(result, row, column + 1);
        });
  }

  // The index in names_ of the column named |name| (ASCII case ignored, any
  // column, not only the first 99), or -1.
  int ColumnOf(const char* name) const {
    for (std::size_t i = 0; i < names_.size(); ++i) {
      if (SameIgnoringAsciiCase(names_[i], name)) return static_cast<int>(i);
    }
    return -1;
  }

  std::string cfg_;
  std::unique_ptr<Session> session_;
  std::vector<std::string> names_;  // the columns but "storegen_row"
  std::string walk_, lookup_;
  Result batch_;             // the rows of the walk fetched last
  int row_ = 0;              // the next of them to hand out
  bool last_batch_ = false;  // it was short: the table ends with it
  int batch_size_ = kFirstBatch;
  int64_t after_ = kBeforeFirstRow;
  int32_t handed_out_ = 0;  // what the caller's position was last set to
};

}  // namespace
}  // namespace storegen::pg

namespace storegen {
using LibraryConnection = pg::Connection;
}  // namespace storegen

#include "storedata/papi_entry_points.h"
