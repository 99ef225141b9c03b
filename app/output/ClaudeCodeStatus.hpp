#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// What Claude Code hands a status-line command on standard input, as far as the line shows it:
/// the model's display name and the session's cost so far. Claude Code sends one JSON object per
/// call, such as
///
///     {"session_id":"…","model":{"id":"claude-opus-4-1","display_name":"Opus"},
///      "cost":{"total_cost_usd":0.01234,"total_duration_ms":45000},…}
///
/// Every other key, and any key of an unexpected type, is ignored.
struct ClaudeCodeStatus {
  std::optional<std::string> modelName;
  std::optional<double> sessionCostUSD;

  bool operator==(const ClaudeCodeStatus&) const = default;

  /// The status read from `text`; nothing when it is empty or not a JSON object. Never throws.
  static std::optional<ClaudeCodeStatus> parse(std::string_view text);
};

}  // namespace brimlog
