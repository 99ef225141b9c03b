#pragma once

#include <filesystem>
#include <optional>

#include "model/PerProvider.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// What the refresh timing needs to know about earlier runs, per provider: the last successful
/// fetch, the last attempt and the delay last used. Kept in a small JSON file in the state
/// folder, so that separate runs of the command honour the same timing:
///
///     {"claude":{"lastFetch":"2026-11-20T09:30:00Z","lastAttempt":"…","delay":300}, …}
///
/// A missing or damaged file is an empty state: the next run may fetch.
struct RefreshState {
  struct Entry {
    std::optional<Date> lastFetch;
    std::optional<Date> lastAttempt;
    /// Seconds; absent before the first attempt.
    std::optional<double> delay;

    bool operator==(const Entry&) const = default;

    /// Records an attempt at `now` that ended with `status`: its time, the success's time when
    /// it succeeded, and the delay until the next (`RefreshPolicy::nextDelay`, so a run of
    /// unreachable answers waits 600, 1,200, then 1,800 seconds, and an ok one 300 again).
    void record(ProviderStatus status, Date now);

    /// Why a fetch is being thought of: the schedule came round (the daemon), a person asked
    /// for current figures (a command run, the widgets' refresh button), or asked for a fetch
    /// whatever the timing (`sync --refresh`).
    enum class Trigger { schedule, asked, forced };

    /// Whether the tool is to be asked now: on the schedule when `nextFetch` has come; when
    /// asked, as `RefreshPolicy::shouldRefreshOnOpen` allows (the last answer is over a
    /// minute old and no attempt was made in the last five); always when forced.
    bool isDue(Date now, Trigger trigger) const;

    /// When the tool is due again: the last attempt plus its delay; `now` when it was never
    /// asked or the last attempt lies in the future (a clock set back).
    Date nextFetch(Date now) const;
  };

  PerProvider<Entry> entries;

  Entry& operator[](ProviderID provider) { return entries[provider]; }
  const Entry& operator[](ProviderID provider) const { return entries[provider]; }

  bool operator==(const RefreshState&) const = default;

  Json toJson() const;
  static RefreshState fromJson(const Json& json);

  /// The file in the state folder: `refresh.json`.
  static std::filesystem::path pathIn(const std::filesystem::path& stateFolder);

  static RefreshState load(const std::filesystem::path& path);
  /// Replaces the file with `AtomicFile::replace`, so that a sync and the daemon saving at once
  /// never leave it torn; readable by the user alone. Throws std::filesystem::filesystem_error.
  void save(const std::filesystem::path& path) const;
};

}  // namespace brimlog
