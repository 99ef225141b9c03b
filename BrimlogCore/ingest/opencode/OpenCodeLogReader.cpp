#include "ingest/opencode/OpenCodeLogReader.hpp"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <unordered_map>

#include "ingest/opencode/OpenCodeDatabaseScan.hpp"
#include "ingest/opencode/OpenCodeMessageParser.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr const char* kSizeKey = "size";          // the file's size before the last read
constexpr const char* kMtimeKey = "mtime";        // its modification time (ns) then
constexpr const char* kWalSizeKey = "walSize";    // the -wal file's size then; -1: none
constexpr const char* kWalMtimeKey = "walMtime";  // its modification time (ns) then
constexpr const char* kWalInodeKey = "walInode";  // its inode then
constexpr const char* kMarkKey = "mark";          // newest time_updated (ms) read so far
constexpr const char* kLastPartKey = "lastPart";  // highest part row read so far

// Messages updated this long before the newest one read are read again: two processes of the
// tool may write one database, each stamping `time_updated` from its own clock before it commits,
// so a row committed after our read can carry an older stamp than one we saw. Reading a few
// minutes again costs a scan of the message rows; the store counts each reply once.
constexpr int64_t kMarkMarginMs = 10 * 60 * 1000;

// A message or part file holds one record; past this it is not one of the tool's.
constexpr size_t kRecordLimit = size_t{64} << 20;

int64_t nanoseconds(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

// What tells a database's state apart from the last one read: its own size, time and inode, and
// those of its WAL, where commits land until a checkpoint copies them into the main file.
struct DatabaseState {
  uint64_t inode = 0;
  int64_t size = 0, mtime = 0;
  int64_t walSize = -1, walMtime = 0, walInode = 0;

  static DatabaseState of(const std::string& path, const struct stat& status) {
    DatabaseState state{static_cast<uint64_t>(status.st_ino), status.st_size,
                        nanoseconds(status.st_mtim)};
    // An empty WAL holds nothing, and SQLite makes one when a database without it is opened,
    // ours included: it counts as none, or every read would call for another.
    struct stat wal {};
    if (::stat((path + "-wal").c_str(), &wal) == 0 && wal.st_size > 0) {
      state.walSize = wal.st_size;
      state.walMtime = nanoseconds(wal.st_mtim);
      state.walInode = static_cast<int64_t>(wal.st_ino);
    }
    return state;
  }

  bool matches(const FileCursor& cursor) const {
    return cursor.inode == inode && cursor.integerEntry(kSizeKey) == size &&
           cursor.integerEntry(kMtimeKey) == mtime && cursor.integerEntry(kWalSizeKey) == walSize &&
           cursor.integerEntry(kWalMtimeKey) == walMtime &&
           cursor.integerEntry(kWalInodeKey) == walInode;
  }

  int64_t bytes() const { return size + std::max<int64_t>(walSize, 0); }
};

// The old store's files are JSON; every other file the walk finds is a database.
bool isDatabase(std::string_view path) { return !path.ends_with(".json"); }

}  // namespace

std::optional<ReadJob> OpenCodeLogReader::plan(const FoundFile& file,
                                               std::optional<FileCursor> cursor, Date) const {
  const auto inode = static_cast<uint64_t>(file.status.st_ino);
  if (isDatabase(file.path)) {
    const DatabaseState state = DatabaseState::of(file.path, file.status);
    if (cursor && state.matches(*cursor)) return std::nullopt;
    return ReadJob{file.path,           file.provider,     inode,
                   file.status.st_size, std::move(cursor), state.bytes()};
  }
  const bool unchanged = cursor && cursor->inode == inode &&
                         cursor->integerEntry(kSizeKey) == file.status.st_size &&
                         cursor->integerEntry(kMtimeKey) == nanoseconds(file.status.st_mtim);
  if (unchanged) return std::nullopt;
  return ReadJob{file.path,           file.provider,     inode,
                 file.status.st_size, std::move(cursor), file.status.st_size};
}

void OpenCodeLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  if (isDatabase(job.path)) {
    readDatabase(job, sink);
  } else {
    readMessageFile(job, sink);
  }
}

void OpenCodeLogReader::readDatabase(const ReadJob& job, const ReadSink& sink) const {
  // The state is taken before reading: whatever is committed from here on differs from it, so
  // the next pass reads again rather than trusting a read that may have missed it.
  struct stat status {};
  if (::stat(job.path.c_str(), &status) != 0) {
    throw fs::filesystem_error("cannot examine the database", job.path,
                               std::error_code(errno, std::generic_category()));
  }
  const DatabaseState state = DatabaseState::of(job.path, status);
  int64_t mark = std::numeric_limits<int64_t>::min();
  int64_t lastPart = 0;
  if (job.cursor && job.cursor->inode == state.inode) {
    mark = job.cursor->integerEntry(kMarkKey).value_or(mark);
    lastPart = job.cursor->integerEntry(kLastPartKey).value_or(lastPart);
  }
  const int64_t since = mark == std::numeric_limits<int64_t>::min() ? mark : mark - kMarkMarginMs;

  ReadOutput output;
  int64_t newMark = mark;
  int64_t newLastPart = lastPart;
  if (!OpenCodeDatabaseScan{job, sink}.run(since, output, newMark, newLastPart)) return;

  output.cursor = FileCursor{job.path,
                             state.inode,
                             state.size,
                             {{FileCursor::providerKey, std::string(job.provider.rawValue())},
                              {kSizeKey, std::to_string(state.size)},
                              {kMtimeKey, std::to_string(state.mtime)},
                              {kWalSizeKey, std::to_string(state.walSize)},
                              {kWalMtimeKey, std::to_string(state.walMtime)},
                              {kWalInodeKey, std::to_string(state.walInode)}}};
  if (newMark != std::numeric_limits<int64_t>::min()) {
    output.cursor->context[kMarkKey] = std::to_string(newMark);
  }
  output.cursor->context[kLastPartKey] = std::to_string(newLastPart);
  output.bytes = state.bytes();
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

void OpenCodeLogReader::readMessageFile(const ReadJob& job, const ReadSink& sink) const {
  const WholeFile document = WholeFile::read(job.path, kRecordLimit);
  ReadOutput output;
  OpenCodeMessageParser parser;
  if (parser.message(document.bytes)) {
    // storage/message/<session>/<message>.json; its parts are in storage/part/<message>/.
    const fs::path file{job.path};
    const std::string messageID =
        parser.messageID().empty() ? file.stem().string() : parser.messageID();
    const fs::path partFolder = file.parent_path().parent_path().parent_path() / "part" / messageID;
    std::error_code error;
    for (fs::directory_iterator it{partFolder, error}, end; !error && it != end;
         it.increment(error)) {
      if (it->path().extension() != ".json") continue;
      try {
        parser.part(WholeFile::read(it->path(), kRecordLimit).bytes);
      } catch (const fs::filesystem_error&) {
        // Not a regular file, or a part removed while the folder was listed: one of a message
        // being rewritten, whose file changes too and is read again.
      }
    }
    const std::string session = file.parent_path().filename().string();
    if (auto event = parser.event(job.provider, session, {})) {
      output.events.push_back(std::move(*event));
    }
  }
  output.cursor = FileCursor{job.path,
                             static_cast<uint64_t>(document.status.st_ino),
                             document.status.st_size,
                             {{FileCursor::providerKey, std::string(job.provider.rawValue())},
                              {kSizeKey, std::to_string(document.status.st_size)},
                              {kMtimeKey, std::to_string(nanoseconds(document.status.st_mtim))}}};
  output.bytes = static_cast<int64_t>(document.bytes.size());
  output.lines = 1;
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

}  // namespace brimlog
