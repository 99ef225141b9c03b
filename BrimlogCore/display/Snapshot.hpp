#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/LimitForecast.hpp"
#include "model/LimitWindow.hpp"
#include "model/ProviderID.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

/// Everything the widgets show, in one value that the host writes to "snapshot.json" and the
/// widget process reads back: per provider its plan, limit windows, credits, the status of the
/// last fetch and its tokens and cost over the last 30 days; across providers today's cost, the
/// 30-day cost and the cost of each of the last 30 days.
///
///     Snapshot s = Snapshot::make(summary, limits, ProviderID::readableCases, now, calendar);
///     s.dailyCost30.size();  // 30, oldest day first, ending on the summary's last day
///     Snapshot::fromJson(s.toJson());  // s with generatedAt cut to the whole second
///
/// JSON: the field names as keys; dates (generatedAt, a window's resetsAt, its source's asOf) as
/// UTC text with whole seconds, such as "2026-10-29T12:00:00Z". The writer drops fractions of a
/// second; the reader refuses a date in any other form (a fraction, an offset even of +00:00).
/// The reader also refuses lists longer than the writer makes them (`seriesLength`,
/// `maxProviders`, `maxWindows`), so a damaged or hostile file costs no more than a real one.
struct Snapshot {
  /// One provider's entry.
  struct Provider {
    ProviderID id = ProviderID::claude;
    std::optional<std::string> plan;
    /// In the order the provider's fetcher produced them.
    std::vector<LimitWindow> windows;
    std::optional<Credits> credits;
    ProviderStatus status = ProviderStatus::ok;
    int64_t tokens30d = 0;
    double cost30dUSD = 0;
    /// Some of the cost is a related model's price or a cost the tool reported.
    bool approximate = false;
    /// When the limits were last asked for (`ProviderLimits::fetchedAt`); nothing without limits.
    std::optional<Date> readAt;
    /// The pace and forecast of the windows that have one, by window id.
    std::vector<LimitForecast> forecasts;

    /// When `window`'s figures were read: its source's own date, else `readAt`.
    std::optional<Date> readAtOf(const LimitWindow& window) const;
    /// The forecast of the window with this id, if there is one.
    const LimitForecast* forecastOf(std::string_view windowId) const;

    bool operator==(const Provider&) const = default;

    Json toJson() const;
    static Provider fromJson(const Json& json);
  };

  /// Days in the series `make` writes; a shorter series still reads.
  static constexpr size_t seriesLength = 30;
  /// One entry per tool.
  static constexpr size_t maxProviders = ProviderID::allCases.size();
  /// A tool's session, weekly and per-model weekly windows, with room to spare.
  static constexpr size_t maxWindows = 16;

  Date generatedAt;
  /// Providers with something to show, in display order.
  std::vector<Provider> providers;
  /// All providers' cost on the local day that holds `generatedAt`.
  double costTodayUSD = 0;
  double cost30dUSD = 0;
  /// All providers' cost per local day, oldest first.
  std::vector<double> dailyCost30;

  bool operator==(const Snapshot&) const = default;

  /// Builds the snapshot of a 30-day summary and each provider's latest limits, at `now`. Never
  /// fails.
  ///
  /// Providers are those of `order`, in that order (one listed twice appears twice); a provider
  /// is left out when it has no limits, no tool row in the summary, and no daily points with
  /// tokens above 0 or a cost above 0. A provider without limits shows status `unavailable` and
  /// no windows. Tokens and cost come from the tool row, else from the sum of its daily points.
  /// The series holds the 30 local days of `calendar` ending on the day of
  /// `summary.windowEnd`, every provider's points added into the day they fall in; today's cost
  /// is the day of `now`, which need not be the series' last day.
  ///
  /// `forecasts` go to their providers' entries as they are (see `LimitForecast`).
  static Snapshot make(const UsageSummary& summary,
                       const std::map<ProviderID, ProviderLimits>& limits,
                       std::span<const ProviderID> order, Date now, const Calendar& calendar,
                       const std::map<ProviderID, std::vector<LimitForecast>>& forecasts = {});

  /// A fixed sample for previews: every tool read here, at 2026-10-29T12:00:00Z, with a daily
  /// series that begins 3.5, 8.59, 9.83 and ends 8.85. Built once, on first use.
  static const Snapshot& placeholder();

  /// Throws `JsonEncodeError` when any number (a cost, a fraction, a duration) is not finite.
  Json toJson() const;
  /// Throws `JsonDecodeError` for a missing or null required key, a value of the wrong type, an
  /// unknown provider id or status, a date that is not whole-second UTC text with "Z", or a list
  /// longer than its bound.
  static Snapshot fromJson(const Json& json);
};

}  // namespace brimlog
