#include "ingest/claude/ClaudeLogReader.hpp"

#include "ingest/JSONLTail.hpp"
#include "ingest/LogResume.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"

namespace brimlog {
namespace {

constexpr const char* kPendingKey = "pending";  // the reply that may still grow

// The pending reply travels in the cursor as a small JSON object of its own; nothing else reads
// it, and one that no longer decodes is dropped like any other damaged context.
std::string encodePending(const UsageEvent& event) {
  Json json = {{"model", event.model},
               {"session", event.sessionID},
               {"key", event.dedupKey},
               {"time", unixSeconds(event.timestamp)},
               {"tokens", event.tokens.toJson()}};
  if (event.reportedCostUSD) json["cost"] = *event.reportedCostUSD;
  return json.dump();
}

std::optional<UsageEvent> decodePending(const FileCursor& cursor) {
  const auto found = cursor.context.find(kPendingKey);
  if (found == cursor.context.end()) return std::nullopt;
  try {
    const Json json = Json::parse(found->second);
    UsageEvent event;
    event.provider = ProviderID::claude;
    event.model = json.at("model").get<std::string>();
    event.sessionID = json.at("session").get<std::string>();
    event.dedupKey = json.at("key").get<std::string>();
    event.timestamp = dateFromUnixSeconds(json.at("time").get<double>());
    event.tokens = TokenCounts::fromJson(json.at("tokens"));
    if (json.contains("cost")) event.reportedCostUSD = json.at("cost").get<double>();
    return event;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

bool ClaudeLogReader::isOld(const UsageEvent& event, Date now) const {
  return unixSeconds(event.timestamp) < unixSeconds(now) - pendingGrace_;
}

std::optional<ReadJob> ClaudeLogReader::plan(const FoundFile& file,
                                             std::optional<FileCursor> cursor, Date now) const {
  const bool unchanged = cursor && cursor->inode == static_cast<uint64_t>(file.status.st_ino) &&
                         cursor->offset == file.status.st_size;
  if (!unchanged) return LogReader::plan(file, std::move(cursor), now);
  // Nothing new. A reply left waiting is counted once it is old enough.
  const std::optional<UsageEvent> pending = decodePending(*cursor);
  if (!cursor->context.count(kPendingKey) || (pending && !isOld(*pending, now))) {
    return std::nullopt;
  }
  return ReadJob{file.path,
                 file.provider,
                 static_cast<uint64_t>(file.status.st_ino),
                 file.status.st_size,
                 std::move(cursor),
                 0,
                 true};
}

void ClaudeLogReader::read(const ReadJob& job, Date now, const ReadSink& sink) const {
  if (job.settleOnly) {
    FileCursor cursor = *job.cursor;
    ReadOutput output;
    if (auto pending = decodePending(cursor)) output.events.push_back(std::move(*pending));
    cursor.context.erase(kPendingKey);
    output.cursor = std::move(cursor);
    output.fileDone = true;
    sink(std::move(output));
    return;
  }

  // A cursor whose bytes were rewritten is dropped with its waiting reply, as for a new file.
  std::optional<FileCursor> cursor = LogResume::verified(job.path, job.cursor, job.inode, job.size);
  std::optional<UsageEvent> pending = cursor ? decodePending(*cursor) : std::nullopt;
  for (bool atEOF = false; !atEOF;) {
    JSONLTail::Result read = LogResume::read(job.path, cursor, job.size, chunkBytes_);
    if (read.reset) pending.reset();  // the reply belonged to the file that is gone
    ReadOutput output;
    for (PaddedLine line : read.lines) {
      std::optional<UsageEvent> event = ClaudeLogParser::event(line);
      if (!event) continue;
      if (pending && pending->dedupKey != event->dedupKey) {
        output.events.push_back(std::move(*pending));
      }
      pending = std::move(event);
    }
    atEOF = read.atEOF;
    if (atEOF && pending && isOld(*pending, now)) {
      output.events.push_back(std::move(*pending));
      pending.reset();
    }
    read.cursor.context[FileCursor::providerKey] = job.provider.rawValue();
    if (pending) {
      read.cursor.context[kPendingKey] = encodePending(*pending);
    } else {
      read.cursor.context.erase(kPendingKey);
    }
    output.bytes = static_cast<int64_t>(read.lines.byteCount());
    output.lines = static_cast<int64_t>(read.lines.size());
    output.fileDone = atEOF;
    output.fileRead = atEOF;
    cursor = read.cursor;
    output.cursor = std::move(read.cursor);
    if (!sink(std::move(output))) return;
  }
}

}  // namespace brimlog
