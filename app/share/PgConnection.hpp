#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

typedef struct pg_conn PGconn;
typedef struct pg_result PGresult;

namespace brimlog {

/// A failure of the shared ledger: it names the database (never with its password), what was
/// being done and the server's or libpq's own message.
class SharedLedgerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The rows of one statement's answer, in PostgreSQL's text form.
class PgResult {
 public:
  explicit PgResult(PGresult* result);
  ~PgResult();
  PgResult(PgResult&& other) noexcept;
  PgResult& operator=(PgResult&& other) noexcept;
  PgResult(const PgResult&) = delete;
  PgResult& operator=(const PgResult&) = delete;

  int rows() const;
  bool isNull(int row, int column) const;
  std::string_view text(int row, int column) const;
  /// A column read as a number; 0 for NULL.
  int64_t integer(int row, int column) const;
  double real(int row, int column) const;

 private:
  PGresult* result_;
};

/// One connection to a PostgreSQL server, opened from a connection string or a
/// `postgresql://` URI exactly as libpq reads them: TLS, a password from the URI, `PGPASSFILE` or
/// `PGPASSWORD`, and every other `PG…` variable apply. Statements run one at a time; parameters
/// travel apart from the statement's text, so no value is ever quoted into SQL.
///
///     PgConnection db{"postgresql://ana@db.example/usage?sslmode=require"};
///     PgResult r = db.query("SELECT machine FROM brimlog.machines WHERE user_name = $1", {"ana"});
class PgConnection {
 public:
  /// Connects; throws `SharedLedgerError` naming `redacted(target)` and libpq's message.
  explicit PgConnection(const std::string& target);
  ~PgConnection();
  PgConnection(const PgConnection&) = delete;
  PgConnection& operator=(const PgConnection&) = delete;

  /// Runs statements without parameters (several, separated by semicolons); throws on failure.
  void exec(std::string_view sql);
  /// Runs one statement with text parameters ($1, $2, …; an absent value is NULL) and returns its
  /// rows; throws on failure.
  PgResult query(std::string_view sql, const std::vector<std::optional<std::string>>& params = {});
  /// Runs a `COPY … FROM STDIN` statement and sends `data`, rows in COPY's text format (tab
  /// between columns, `\N` for NULL, a newline after each row); throws on failure.
  void copyIn(std::string_view copySql, std::string_view data);

  /// The target as it may be shown: a password in a URI or in a `password=` setting becomes
  /// "***".
  static std::string redacted(const std::string& target);
  /// The target as this connection shows it in messages.
  const std::string& name() const { return name_; }

 private:
  PGconn* conn_ = nullptr;
  std::string name_;
};

}  // namespace brimlog
