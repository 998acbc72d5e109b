#include "papi_pg/pg_import.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "import/text_table.h"
#include "papi_pg/pg_util.h"

namespace storegen {
namespace {

using pg::QuoteIdentifier;

// The longest identifier PostgreSQL keeps whole; longer ones it cuts.
constexpr std::size_t kMaxIdentifier = 63;
// Sent to the server whenever this much COPY data has gathered.
constexpr std::size_t kCopyChunk = 1 << 16;
// The advisory lock that makes imports into one database take turns.
constexpr const char* kImportLock = "SELECT pg_catalog.pg_advisory_xact_lock(7305823101)";

// True when |text| is well-formed UTF-8 (no overlong forms, surrogates or
// code points past U+10FFFF), as a UTF8 database requires.
bool IsUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
    unsigned c = byte(i);
    // The number of continuation bytes; 4 for a byte no character starts with.
    std::size_t n = c < 0x80                ? 0
                    : c >= 0xc2 && c < 0xe0 ? 1
                    : c >= 0xe0 && c < 0xf0 ? 2
                    : c >= 0xf0 && c < 0xf5 ? 3
                                            : 4;
    if (n == 4 || text.size() - i <= n) return false;
    for (std::size_t k = 1; k <= n; ++k) {
      if ((byte(i + k) & 0xc0) != 0x80) return false;
    }
    if (n >= 2) {
      unsigned second = byte(i + 1);
      if ((c == 0xe0 && second < 0xa0) || (c == 0xed && second >= 0xa0) ||
          (c == 0xf0 && second < 0x90) || (c == 0xf4 && second >= 0x90))
        return false;
    }
    i += n + 1;
  }
  return true;
}

// |value| for COPY's text format.
void AppendCopyField(std::string* out, const char* value) {
  for (const char* p = value; *p != '\0'; ++p) {
    switch (*p) {
      case '\\':
        *out += "\\\\";
        break;
      case '\t':
        *out += "\\t";
        break;
      case '\n':
        *out += "\\n";
        break;
      case '\r':
        *out += "\\r";
        break;
      default:
        *out += *p;
    }
  }
}

// One import: the connection and the first error met. It fills one table at
// a time from the reader of the text files, under a name of its own, and
// then puts it in the old table's place.
class Importer : public TableWriter {
 public:
  explicit Importer(PGconn* conn)
      : conn_(conn),
        utf8_(std::string_view(PQparameterStatus(conn, "server_encoding") ?: "") == "UTF8") {}

  const std::string& error() const { return err_; }

  // What the import went into: the database and its server.
  std::string Target() const {
    std::string host = PQhost(conn_) != nullptr ? PQhost(conn_) : "";
    return "database \"" + std::string(PQdb(conn_)) + "\"" +
           (host.empty() ? "" : " on " + host + " port " + PQport(conn_));
  }

  bool Exec(const std::string& sql) {
    pg::Result result(PQexec(conn_, sql.c_str()));
    ExecStatusType status = PQresultStatus(result.get());
    return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || Fail(result.get());
  }

  // Replaces |table| with the contents of the tab-separated file |path|.
  bool ImportTable(const std::string& path, const char* table, TableSummary* summary) {
    table_ = table;
    staging_ = table_ + "_import";
    return ReadTextTable(path, this, summary, &err_) && EndCopy() && TakeThePlaceOf(table_);
  }

