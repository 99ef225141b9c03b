#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/LimitWindow.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// What Claude Code hands a status-line command on standard input, as far as the line shows it:
/// the model's display name, the session's cost so far and, for Pro and Max accounts once a
/// session has had its first reply, the account's limits as the service reported them with that
/// reply. Claude Code sends one JSON object per call, such as
///
///     {"session_id":"…","model":{"id":"claude-opus-4-1","display_name":"Opus"},
///      "cost":{"total_cost_usd":0.01234,"total_duration_ms":45000},
///      "rate_limits":{"five_hour":{"used_percentage":42.3,"resets_at":1774036800},
///                     "seven_day":{"used_percentage":85.7,"resets_at":1774580400}},…}
///
/// `used_percentage` is the share used from 0 to 100 (above 100 once a window is used up);
/// `resets_at` is in seconds since 1970. Every other key, and any key of an unexpected type or
/// out of range, is ignored: a window without a usable share is left out.
struct ClaudeCodeStatus {
  std::optional<std::string> modelName;
  std::optional<double> sessionCostUSD;
  /// "session" (five hours) and "weekly" (seven days), as far as given, sourced as read from
  /// Claude Code itself at the `now` of `parse`.
  std::vector<LimitWindow> limits;

  bool operator==(const ClaudeCodeStatus&) const = default;

  /// The status read from `text` at `now`; nothing when it is empty or not a JSON object.
  /// Never throws.
  static std::optional<ClaudeCodeStatus> parse(std::string_view text, Date now);
};

}  // namespace brimlog
