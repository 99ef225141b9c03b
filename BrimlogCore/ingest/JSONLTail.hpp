#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "ingest/LineBatch.hpp"
#include "model/FileCursor.hpp"

namespace brimlog {

/// One bounded, incremental read of an append-only JSON-lines file.
///
/// Only lines ended by a line feed are returned, so a line the tool is still writing is picked up
/// whole by a later read; a replaced file (new inode) or a truncated one (smaller than the stored
/// offset) is read again from the start, with `reset` set and an empty context.
///
///     std::optional<FileCursor> cursor = store.cursor(path);
///     for (bool atEOF = false; !atEOF;) {
///       JSONLTail::Result r = JSONLTail::read(path, cursor, 4 << 20);  // one chunk alive at a
///       time for (PaddedLine line : r.lines) consume(line); cursor = r.cursor; atEOF = r.atEOF;
///     }
class JSONLTail {
 public:
  struct Result {
    /// Complete lines in file order, without line ends (a carriage return before the line feed
    /// is dropped too); empty lines are left out. Bytes are otherwise passed on as they are.
    LineBatch lines;
    /// The cursor to store and to pass to the next read.
    FileCursor cursor;
    /// The given cursor was discarded because the file was replaced or truncated.
    bool reset = false;
    /// This read reached the end of the file.
    bool atEOF = false;
  };

  /// Reads from the cursor's offset, asking for `maxBytes` bytes (at least 1); a single line
  /// longer than that doubles the request until the line fits. Without a cursor the file is read
  /// from its start. The file is opened and closed within the call.
  ///
  /// Throws std::filesystem::filesystem_error (with the path and errno) when the file cannot be
  /// examined, opened or read; the caller then keeps its old cursor.
  static Result read(const std::filesystem::path& path, const std::optional<FileCursor>& cursor,
                     int64_t maxBytes);
};

}  // namespace brimlog
