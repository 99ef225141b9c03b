#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace brimlog {

/// A read-only connection to an OpenCode or Kilo database, closed when it goes out of scope.
///
/// The tool writes the database while it runs, in WAL mode, and must never wait for us: the
/// connection is opened read-only (nothing is written, no write lock is ever asked for), it waits
/// at most a moment for a lock, and all reading happens inside one read transaction, so that it
/// sees one consistent state of the database (the `-wal` file included, through SQLite itself)
/// while the tool goes on committing. In WAL mode a reader never blocks the tool's writes.
///
///     OpenCodeDatabase db{path};
///     db.read([&] {
///       db.messagesUpdatedSince(mark, lastPart, first, last, [&](const OpenCodeDatabase::Message&
///       m) { ... });
///     });
///
/// A connection belongs to one thread at a time (it is opened without SQLite's own mutexes).
/// Throws std::runtime_error with the operation and SQLite's message when the file cannot be
/// opened or read.
class OpenCodeDatabase {
 public:
  /// One row of the `message` table; the views are valid during the callback.
  struct Message {
    std::string_view id;
    std::string_view sessionID;
    int64_t timeUpdated = 0;
    std::string_view data;
  };

  explicit OpenCodeDatabase(const std::string& path);
  ~OpenCodeDatabase();
  OpenCodeDatabase(const OpenCodeDatabase&) = delete;
  OpenCodeDatabase& operator=(const OpenCodeDatabase&) = delete;

  /// Runs `body` inside one read transaction, ended on every path.
  void read(const std::function<void()>& body);

  /// Whether the database has the tables replies are kept in: a database of another program
  /// (in a folder the tool's variable points at) holds none.
  bool holdsMessages();

  /// Every message whose row number lies in [first, last] and whose `time_updated` is at least
  /// `since` (milliseconds) or which has a part of a row number above `partsAfter`.
  void messagesUpdatedSince(int64_t since, int64_t partsAfter, int64_t first, int64_t last,
                            const std::function<void(const Message&)>& onMessage);

  /// The largest row number of `table` ("part" or "message"); 0 when it is empty.
  int64_t lastRow(std::string_view table);

  /// Every part whose row number lies in [first, last]: its message's id and its `data`, in the
  /// order they lie in the file (one pass over the table, no lookups).
  void partsInRows(int64_t first, int64_t last,
                   const std::function<void(std::string_view, std::string_view)>& onPart);

  /// The `data` of every part of one message, in id order.
  void parts(std::string_view messageID, const std::function<void(std::string_view)>& onPart);

  /// The folder a session was started in; empty when the session is not there.
  std::string sessionDirectory(std::string_view sessionID);

 private:
  // Opens `name` and reads from it once; false, with the reason in `error_`, when either fails.
  bool open(const std::string& name, int flags);
  sqlite3_stmt* prepare(const char* sql);
  [[noreturn]] void fail(const char* doing) const;

  std::string error_;
  sqlite3* db_ = nullptr;
  sqlite3_stmt* messages_ = nullptr;
  sqlite3_stmt* parts_ = nullptr;
  sqlite3_stmt* allParts_ = nullptr;
  sqlite3_stmt* session_ = nullptr;
};

}  // namespace brimlog
