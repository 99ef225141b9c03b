#include "ingest/opencode/OpenCodeDatabase.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

namespace brimlog {
namespace fs = std::filesystem;
namespace {

// How long a read waits for a lock before it gives up: only a checkpoint or the recovery of a
// crashed writer holds one against readers in WAL mode, and a pass that gives up reads the
// database again next time. Never long enough to hold the tool up behind us.
constexpr int kBusyTimeoutMs = 200;

// A path as a file: URI's path: the characters a URI gives a meaning to are escaped.
std::string uriPath(const std::string& path) {
  std::string escaped;
  for (const char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      escaped += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string_view columnText(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (text == nullptr) return {};
  return {text, static_cast<size_t>(sqlite3_column_bytes(statement, column))};
}

// Resets a statement and clears its bindings when a use ends, on every path.
struct StatementUse {
  sqlite3_stmt* statement;
  ~StatementUse() {
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
  }
};

}  // namespace

OpenCodeDatabase::OpenCodeDatabase(const std::string& path) {
  // Read-only: the tool's database is never written, and no write lock is ever taken on it.
  // SQLite still needs the `-shm` index of a WAL database: it shares the tool's, and where the
  // `-wal` and `-shm` files exist but may not be written, it keeps a private copy of the index.
  // Each connection stays on the thread that opened it, so SQLite's own locking is not needed.
  if (open(path, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX)) return;
  // Neither exists and none can be made: the folder is not writable, and the tool (which needs to
  // create its `-wal` there to write) cannot be writing either. Everything is in the main file,
  // which is then read as it stands, without the locks and the index it cannot have.
  struct stat wal {};
  const fs::path file{path};
  if (::stat((path + "-wal").c_str(), &wal) != 0 &&
      ::faccessat(AT_FDCWD, file.parent_path().c_str(), W_OK, AT_EACCESS) != 0 &&
      open("file:" + uriPath(fs::absolute(file).string()) + "?immutable=1",
           SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI)) {
    return;
  }
  throw std::runtime_error(fmt::format("cannot open the database read-only: {}", error_));
}

bool OpenCodeDatabase::open(const std::string& name, int flags) {
  sqlite3_close(db_);
  db_ = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &db_, flags, nullptr);
  if (code == SQLITE_OK) {
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    // The first read finds out whether the WAL can be used at all.
    if (sqlite3_exec(db_, "SELECT 1 FROM sqlite_schema LIMIT 1", nullptr, nullptr, nullptr) ==
        SQLITE_OK) {
      return true;
    }
  }
  error_ = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(code);
  sqlite3_close(db_);
  db_ = nullptr;
  return false;
}

OpenCodeDatabase::~OpenCodeDatabase() {
  sqlite3_finalize(messages_);
  sqlite3_finalize(parts_);
  sqlite3_finalize(allParts_);
  sqlite3_finalize(session_);
  sqlite3_close(db_);
}

void OpenCodeDatabase::fail(const char* doing) const {
  throw std::runtime_error(fmt::format("cannot {}: {}", doing, sqlite3_errmsg(db_)));
}

sqlite3_stmt* OpenCodeDatabase::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK) {
    fail("read the database");
  }
  return statement;
}

void OpenCodeDatabase::read(const std::function<void()>& body) {
  // A deferred transaction takes no lock until its first read, and only a read lock then.
  if (sqlite3_exec(db_, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK) fail("start a read");
  try {
    body();
  } catch (...) {
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
  sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
}

bool OpenCodeDatabase::holdsMessages() {
  sqlite3_stmt* statement = prepare(
      "SELECT count(*) FROM sqlite_schema WHERE type = 'table' "
      "AND name IN ('message', 'part', 'session')");
  const int step = sqlite3_step(statement);
  const bool all = step == SQLITE_ROW && sqlite3_column_int(statement, 0) == 3;
  sqlite3_finalize(statement);
  if (step != SQLITE_ROW) fail("read the database's tables");
  return all;
}

void OpenCodeDatabase::messagesUpdatedSince(int64_t since, int64_t partsAfter, int64_t first,
                                            int64_t last,
                                            const std::function<void(const Message&)>& onMessage) {
  // No index on time_updated: the scan reads the message table's rows up to their `time_updated`
  // column, and the `data` of the rows that qualify. Parts, the bulk of the file, are read only
  // for those messages, through their index. A step is a new part row, numbered above every row
  // the table holds: the messages of the parts after `partsAfter` are read
  // whether or not the tool moved their `time_updated` when it saved them.
  if (!messages_) {
    messages_ = prepare(
        "SELECT id, session_id, time_updated, data FROM message "
        "WHERE rowid BETWEEN ?2 AND ?3 AND (time_updated >= ?1 OR id IN "
        "(SELECT message_id FROM part WHERE rowid > ?4))");
  }
  StatementUse use{messages_};
  sqlite3_bind_int64(messages_, 1, since);
  sqlite3_bind_int64(messages_, 2, first);
  sqlite3_bind_int64(messages_, 3, last);
  sqlite3_bind_int64(messages_, 4, partsAfter);
  int step;
  while ((step = sqlite3_step(messages_)) == SQLITE_ROW) {
    onMessage({columnText(messages_, 0), columnText(messages_, 1),
               sqlite3_column_int64(messages_, 2), columnText(messages_, 3)});
  }
  if (step != SQLITE_DONE) fail("read the messages");
}

int64_t OpenCodeDatabase::lastRow(std::string_view table) {
  sqlite3_stmt* statement =
      prepare(table == "part" ? "SELECT max(rowid) FROM part" : "SELECT max(rowid) FROM message");
  const int step = sqlite3_step(statement);
  const int64_t last = step == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : 0;
  sqlite3_finalize(statement);
  if (step != SQLITE_ROW) fail("read the database");
  return last;
}

void OpenCodeDatabase::partsInRows(
    int64_t first, int64_t last,
    const std::function<void(std::string_view, std::string_view)>& onPart) {
  if (!allParts_) {
    allParts_ = prepare("SELECT message_id, data FROM part WHERE rowid BETWEEN ?1 AND ?2");
  }
  StatementUse use{allParts_};
  sqlite3_bind_int64(allParts_, 1, first);
  sqlite3_bind_int64(allParts_, 2, last);
  int step;
  while ((step = sqlite3_step(allParts_)) == SQLITE_ROW) {
    onPart(columnText(allParts_, 0), columnText(allParts_, 1));
  }
  if (step != SQLITE_DONE) fail("read the parts");
}

void OpenCodeDatabase::parts(std::string_view messageID,
                             const std::function<void(std::string_view)>& onPart) {
  if (!parts_) parts_ = prepare("SELECT data FROM part WHERE message_id = ?1 ORDER BY id");
  StatementUse use{parts_};
  sqlite3_bind_text(parts_, 1, messageID.data(), static_cast<int>(messageID.size()), SQLITE_STATIC);
  int step;
  while ((step = sqlite3_step(parts_)) == SQLITE_ROW) onPart(columnText(parts_, 0));
  if (step != SQLITE_DONE) fail("read a message's parts");
}

std::string OpenCodeDatabase::sessionDirectory(std::string_view sessionID) {
  if (!session_) session_ = prepare("SELECT directory FROM session WHERE id = ?1");
  StatementUse use{session_};
  sqlite3_bind_text(session_, 1, sessionID.data(), static_cast<int>(sessionID.size()),
                    SQLITE_STATIC);
  const int step = sqlite3_step(session_);
  if (step == SQLITE_ROW) return std::string(columnText(session_, 0));
  if (step != SQLITE_DONE) fail("read a session");
  return {};
}

}  // namespace brimlog
