#pragma once

#include <optional>
#include <string_view>

#include "ingest/LineBatch.hpp"
#include "model/UsageEvent.hpp"

namespace brimlog {

/// Turns one line of a Claude Code transcript into a usage event: only assistant replies that
/// carry token usage count; every other line yields nothing.
///
/// A line is judged alone, so the parser keeps no state and may be called from several threads
/// at once. The reply's key is `message.id` (or the top-level `requestId`): Claude Code writes one
/// reply over several lines that share it.
///
///     auto e = ClaudeLogParser::event(R"({"type":"assistant","timestamp":"2025-06-01T12:34:56Z",
///         "message":{"id":"msg_1","model":"m1","usage":{"input_tokens":10,"output_tokens":5}}})");
///     e->dedupKey;  // "msg_1"
class ClaudeLogParser {
 public:
  /// The event of one line (without its line end), or nothing when the line is not a usable
  /// model reply. Never throws.
  static std::optional<UsageEvent> event(std::string_view line);

  /// The same, parsing the line where it lies (no copy) thanks to the padding after it.
  static std::optional<UsageEvent> event(PaddedLine line);
};

}  // namespace brimlog
