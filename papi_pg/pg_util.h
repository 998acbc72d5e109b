// Small libpq helpers shared by the PostgreSQL product library and the import
// tool: owners for connections and results, how both connect, and the table
// layout both agree on. Header-only, so that the library links nothing of
// storegen's.
#ifndef STOREGEN_PAPI_PG_PG_UTIL_H_
#define STOREGEN_PAPI_PG_PG_UTIL_H_

#include <cstdlib>
#include <cstring>
#include <libpq-fe.h>
#include <memory>
#include <string>
#include <string_view>

namespace storegen::pg {

// The table that holds the product database, and the one that holds the
// category database.
inline constexpr const char kProductsTable[] = "products";
inline constexpr const char kCategoriesTable[] = "categories";
// The column that keeps a table's rows in the order of the text file they
// came from (an identity column: rows added later go to the end). It is no
// part of the records.
inline constexpr const char kRowColumn[] = "storegen_row";
// Seconds to wait for the server when the connection string says nothing.
inline constexpr const char kConnectTimeout[] = "10";

struct ConnCloser {
  void operator()(PGconn* conn) const { PQfinish(conn); }
};
struct ResultClearer {
  void operator()(PGresult* result) const { PQclear(result); }
};
using Conn = std::unique_ptr<PGconn, ConnCloser>;
using Result = std::unique_ptr<PGresult, ResultClearer>;

// |name| as an SQL identifier: in double quotes, inner quotes doubled.
inline std::string QuoteIdentifier(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

// The expression a table's key index is made on and a look-up compares: the
// key column in lower case, folded in ASCII only (collation "C"), as the
// built-in reader compares SKUs.
inline std::string KeyExpression(const std::string& quoted_key) {
  return "lower(" + quoted_key + " COLLATE \"C\")";
}

// The names of a table's two indexes: on its key expression, and on its
// row-order column.
inline std::string KeyIndexName(std::string_view table) {
  return std::string(table) + "_key";
}
inline std::string OrderIndexName(std::string_view table) {
  return std::string(table) + "_order";
}

// A libpq message on one line: each line end, with the indentation after
// it, becomes "; "; trailing line ends go.
inline std::string OneLine(std::string_view message) {
  std::string line;
  for (std::size_t i = 0; i < message.size(); ++i) {
    if (message[i] != '\n') {
      line += message[i];
      continue;
    }
    while (i + 1 < message.size() && (message[i + 1] == '\t' || message[i + 1] == ' '))
      ++i;
    if (i + 1 < message.size()) line += "; ";
  }
  return line;
}

// "" when |conninfo| (a libpq URI or keyword=value string) can be used:
// it parses and names no password, which belongs in ~/.pgpass (or the file
// PGPASSFILE names, or PGPASSWORD), never in a file or command line that
// others read. Otherwise what is wrong with it.
inline std::string CheckConnectionString(const std::string& conninfo) {
  char* error = nullptr;
  PQconninfoOption* options = PQconninfoParse(conninfo.c_str(), &error);
  std::string problem;
  if (options == nullptr) {
    problem = error != nullptr ? OneLine(error) : "out of memory";
  } else {
    for (PQconninfoOption* o = options; o->keyword != nullptr; ++o) {
      if (std::strcmp(o->keyword, "password") == 0 && o->val != nullptr)
        problem =
            "the connection string holds a password; keep it in ~/.pgpass (or PGPASSFILE, "
            "PGPASSWORD) instead";
    }
  }
  PQfreemem(error);
  PQconninfoFree(options);
  return problem;
}

// After connecting (or reconnecting): server notices are not shown, and the
// client encoding is the database's, so that text goes in and comes out
// byte for byte. False when the encoding cannot be set.
inline bool SetUpSession(PGconn* conn) {
  PQsetNoticeProcessor(
      conn, [](void*, const char*) {}, nullptr);
  const char* server = PQparameterStatus(conn, "server_encoding");
  const char* client = PQparameterStatus(conn, "client_encoding");
  if (server == nullptr || (client != nullptr && std::strcmp(server, client) == 0)) return true;
  return PQsetClientEncoding(conn, server) == 0;
}

// Connects with |conninfo| (empty: libpq's defaults and PG* environment
// variables). Unless the string or the environment says otherwise, the
// connection shows as "storegen" among the server's sessions and gives up
// after kConnectTimeout seconds. Null, with libpq's reason in |err|, on
// failure.
inline Conn Connect(const std::string& conninfo, std::string* err) {
  const char* timeout = std::getenv("PGCONNECT_TIMEOUT") != nullptr ? "" : kConnectTimeout;
  const char* keys[] = {"fallback_application_name", "connect_timeout", "dbname", nullptr};
  const char* values[] = {"storegen", timeout, conninfo.c_str(), nullptr};
  Conn conn(PQconnectdbParams(keys, values, /*expand_dbname=*/1));
  if (conn == nullptr) {
    *err = "out of memory";
    return nullptr;
  }
  if (PQstatus(conn.get()) != CONNECTION_OK || !SetUpSession(conn.get())) {
    *err = OneLine(PQerrorMessage(conn.get()));
    return nullptr;
  }
  return conn;
}

}  // namespace storegen::pg

#endif  // STOREGEN_PAPI_PG_PG_UTIL_H_