  bool Columns(const std::string& path, const std::vector<std::string>& names,
               std::string* err) override {
    path_ = path;
    std::string create = "CREATE TABLE " + QuoteIdentifier(staging_) + " (" +
                         QuoteIdentifier(pg::kRowColumn) + " bigint GENERATED ALWAYS AS IDENTITY";
    std::string copy = "COPY " + QuoteIdentifier(staging_) + " (";
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string& name = names[i];
      if (std::string problem = NameProblem(name); !problem.empty()) {
        *err = path + ": column name \"" + name + "\" " + problem;
        return false;
      }
      create += ", " + QuoteIdentifier(name) + " text";
      copy += (i ? ", " : "") + QuoteIdentifier(name);
    }
    key_ = QuoteIdentifier(names[0]);
    if (!Exec(create + ")")) return false;
    pg::Result result(PQexec(conn_, (copy + ") FROM STDIN").c_str()));
    return PQresultStatus(result.get()) == PGRES_COPY_IN || Fail(result.get());
  }

  bool Row(const PAPI_Pair* record, int line, std::string* err) override {
    for (const PAPI_Pair* pair = record; pair->name != nullptr; ++pair) {
      if (utf8_ && !IsUtf8(pair->value)) {
        *err = path_ + ": line " + std::to_string(line) +
               " is not UTF-8, the database's encoding (convert the file, or import into a "
               "database made with another encoding)";
        return false;
      }
      if (pair != record) copy_ += '\t';
      AppendCopyField(&copy_, pair->value);
    }
    copy_ += '\n';
    return copy_.size() < kCopyChunk || SendCopy();
  }

 private:
  // Why the table cannot have a column |name|, or "".
  std::string NameProblem(const std::string& name) const {
    if (name == pg::kRowColumn) return "is the one that keeps the rows' order";
    if (name.size() > kMaxIdentifier) return "is longer than 63 bytes, which PostgreSQL cuts";
    if (utf8_ && !IsUtf8(name)) return "is not UTF-8, the database's encoding";
    return "";
  }

  bool Fail(const PGresult* result) {
    err_ = Target() + ": " +
           pg::OneLine(result != nullptr ? PQresultErrorMessage(result) : PQerrorMessage(conn_));
    return false;
  }

  bool SendCopy() {
    bool sent = PQputCopyData(conn_, copy_.data(), static_cast<int>(copy_.size())) == 1;
    copy_.clear();
    return sent || Fail(nullptr);
  }

  bool EndCopy() {
    if (!SendCopy() || PQputCopyEnd(conn_, nullptr) != 1) return Fail(nullptr);
    pg::Result result(PQgetResult(conn_));
    while (PGresult* more = PQgetResult(conn_))
      PQclear(more);
    return PQresultStatus(result.get()) == PGRES_COMMAND_OK || Fail(result.get());
  }

  // Indexes the filled table and gathers its statistics (so that look-ups
  // are planned on the key index from the first request), grants on it what
  // was granted on |table|, and renames it (and its indexes) to take
  // |table|'s place.
  bool TakeThePlaceOf(const std::string& table) {
    std::string old = QuoteIdentifier(table), fresh = QuoteIdentifier(staging_);
    std::string grants =
        "SELECT g.privilege_type, g.is_grantable, CASE g.grantee WHEN 0 THEN 'PUBLIC' ELSE "
        "pg_catalog.quote_ident(pg_catalog.pg_get_userbyid(g.grantee)) END"
        " FROM pg_catalog.pg_class c, pg_catalog.aclexplode(c.relacl) g"
        " WHERE c.oid = pg_catalog.to_regclass('" +
        old + "') AND g.grantee <> c.relowner";
    pg::Result granted(PQexec(conn_, grants.c_str()));
    if (PQresultStatus(granted.get()) != PGRES_TUPLES_OK) return Fail(granted.get());
    for (int i = 0; i < PQntuples(granted.get()); ++i) {
      std::string with = *PQgetvalue(granted.get(), i, 1) == 't' ? " WITH GRANT OPTION" : "";
      if (!Exec("GRANT " + std::string(PQgetvalue(granted.get(), i, 0)) + " ON " + fresh + " TO " +
                PQgetvalue(granted.get(), i, 2) + with))
        return false;
    }
    std::string order = pg::OrderIndexName(table), key = pg::KeyIndexName(table);
    return Exec("CREATE UNIQUE INDEX " + QuoteIdentifier(staging_ + "_order") + " ON " + fresh +
                " (" + QuoteIdentifier(pg::kRowColumn) + ")") &&
           Exec("CREATE INDEX " + QuoteIdentifier(staging_ + "_key") + " ON " + fresh + " (" +
                pg::KeyExpression(key_) + ")") &&
           Exec("ANALYZE " + fresh) && Exec("DROP TABLE IF EXISTS " + old) &&
           Exec("ALTER TABLE " + fresh + " RENAME TO " + old) &&
           Exec("ALTER INDEX " + QuoteIdentifier(staging_ + "_order") + " RENAME TO " +
                QuoteIdentifier(order)) &&
           Exec("ALTER INDEX " + QuoteIdentifier(staging_ + "_key") + " RENAME TO " +
                QuoteIdentifier(key));
  }

  PGconn* conn_;
  bool utf8_;
  std::string err_;
  std::string path_;     // the file being read
  std::string table_;    // the table it replaces
  std::string staging_;  // the table it fills
  std::string key_;      // its first column, quoted
  std::string copy_;     // COPY data not sent yet
};

}  // namespace

bool ImportIntoPostgres(const std::string& product_db, const std::string& conninfo,
                        std::string* report, std::string* err) {
  if (std::string problem = pg::CheckConnectionString(conninfo); !problem.empty()) {
    *err = problem;
    return false;
  }
  pg::Conn conn = pg::Connect(conninfo, err);
  if (conn == nullptr) return false;
  std::error_code ec;
  std::string category_db = CategoryDbPathOf(product_db);
  std::string attributes = AttributeDbPathOf(product_db);
  bool have_categories = std::filesystem::exists(category_db, ec);
  TableSummary products, categories;
  Importer importer(conn.get());
  // Closing the connection before the commit rolls everything back.
  if (!importer.Exec("BEGIN") || !importer.Exec(kImportLock) ||
      !importer.ImportTable(product_db, pg::kProductsTable, &products) ||
      !(have_categories
            ? importer.ImportTable(category_db, pg::kCategoriesTable, &categories)
            : importer.Exec(std::string("DROP TABLE IF EXISTS ") + pg::kCategoriesTable)) ||
      !importer.Exec("COMMIT")) {
    *err = importer.error();
    return false;
  }
  *report += DescribeTable("products", products, product_db);
  *report += have_categories ? DescribeTable("categories", categories, category_db)
                             : "categories: none (no " + category_db + ")\n";
  *report += std::filesystem::exists(attributes, ec)
                 ? "attributes: " + attributes +
                       " stays a file: storegen reads it under the name of the store's "
                       "ProductDatabase, with the extension \".adb\"\n"
                 : "attributes: none (no " + attributes + ")\n";
  *report += "imported into " + importer.Target() + "\n";
  return true;
}

}  // namespace storegen
