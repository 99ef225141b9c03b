#include "ingest/codex/CodexLogReader.hpp"

#include <variant>

#include "ingest/JSONLTail.hpp"
#include "ingest/LogResume.hpp"
#include "ingest/codex/CodexLogParser.hpp"
#include "model/LimitReading.hpp"

namespace brimlog {
namespace {

// Whether two limits records hold the same figures, window by window (the readings' own rule).
bool sameFigures(const ProviderLimits& a, const ProviderLimits& b) {
  const std::vector<LimitReading> first = LimitReading::of(ProviderID::codex, a);
  const std::vector<LimitReading> second = LimitReading::of(ProviderID::codex, b);
  return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                    [](const LimitReading& x, const LimitReading& y) {
                      return x.window == y.window && LimitReading::sameFigures(x, y);
                    });
}

constexpr const char* kTotalKey = "total";                // last cumulative token total
constexpr const char* kUsageRecordsKey = "usageRecords";  // the file has usage records

// The running total of one file, and the events its rises yield.
class RunningTotal {
 public:
  explicit RunningTotal(const std::optional<FileCursor>& cursor)
      : total_(cursor ? cursor->integerEntry(kTotalKey).value_or(0) : 0) {
    if (cursor) {
      const auto found = cursor->context.find("session");
      if (found != cursor->context.end()) session_ = found->second;
    }
  }

  void reset() {
    session_.clear();
    total_ = 0;
  }

  // Follows one line: its session (from the parser's context after the line) and its
  // token_count figures, if any.
  void follow(const std::map<std::string, std::string>& context,
              const std::optional<TokenCountUsage>& tokenCount, std::vector<UsageEvent>& events) {
    const auto found = context.find("session");
    const std::string_view current =
        found == context.end() ? std::string_view{} : std::string_view{found->second};
    if (current != session_) {  // a new session counts from zero again
      session_ = current;
      total_ = 0;
    }
    if (!tokenCount || tokenCount->total <= total_) return;
    total_ = tokenCount->total;
    if (!tokenCount->timestamp) return;
    const auto model = context.find("model");
    UsageEvent event;
    event.provider = ProviderID::codex;
    event.model = model == context.end() ? "unknown" : model->second;
    event.sessionID = session_;
    event.dedupKey = session_ + "#" + std::to_string(total_);
    event.timestamp = *tokenCount->timestamp;
    event.tokens = tokenCount->last;
    if (const auto cwd = context.find("cwd"); cwd != context.end()) event.project = cwd->second;
    events.push_back(std::move(event));
  }

  int64_t total() const { return total_; }

 private:
  std::string session_;
  int64_t total_;
};

}  // namespace

void CodexLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  // A cursor whose bytes were rewritten is dropped with its context, as for a new file.
  std::optional<FileCursor> cursor = LogResume::verified(job.path, job.cursor, job.inode, job.size);
  CodexLogParser parser{cursor ? cursor->context : std::map<std::string, std::string>{}};
  RunningTotal running{cursor};
  bool hasUsageRecords = cursor && cursor->context.count(kUsageRecordsKey) > 0;

  ReadOutput output;
  std::vector<UsageEvent> recordEvents;
  std::vector<UsageEvent> countEvents;
  CodexLineDetails details;
  for (bool atEOF = false; !atEOF;) {
    JSONLTail::Result read = LogResume::read(job.path, cursor, job.size, chunkBytes_);
    if (read.reset) {
      parser = CodexLogParser{};
      running.reset();
      hasUsageRecords = false;
    }
    for (PaddedLine line : read.lines) {
      std::optional<CodexLine> result = parser.consume(line, details);
      if (details.usageRecord) hasUsageRecords = true;
      if (result) {
        if (auto* event = std::get_if<UsageEvent>(&*result)) {
          recordEvents.push_back(std::move(*event));
        } else if (auto* limits = std::get_if<ProviderLimits>(&*result)) {
          if (output.limitChanges.empty() || !sameFigures(output.limitChanges.back(), *limits)) {
            output.limitChanges.push_back(*limits);
          }
          if (!output.limits || limits->fetchedAt > output.limits->fetchedAt) {
            output.limits = std::move(*limits);
          }
        }
      }
      running.follow(parser.context(), details.tokenCount, countEvents);
    }
    output.bytes += static_cast<int64_t>(read.lines.byteCount());
    output.lines += static_cast<int64_t>(read.lines.size());
    atEOF = read.atEOF;
    cursor = std::move(read.cursor);
  }
  output.events = hasUsageRecords ? std::move(recordEvents) : std::move(countEvents);
  cursor->context = parser.takeContext();
  cursor->context[FileCursor::providerKey] = job.provider.rawValue();
  cursor->context[kTotalKey] = std::to_string(running.total());
  if (hasUsageRecords) cursor->context[kUsageRecordsKey] = "1";
  // The parser carried the context it started from; the resume checks describe this read.
  LogResume::remember(job.path, *cursor, true, job.size);
  output.cursor = std::move(cursor);
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

}  // namespace brimlog
