#pragma once

#include <filesystem>
#include <optional>

#include "model/PerProvider.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// What the refresh timing needs to know about earlier runs, per provider: the last successful
/// fetch, the last attempt and the delay last used. Kept in a small JSON file beside the
/// database, so that separate runs of the command honour the same timing:
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
  };

  PerProvider<Entry> entries;

  Entry& operator[](ProviderID provider) { return entries[provider]; }
  const Entry& operator[](ProviderID provider) const { return entries[provider]; }

  bool operator==(const RefreshState&) const = default;

  Json toJson() const;
  static RefreshState fromJson(const Json& json);

  /// The state file beside a database: `<database>.refresh.json`.
  static std::filesystem::path pathFor(const std::filesystem::path& database);

  static RefreshState load(const std::filesystem::path& path);
  /// Replaces the file atomically (a temporary file renamed over it), readable by the user
  /// alone. Throws std::filesystem::filesystem_error.
  void save(const std::filesystem::path& path) const;
};

}  // namespace brimlog
