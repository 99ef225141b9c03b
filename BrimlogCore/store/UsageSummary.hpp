#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/ProviderID.hpp"
#include "model/TokenCounts.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"
#include "store/PriceTable.hpp"

namespace brimlog {

/// The usage of the last N local days in one value: cost at list prices in total, per tool, per
/// model and per day; tokens; sessions; a zero-filled day-by-day series per tool; the cost split by
/// token type; what caching saved; and whether some money is approximate or unknown.
///
/// "Tokens" as one number (a tool's, a day's, the shares) is always `TokenCounts::processed()`;
/// the `tokens` of the summary and of a model row keep all six counters.
struct UsageSummary {
  struct Tool {
    ProviderID provider = ProviderID::claude;
    int64_t sessions = 0;
    int64_t tokens = 0;
    double costUSD = 0;
    double costShare = 0;
    double tokenShare = 0;
    bool approximate = false;
    bool operator==(const Tool&) const = default;
  };

  struct DayPoint {
    Date day;  // the start of that local day
    ProviderID provider = ProviderID::claude;
    int64_t tokens = 0;
    double costUSD = 0;
    bool operator==(const DayPoint&) const = default;
  };

  struct ModelRow {
    ProviderID provider = ProviderID::claude;
    std::string model;
    std::optional<double> costUSD;  // absent when no row of the model could be priced
    double costShare = 0;
    double tokenShare = 0;
    TokenCounts tokens;
    bool approximate = false;
    bool operator==(const ModelRow&) const = default;
  };

  struct DayRow {
    Date day;
    double costUSD = 0;
    int64_t tokens = 0;
    int64_t sessions = 0;
    /// Some of the day's figures are day totals kept from an older database, whose logs are gone.
    bool kept = false;
    bool operator==(const DayRow&) const = default;
  };

  int64_t days = 30;
  /// The start of the window's last day: local midnight of the day of `now`.
  Date windowEnd;
  double totalCostUSD = 0;
  /// Sessions whose first day lies in the window.
  int64_t sessions = 0;
  /// One per provider with data, highest cost first.
  std::vector<Tool> tools;
  /// Per provider with data (claude, codex, grok, cursor order), one point per day, oldest first.
  std::vector<DayPoint> daily;
  std::vector<ModelRow> models;
  /// Days of the window with data, oldest first.
  std::vector<DayRow> perDay;
  TokenCounts tokens;
  CostBreakdown costByType;
  double cacheSavingsUSD = 0;
  /// Some usage had neither a price nor a reported cost: the total is too low.
  bool hasUnknownPrices = false;

  bool operator==(const UsageSummary&) const = default;

  /// A fixed 30-day sample with three tools, for previews.
  static const UsageSummary& preview();

  Json toJson(DateForm form) const;
};

}  // namespace brimlog
