#pragma once

#include <fmt/format.h>

#include <filesystem>
#include <string>

#include "support/RawDatabase.hpp"

namespace brimlog::testing {

/// Writes an OpenCode or Kilo database as the tool does: its tables, in WAL mode, the connection
/// kept open like the running tool's, with automatic checkpoints off so that every commit stays
/// in the `-wal` file until `checkpoint`.
class OpenCodeStoreWriter {
 public:
  explicit OpenCodeStoreWriter(const std::filesystem::path& path) : db_(path) {
    db_.exec(
        "PRAGMA journal_mode = WAL; PRAGMA wal_autocheckpoint = 0;"
        "CREATE TABLE IF NOT EXISTS project (id TEXT PRIMARY KEY, worktree TEXT NOT NULL);"
        "CREATE TABLE IF NOT EXISTS session (id TEXT PRIMARY KEY, project_id TEXT NOT NULL,"
        " parent_id TEXT, directory TEXT NOT NULL, title TEXT NOT NULL,"
        " time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL);"
        "CREATE TABLE IF NOT EXISTS message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL,"
        " time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL);"
        "CREATE INDEX IF NOT EXISTS message_session_time_created_id_idx"
        " ON message (session_id, time_created, id);"
        "CREATE TABLE IF NOT EXISTS part (id TEXT PRIMARY KEY, message_id TEXT NOT NULL,"
        " session_id TEXT NOT NULL, time_created INTEGER NOT NULL,"
        " time_updated INTEGER NOT NULL, data TEXT NOT NULL);"
        "CREATE INDEX IF NOT EXISTS part_message_id_id_idx ON part (message_id, id);"
        "CREATE TABLE IF NOT EXISTS session_message (id TEXT PRIMARY KEY,"
        " session_id TEXT NOT NULL, type TEXT NOT NULL, time_created INTEGER NOT NULL,"
        " time_updated INTEGER NOT NULL, data TEXT NOT NULL);");
  }

  void session(const std::string& id, const std::string& directory) {
    run(fmt::format("INSERT OR REPLACE INTO session VALUES ('{}', 'p', NULL, '{}', 't', 0, 0)", id,
                    directory));
  }

  /// Inserts or rewrites a message, as the tool does after each step.
  void message(const std::string& id, const std::string& session, int64_t updated,
               const std::string& data) {
    run(
        fmt::format("INSERT INTO message VALUES ('{0}', '{1}', {2}, {2}, '{3}') ON CONFLICT(id) "
                    "DO UPDATE SET data = excluded.data, time_updated = excluded.time_updated",
                    id, session, updated, data));
  }

  void part(const std::string& id, const std::string& message, const std::string& session,
            const std::string& data) {
    run(fmt::format("INSERT OR REPLACE INTO part VALUES ('{}', '{}', '{}', 0, 0, '{}')", id,
                    message, session, data));
  }

  void run(const std::string& sql) { EXPECT_EQ(db_.exec(sql), SQLITE_OK) << sql; }

 private:
  RawDatabase db_;
};

}  // namespace brimlog::testing
