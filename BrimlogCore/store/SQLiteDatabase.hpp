#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace brimlog {

/// A database that failed: SQLite's result code and message, and, once the store has said so,
/// the file and what was being done. `what()` is the whole sentence a user reads:
///
///     /home/me/.local/share/brimlog/usage.db: cannot save the new replies: database is locked.
///     Another program is writing to it (a second brimlog sync?); try again when it is done.
class UsageStoreError : public std::runtime_error {
 public:
  static UsageStoreError sqlite(int32_t code, std::string message) {
    return UsageStoreError(code, std::move(message), {}, {});
  }
  /// The file cannot be used as it stands (another program's database, a newer schema); the
  /// reason is the whole message.
  static UsageStoreError refused(const std::string& file, std::string reason);

  /// The file's integrity check found `problems` (SQLite's words, at least one): one line that
  /// names the file, says that its totals may be wrong, quotes the first problems and tells how
  /// to rebuild it.
  static UsageStoreError damaged(const std::string& file, const std::vector<std::string>& problems);

  /// What to do about a damaged database file: rebuild it from the logs that still exist.
  static constexpr std::string_view kRebuild =
      "To rebuild it from the logs that still exist, stop the daemon (systemctl --user stop "
      "brimlog), move the file aside and run `brimlog sync`; days whose logs are gone cannot be "
      "rebuilt.";

  /// The same failure, told with the file and what was being done ("save the new replies").
  UsageStoreError in(const std::string& file, std::string_view doing) const;

  int32_t code() const { return code_; }
  const std::string& message() const { return message_; }
  const std::string& file() const { return file_; }
  bool operator==(const UsageStoreError& other) const {
    return code_ == other.code_ && message_ == other.message_;
  }

 private:
  UsageStoreError(int32_t code, std::string message, std::string file, std::string doing);
  int32_t code_;
  std::string message_;
  std::string file_;
};

/// Bytes bound as a blob, NULs and all.
struct Blob {
  std::string_view bytes;
};

/// One statement parameter: text (bound up to its first NUL, as C strings are), a 64-bit integer,
/// a double, NULL or a blob. Element i of a bind list is parameter ?i+1.
using Bind = std::variant<std::string_view, int64_t, double, std::nullptr_t, Blob>;

/// The columns of the current result row.
class Row {
 public:
  explicit Row(sqlite3_stmt* statement) : statement_(statement) {}
  int64_t integer(int column) const;
  double real(int column) const;
  bool isNull(int column) const;
  /// The column as text; NULL reads as the empty text. Valid until the next step.
  std::string_view text(int column) const;
  /// The column's bytes as a blob. Valid until the next step.
  std::string_view blob(int column) const;

 private:
  sqlite3_stmt* statement_;
};

/// A statement prepared on, and owned by, one `SQLiteDatabase`.
class PreparedStatement {
 public:
  explicit PreparedStatement(sqlite3_stmt* statement) : statement_(statement) {}
  sqlite3_stmt* get() const { return statement_; }

 private:
  sqlite3_stmt* statement_;
};

/// An open SQLite connection with its prepared statements, closed (statements first) when it goes
/// out of scope. Not thread-safe by itself: the owner serialises every call.
///
/// Statements are prepared once per text and kept: preparing costs far more than running the
/// short statements of an ingest. After every use, on every path, a statement is reset and its
/// bindings cleared, so no use can see the parameters or the half-read results of another.
class SQLiteDatabase {
 public:
  /// Opens (creating if needed) the database at `path` with the given `sqlite3_open_v2` flags,
  /// `path` being a URI when the flags say so. Throws `UsageStoreError` with SQLite's code and
  /// message, or "open failed" without a handle.
  SQLiteDatabase(const std::string& path, int flags);
  ~SQLiteDatabase();
  SQLiteDatabase(const SQLiteDatabase&) = delete;
  SQLiteDatabase& operator=(const SQLiteDatabase&) = delete;

  /// Runs a script of one or more statements.
  void exec(std::string_view script);

  /// The statement for `text`, prepared on first use and kept until the connection closes.
  PreparedStatement prepared(std::string_view text);

  /// Runs one statement once, accepting a row or completion; returns the rows it changed.
  int64_t run(PreparedStatement statement, std::initializer_list<Bind> binds);
  int64_t run(std::string_view text, std::initializer_list<Bind> binds) {
    return run(prepared(text), binds);
  }

  /// Runs a query, calling `onRow` for every result row.
  template <typename OnRow>
  void query(PreparedStatement statement, std::initializer_list<Bind> binds, OnRow&& onRow) {
    Use use = begin(statement, binds);
    while (step(use.statement)) onRow(Row{use.statement});
  }
  template <typename OnRow>
  void query(std::string_view text, std::initializer_list<Bind> binds, OnRow&& onRow) {
    query(prepared(text), binds, std::forward<OnRow>(onRow));
  }

  /// Runs `body` inside BEGIN IMMEDIATE ... COMMIT; when the body or the commit fails, rolls back
  /// (ignoring the rollback's own result) and rethrows.
  template <typename Body>
  void transaction(Body&& body) {
    exec("BEGIN IMMEDIATE");
    try {
      body();
      exec("COMMIT");
    } catch (...) {
      rollback();
      throw;
    }
  }

  sqlite3* handle() const { return db_; }

 private:
  // A cached statement in use: reset and unbound when the use ends.
  struct Use {
    explicit Use(sqlite3_stmt* statement) : statement(statement) {}
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use();
    sqlite3_stmt* statement;
  };

  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Finalizer>;

  Use begin(PreparedStatement statement, std::initializer_list<Bind> binds);
  bool step(sqlite3_stmt* statement);  // true: a row; false: done; throws otherwise
  void rollback() noexcept;
  [[noreturn]] void fail(int code);

  sqlite3* db_ = nullptr;
  std::unordered_map<std::string, Statement> statements_;  // by text
};

}  // namespace brimlog
