#include "output/ReportFormatter.hpp"

#include <fmt/format.h>

#include <map>
#include <optional>

#include "output/TextTable.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

std::string cost(std::optional<double> usd, bool approximate) {
  if (!usd) return "-";
  return fmt::format("{}{}", approximate ? "~" : "", formatUSD(*usd));
}

std::string percent(double share) { return fmt::format("{:.1f}%", share * 100); }

bool anyApproximate(const UsageSummary& summary) {
  for (const UsageSummary::Tool& tool : summary.tools) {
    if (tool.approximate) return true;
  }
  return false;
}

std::string notes(const UsageSummary& summary) {
  std::string out;
  if (anyApproximate(summary)) {
    out +=
        "~ approximate: some usage is priced at a related model's list price or at the cost "
        "the tool reported.\n";
  }
  if (summary.hasUnknownPrices) {
    out += "Some usage has no known price and is left out of the costs.\n";
  }
  return out;
}

}  // namespace

std::optional<ReportFormatter::View> ReportFormatter::viewNamed(std::string_view name) {
  if (name == "daily") return View::daily;
  if (name == "models") return View::models;
  if (name == "tools") return View::tools;
  return std::nullopt;
}

std::string ReportFormatter::render(const UsageSummary& summary, View view,
                                    const Calendar& calendar) {
  const std::optional<Date> first = calendar.addingDays(
      -static_cast<int>(std::max<int64_t>(summary.days, 1) - 1), summary.windowEnd);
  std::string out = fmt::format("Usage of the last {} days, {} to {} ({})\n\n", summary.days,
                                calendar.dayKey(first.value_or(summary.windowEnd)),
                                calendar.dayKey(summary.windowEnd), calendar.zoneName());
  if (summary.tools.empty()) return out + "No usage recorded in this period.\n";
  switch (view) {
    case View::daily:
      out += daily(summary, calendar);
      break;
    case View::models:
      out += models(summary);
      break;
    case View::tools:
      out += tools(summary);
      break;
  }
  const std::string extra = notes(summary);
  return extra.empty() ? out : out + '\n' + extra;
}

std::string ReportFormatter::daily(const UsageSummary& summary, const Calendar& calendar) {
  // One cost column per tool with data, in the usual tool order.
  std::vector<ProviderID> providers;
  for (ProviderID provider : ProviderID::allCases) {
    for (const UsageSummary::Tool& tool : summary.tools) {
      if (tool.provider == provider) providers.push_back(provider);
    }
  }
  // (day, provider) -> cost, for the days on which the tool was used.
  std::map<std::pair<double, int>, double> costs;
  for (const UsageSummary::DayPoint& point : summary.daily) {
    if (point.tokens == 0 && point.costUSD == 0) continue;
    costs[{unixSeconds(point.day), point.provider.index()}] += point.costUSD;
  }

  std::vector<TextTable::Column> columns{{"Day", TextTable::left}};
  for (ProviderID provider : providers) {
    columns.push_back({std::string(provider.displayName()), TextTable::right});
  }
  columns.push_back({"Sessions", TextTable::right});
  columns.push_back({"Tokens", TextTable::right});
  columns.push_back({"Cost", TextTable::right});
  TextTable table{columns};

  for (const UsageSummary::DayRow& row : summary.perDay) {
    std::vector<std::string> cells{calendar.dayKey(row.day)};
    for (ProviderID provider : providers) {
      auto found = costs.find({unixSeconds(row.day), provider.index()});
      cells.push_back(found == costs.end() ? "" : formatUSD(found->second));
    }
    cells.push_back(formatCount(row.sessions));
    cells.push_back(formatCount(row.tokens));
    cells.push_back(formatUSD(row.costUSD));
    table.addRow(std::move(cells));
  }
  table.addRule();
  std::vector<std::string> total{"Total"};
  for (ProviderID provider : providers) {
    for (const UsageSummary::Tool& tool : summary.tools) {
      if (tool.provider == provider) total.push_back(cost(tool.costUSD, tool.approximate));
    }
  }
  int64_t tokens = 0;
  for (const UsageSummary::Tool& tool : summary.tools) tokens += tool.tokens;
  total.push_back(formatCount(summary.sessions));
  total.push_back(formatCount(tokens));
  total.push_back(cost(summary.totalCostUSD, anyApproximate(summary)));
  table.addRow(std::move(total));
  return table.render();
}

std::string ReportFormatter::models(const UsageSummary& summary) {
  TextTable table{{{"Tool", TextTable::left},
                   {"Model", TextTable::left},
                   {"Input", TextTable::right},
                   {"Cache read", TextTable::right},
                   {"Cache write", TextTable::right},
                   {"Output", TextTable::right},
                   {"Reasoning", TextTable::right},
                   {"Cost", TextTable::right},
                   {"Share", TextTable::right}}};
  for (const UsageSummary::ModelRow& row : summary.models) {
    table.addRow({std::string(row.provider.displayName()), row.model,
                  formatCount(row.tokens.uncachedInput), formatCount(row.tokens.cacheRead),
                  formatCount(row.tokens.cacheWrite()), formatCount(row.tokens.output),
                  formatCount(row.tokens.reasoning), cost(row.costUSD, row.approximate),
                  percent(row.costShare)});
  }
  table.addRule();
  const TokenCounts& t = summary.tokens;
  table.addRow({"Total", "", formatCount(t.uncachedInput), formatCount(t.cacheRead),
                formatCount(t.cacheWrite()), formatCount(t.output), formatCount(t.reasoning),
                cost(summary.totalCostUSD, anyApproximate(summary)), "100.0%"});
  std::string out = table.render();
  if (summary.cacheSavingsUSD > 0) {
    out += fmt::format("\nPrompt caching saved {} at list prices.\n",
                       formatUSD(summary.cacheSavingsUSD));
  }
  return out;
}

std::string ReportFormatter::tools(const UsageSummary& summary) {
  TextTable table{{{"Tool", TextTable::left},
                   {"Sessions", TextTable::right},
                   {"Tokens", TextTable::right},
                   {"Token share", TextTable::right},
                   {"Cost", TextTable::right},
                   {"Cost share", TextTable::right}}};
  int64_t tokens = 0;
  for (const UsageSummary::Tool& tool : summary.tools) {
    table.addRow({std::string(tool.provider.displayName()), formatCount(tool.sessions),
                  formatCount(tool.tokens), percent(tool.tokenShare),
                  cost(tool.costUSD, tool.approximate), percent(tool.costShare)});
    tokens += tool.tokens;
  }
  table.addRule();
  table.addRow({"Total", formatCount(summary.sessions), formatCount(tokens), "100.0%",
                cost(summary.totalCostUSD, anyApproximate(summary)), "100.0%"});
  return table.render();
}

}  // namespace brimlog
