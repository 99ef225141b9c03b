#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "ingest/LineBatch.hpp"
#include "model/ProviderLimits.hpp"
#include "model/TokenCounts.hpp"
#include "model/UsageEvent.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What one line of a Codex session log yields: a model response's usage or a snapshot of the
/// user's rate limits. Equatable: two results are equal when they hold the same alternative with
/// equal values.
using CodexLine = std::variant<UsageEvent, ProviderLimits>;

/// The token figures of a "token_count" event message: the usage of the last model call and the
/// session's running total. Codex writes such an event after every call, and often repeats the
/// previous one unchanged, so summing `last` over every event counts many calls twice; a caller
/// that sums it only when `total` moves (or takes the final total) counts each call once.
struct TokenCountUsage {
  /// `last_token_usage`, mapped like a usage record: uncachedInput = input - cached (never below
  /// 0), cacheRead = cached, output and reasoning as written; no cache writes.
  TokenCounts last;
  /// `total_token_usage.total_tokens`: every token of the session so far.
  int64_t total = 0;
  /// The line's own timestamp; nothing when it is missing or not an ISO 8601 date-time.
  std::optional<Date> timestamp;

  bool operator==(const TokenCountUsage&) const = default;
};

/// What a line carried besides its result, read from the same parse.
struct CodexLineDetails {
  /// Set for a "token_count" event whose `info` is an object holding a `last_token_usage` object
  /// and a `total_token_usage` object with a number under `total_tokens`; whether the line also
  /// yields limits does not matter.
  std::optional<TokenCountUsage> tokenCount;
  /// The line is a JSON object of type "token_usage_record", whether or not it yields an event:
  /// a log that has such lines reports its usage through them.
  bool usageRecord = false;

  bool operator==(const CodexLineDetails&) const = default;
};

/// Turns the lines of one Codex session log, consumed in file order, into usage events and
/// rate-limit snapshots.
///
/// A usage record names neither its model nor (always) its session: those come from earlier
/// lines, which the parser remembers in `context` ("session" from the last "session_meta" line,
/// "model" from the last "turn_context" line; other entries are kept untouched). The context is
/// what must survive between two reads of the same file: start from the stored cursor's context,
/// and store the parser's context with the new cursor.
///
///     CodexLogParser parser(cursor.context);
///     for (PaddedLine line : read.lines) {
///       if (auto result = parser.consume(line)) ...  // std::get_if<UsageEvent>(&*result)
///     }
///     read.cursor.context = parser.takeContext();
///
/// One parser serves one file and one caller at a time; separate files use separate parsers.
/// Never throws: an unusable line yields nothing and leaves the context as it was.
class CodexLogParser {
 public:
  explicit CodexLogParser(std::map<std::string, std::string> context = {});

  const std::map<std::string, std::string>& context() const { return context_; }

  /// Hands the context over (to put it into the cursor to save), leaving this parser's empty.
  std::map<std::string, std::string> takeContext();

  /// The result of one line (without its line end), updating the context on "session_meta" and
  /// "turn_context" lines.
  std::optional<CodexLine> consume(std::string_view line);

  /// The same, parsing the line where it lies, and settling lines of other types (most of a log)
  /// on their type alone without building their tree.
  std::optional<CodexLine> consume(PaddedLine line);

  /// The same, also filling `details` (cleared first) from the same parse.
  std::optional<CodexLine> consume(PaddedLine line, CodexLineDetails& details);

 private:
  std::map<std::string, std::string> context_;
};

}  // namespace brimlog
