#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/ProviderID.hpp"
#include "store/SummaryBuilder.hpp"
#include "store/UsageReport.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

/// What one `brimlog report` shows: its view, its days and filters, and the figures the view is
/// drawn from: the usage summary for daily, models and tools, the ledger's reports for the rest.
struct ReportContent {
  enum class View { daily, weekly, monthly, models, tools, sessions, projects, blocks, machines };
  static constexpr std::array<std::string_view, 9> kViewNames = {"daily",    "weekly", "monthly",
                                                                 "models",   "tools",  "sessions",
                                                                 "projects", "blocks", "machines"};

  /// The view a name in `kViewNames` names.
  static std::optional<View> viewNamed(std::string_view name) {
    for (size_t i = 0; i < kViewNames.size(); ++i) {
      if (kViewNames[i] == name) return static_cast<View>(i);
    }
    return std::nullopt;
  }
  static std::string_view nameOf(View view) { return kViewNames[static_cast<size_t>(view)]; }

  /// Whether the view is drawn from the usage summary.
  static bool fromSummary(View view) {
    return view == View::daily || view == View::models || view == View::tools;
  }

  View view = View::daily;
  /// The report's local days.
  SummaryWindow window;
  /// The days end today (not on an earlier `--until`).
  bool endsToday = true;
  Date now;
  std::optional<ProviderID> tool;
  std::optional<std::string> project;

  UsageSummary summary;                      // daily, models, tools
  std::vector<UsageReport::Period> periods;  // weekly, monthly
  UsageReport::Period total;                 // weekly, monthly: the whole span
  std::vector<UsageReport::Session> sessions;
  std::vector<UsageReport::Project> projects;
  std::vector<UsageReport::Block> blocks;

  /// A machine that shares into the shared ledger, and its usage over the report's days.
  struct Machine {
    std::string machine;
    std::string user;  // empty when it shares without one
    Date lastShared;
    int64_t sessions = 0;
    int64_t tokens = 0;
    UsageReport::Cost cost;
  };
  std::vector<Machine> machines;  // machines, by name
  /// The shared ledger the report read, as it may be shown; empty for this machine's own.
  std::string source;
};

}  // namespace brimlog
