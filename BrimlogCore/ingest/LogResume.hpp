#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "ingest/JSONLTail.hpp"
#include "ingest/LogReader.hpp"
#include "model/FileCursor.hpp"

namespace brimlog {

/// Checks on where reading of a JSON-lines log resumes, kept in the file's cursor (context keys
/// "fingerprint" and "scanned"):
///
/// - A log rewritten in place (another transcript copied over it keeps the inode and may be
///   longer than the stored offset) must be read again from the start, not from the middle of
///   new content. The cursor remembers a fingerprint of the bytes it was read up to: a hash of
///   the file's first bytes and of the bytes just before the offset. A file that changed is
///   checked against it before reading (one small read); an unchanged file costs nothing.
/// - A long last line still being written would be scanned for its end on every pass. The
///   cursor remembers how far that scan got, and a later pass looks only at the bytes after it.
///
///     std::optional<FileCursor> cursor = LogResume::verified(path, stored, inode, size);
///     JSONLTail::Result r = LogResume::read(path, cursor, size, 4 << 20);
class LogResume {
 public:
  /// The cursor to resume from: `cursor` itself, or nothing when the bytes before its offset
  /// are no longer the ones it was read from. A cursor without a fingerprint, or of another
  /// inode or a longer offset than `size` (which the reader treats as a new file anyway), is
  /// returned as it is.
  static std::optional<FileCursor> verified(const std::string& path,
                                            std::optional<FileCursor> cursor, uint64_t inode,
                                            int64_t size);

  /// Whether everything after the cursor's offset, up to `size`, is one line without its end
  /// that earlier reads already scanned in part: then only the bytes after the scanned part are
  /// searched for a line feed, and when there is none the cursor records the new scanned length
  /// and nothing needs reading.
  static bool onlyUnfinishedLine(const std::string& path, FileCursor& cursor, int64_t size);

  /// Records in a cursor just returned by a read its fingerprint, and, when the read reached the
  /// end of the file and left a long unfinished line after the offset, how far it scanned.
  /// `read` is what the read consumed, the bytes just before the cursor's offset: the
  /// fingerprint is taken from them where they reach far enough, with the head of the file's
  /// fingerprint carried over from the cursor's previous one, and read from the file otherwise.
  static void remember(const std::string& path, FileCursor& cursor, bool atEOF, int64_t size,
                       std::string_view read = {});

  /// One read of a JSON-lines log with both checks: nothing is read when only an unfinished
  /// line already scanned stands after the cursor's offset; otherwise `JSONLTail::read`, and the
  /// returned cursor remembers what the read saw.
  static JSONLTail::Result read(const std::string& path, const std::optional<FileCursor>& cursor,
                                int64_t size, int64_t chunkBytes);

  /// A reader's whole job on a JSON-lines log: reads from the job's cursor (dropped when its bytes
  /// were rewritten) to the end, a chunk at a time; `take` turns each chunk's lines into the
  /// events of its output, which carries the cursor past them (with the job's tool) to `sink`.
  /// The last output is marked done; an output the sink refuses ends the job.
  static void readJob(const ReadJob& job, int64_t chunkBytes, const ReadSink& sink,
                      const std::function<void(const LineBatch& lines, ReadOutput& output)>& take);

  /// The same from `cursor`, a cursor the reader has verified itself; `take` also sees whether
  /// the read found another file (`reset`), so it can drop what it knew of the old one.
  static void readFrom(
      const ReadJob& job, std::optional<FileCursor> cursor, int64_t chunkBytes,
      const ReadSink& sink,
      const std::function<void(const JSONLTail::Result& read, ReadOutput& output)>& take);

  /// The fingerprint of the file's bytes before `offset`; nothing when they cannot be read.
  static std::optional<std::string> fingerprint(const std::string& path, int64_t offset);
};

}  // namespace brimlog
