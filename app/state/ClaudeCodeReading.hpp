#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "model/LimitWindow.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"
#include "state/RefreshState.hpp"

namespace brimlog {

class UsageStore;

/// Claude's limits as Claude Code itself last reported them to `brimlog line`, handed to the
/// next sync or daemon pass through a small file in the state folder: the line opens no
/// database, and the file is replaced whole, so a pass never reads half of it.
///
///     ClaudeCodeReading{now, status.limits}.handOver(folder);   // brimlog line
///     ClaudeCodeReading::takeInto(store, refresh, folder);       // the next pass
///
/// Claude Code reads these figures from the headers of every reply, so while they are fresh
/// they stand for a fetch of Claude's limits: taking them in counts as one in the refresh
/// timing, and the service is not asked again before the usual interval.
struct ClaudeCodeReading {
  Date readAt;
  /// "session" and "weekly", as far as Claude Code gave them.
  std::vector<LimitWindow> windows;

  static constexpr std::string_view fileName = "claude-code-limits.json";

  /// Writes the reading into `folder` unless the file there already holds the same figures
  /// (each window's share used and reset); returns whether it wrote. Throws
  /// std::filesystem::filesystem_error.
  bool handOver(const std::filesystem::path& folder) const;

  /// The reading in `folder`; nothing when there is none or it cannot be read.
  static std::optional<ClaudeCodeReading> read(const std::filesystem::path& folder);

  /// Claude's limits with this reading taken in (its windows and time, status ok, the stored
  /// plan and credits kept); nothing when `stored` is as new or newer.
  std::optional<ProviderLimits> over(const std::optional<ProviderLimits>& stored) const;

  /// Takes the reading in `folder`, if newer than Claude's stored limits, into the store and
  /// into `refresh` as a successful fetch at its time; returns whether it did.
  static bool takeInto(UsageStore& store, RefreshState& refresh,
                       const std::filesystem::path& folder);
};

}  // namespace brimlog
