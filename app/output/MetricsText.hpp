#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/ProviderID.hpp"
#include "model/TokenCounts.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// The daemon's figures as Prometheus reads them: the text exposition format, version 0.0.4.
/// Pure: the figures in, the text out. Every metric has its HELP and TYPE lines, also when it
/// has no sample yet; label values are escaped as the format asks (backslash, double quote,
/// newline). Labels are only ever tools, models, token kinds and limit windows: a bounded set,
/// never sessions or projects.
///
///     MetricsFigures figures;
///     figures.usage.push_back({ProviderID::claude, "claude-sonnet-4-5", tokens, 1.25});
///     std::string text = MetricsText::render(figures);
struct MetricsFigures {
  /// One tool's and model's usage over the whole ledger.
  struct Usage {
    ProviderID tool = ProviderID::claude;
    std::string model;
    TokenCounts tokens;
    /// Absent when none of it could be priced.
    std::optional<double> costUSD;
  };

  /// One limit window as last stored, with its forecast.
  struct Limit {
    ProviderID tool = ProviderID::claude;
    std::string window;
    double usedRatio = 0;
    std::optional<Date> resetsAt;
    /// Only when the forecast runs out before the reset.
    std::optional<Date> runsOutAt;
  };

  std::vector<Usage> usage;
  std::vector<Limit> limits;
  /// The last pass; absent before the first.
  std::optional<double> passSeconds;
  int64_t passSkippedFiles = 0;
  int64_t passes = 0;
  std::optional<Date> lastPass;
  Date startTime;
};

struct MetricsText {
  /// The media type of `render`'s text.
  static constexpr std::string_view contentType = "text/plain; version=0.0.4; charset=utf-8";

  static std::string render(const MetricsFigures& figures);

  /// A label value as it goes between the double quotes.
  static std::string escapeLabel(std::string_view value);
};

}  // namespace brimlog
