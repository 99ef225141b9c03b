#pragma once

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads OpenCode's and Kilo's stores: the SQLite database (`opencode.db`, `kilo.db` and their
/// channels' `<tool>-<channel>.db`) and the JSON files of the builds before it
/// (`storage/message/<session>/<message>.json`, whose parts are under `storage/part/<message>/`).
/// One reader serves both tools: Kilo is a fork that kept the store; the job's provider names the
/// tool.
///
/// A database is read again when it or its `-wal` file changes (size, modification time or inode):
/// the tool may commit to the WAL for a long time without touching the main file. Its cursor keeps
/// the statuses of both taken *before* the read, so a commit made while reading makes the next
/// pass read again, and "mark", the newest `time_updated` of a message read: the next read takes
/// only the messages updated since then (less a margin for writers whose clocks or commits
/// interleave). The tool rewrites a message after each of its steps, so a reply that grows is read
/// again whole and the store counts what it grew by.
///
/// A JSON message file is read again when its size or modification time changes ("size",
/// "mtime"), with its parts.
class OpenCodeLogReader final : public LogReader {
 public:
  std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                              Date now) const override;
  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  void readDatabase(const ReadJob& job, const ReadSink& sink) const;
  void readMessageFile(const ReadJob& job, const ReadSink& sink) const;
};

}  // namespace brimlog
