#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "model/LimitForecast.hpp"
#include "model/ProviderID.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// One thing to tell the user about a limit window, with the texts of its desktop notification:
///
///     summary "Claude: Session at 82.0%",      body "18.0% left, resets in 2h 14m"
///     summary "Codex: Weekly has reset",       body "100.0% left"
///     summary "Claude: Weekly runs out early", body "at this pace: runs out Thu 14:10, 9 h
///                                                    before the reset"
struct LimitAlert {
  enum class Kind {
    /// The used share reached 80%.
    reached80,
    /// The used share reached 95% (or the whole quota).
    reached95,
    /// A window that was used up has reset.
    reset,
    /// At the window's current pace its quota runs out before its reset.
    runsOutEarly,
  };

  ProviderID provider = ProviderID::claude;
  std::string windowId;
  Kind kind = Kind::reached80;
  std::string summary;
  std::string body;

  bool operator==(const LimitAlert&) const = default;
};

/// Decides when a limit window is worth a desktop notification, and remembers what it has
/// already said so that each thing is said once.
///
/// A window alerts when its used share first reaches 0.80, when it first reaches 0.95 (a jump
/// past both levels at once alerts only 95%), and when, after being used up (95% alerted), it
/// resets: its reset time passes, or it comes back under 0.80 in a new period (a later reset
/// time, or any once the old one has passed). Each of these is said once per period of the
/// window; a period is the window's id with its reset time rounded to the minute (services
/// jitter by seconds), and a new period starts afresh. A window whose figures are stale never
/// alerts; one without a reset time starts afresh once it is back under 0.80. Apart from these
/// levels, a window whose forecast first puts the end of its quota before its reset alerts once
/// per period, however the forecast moves after.
///
/// What was said is kept in a small JSON file, replaced atomically and readable by the user
/// alone, so that a restart with the same limits says nothing again:
///
///     {"windows":[{"provider":"claude","window":"session","period":"2026-11-20T14:00:00Z",
///                  "alerted":"95","forecast":true}]}
///
/// A missing or damaged file is an empty memory. Not thread-safe: one caller at a time.
class LimitAlerts {
 public:
  /// Reads what `stateFile` remembers; forecast times are told in `calendar`.
  explicit LimitAlerts(std::filesystem::path stateFile, Calendar calendar = Calendar::current());

  /// The alerts due for `provider`'s windows at `now`, in the windows' order, given the windows'
  /// `forecasts` (`LimitOutlook`); remembers them in the state file. Never throws: when the file
  /// cannot be written the alerts are still returned (and remembered until the process ends),
  /// and `saveError` says why.
  std::vector<LimitAlert> update(ProviderID provider, const ProviderLimits& limits, Date now,
                                 std::span<const LimitForecast> forecasts = {});

  /// Why the last write of the state file failed (path, operation and the system's reason), or
  /// nothing when it succeeded or none was needed.
  const std::optional<std::string>& saveError() const { return saveError_; }

  const std::filesystem::path& stateFile() const { return stateFile_; }

 private:
  enum class Stage { none, reached80, reached95, resetSent };
  struct Entry {
    /// The reset time rounded to the minute; nothing for a window without one.
    std::optional<Date> period;
    Stage stage = Stage::none;
    /// Whether this period's early end was told.
    bool forecastTold = false;
  };
  using Key = std::pair<std::string, std::string>;  // provider's raw value, window id

  void load();
  void save();

  std::filesystem::path stateFile_;
  Calendar calendar_;
  std::map<Key, Entry> entries_;
  std::optional<std::string> saveError_;
};

}  // namespace brimlog
