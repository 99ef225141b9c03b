#pragma once

#include <map>
#include <mutex>
#include <string>

#include "ingest/LogReader.hpp"

namespace brimlog {

/// Reads Gemini CLI session files under `<gemini home>/tmp/<project>/chats/`.
///
/// JSON-lines sessions (".jsonl") are appended to: each read takes the lines after the cursor's
/// offset. The session's id and first workspace folder are written once, on the metadata line at
/// the top: a read from the middle takes them from there, so that it still keys its replies. Older
/// sessions (".json") are one document rewritten in place on every update: one is read again whole
/// when its size or modification time changes ("size" and "mtime" in the cursor), and hands on
/// every reply it holds, which the store counts once.
///
/// A reply's project is the folder its project folder belongs to: the folder named in
/// `<project>/.project_root`, else the path `projects.json` maps to the project folder's name,
/// else the session's first workspace folder. Both are read once per pass and project folder.
class GeminiLogReader final : public LogReader {
 public:
  /// `chunkBytes`: how much of a JSON-lines session is read at a time.
  explicit GeminiLogReader(int64_t chunkBytes) : chunkBytes_(chunkBytes) {}

  std::optional<ReadJob> plan(const FoundFile& file, std::optional<FileCursor> cursor,
                              Date now) const override;
  void read(const ReadJob& job, Date now, const ReadSink& sink) const override;

 private:
  void readLines(const ReadJob& job, const std::string& project, const ReadSink& sink) const;
  void readDocument(const ReadJob& job, const std::string& project, const ReadSink& sink) const;
  /// The project folder of a session file; empty when the tool recorded none.
  std::string projectOf(const std::string& path) const;

  int64_t chunkBytes_;
  // Read on worker threads, several at once.
  mutable std::mutex mutex_;
  mutable std::map<std::string, std::string, std::less<>> projects_;  // by project folder
  mutable std::map<std::string, std::map<std::string, std::string>, std::less<>>
      registries_;  // by Gemini home: project folder name -> working folder
};

}  // namespace brimlog
