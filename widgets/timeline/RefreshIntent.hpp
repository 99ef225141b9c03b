#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace brimlog {

/// The refresh button: asks the Brimlog daemon that uses `stateFolder` to fetch fresh data, with
/// a refresh request (`RefreshRequest`). It reads and writes no snapshot and reloads no timeline;
/// the widgets show newer data once the daemon has written a new snapshot and their timeline is
/// next reloaded.
struct RefreshIntent {
  static constexpr std::string_view title = "Refresh Brimlog";
  /// What the user is told when no daemon listens, for the command line and the server alike.
  static constexpr std::string_view nobodyListening =
      "no Brimlog daemon is running to refresh; start one with `brimlog daemon` or the systemd "
      "user unit contrib/brimlog.service";

  /// True when a daemon was asked; false, asking nothing, when none listens or there is no
  /// state folder. Throws std::filesystem::filesystem_error when the request cannot be written.
  bool perform(const std::optional<std::filesystem::path>& stateFolder) const;
};

}  // namespace brimlog
