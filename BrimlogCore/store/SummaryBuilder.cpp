#include "store/SummaryBuilder.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>

#include "model/PerProvider.hpp"

namespace brimlog {
namespace {

struct Totals {
  bool present = false;  // a row or a session exists, even with zero tokens
  int64_t tokens = 0;
  double cost = 0;
};

struct ModelTotals {
  TokenCounts tokens;
  std::optional<double> cost;
  bool approximate = false;
};

double share(double part, double whole) { return whole > 0 ? part / whole : 0.0; }

}  // namespace

SummaryWindow SummaryWindow::make(int days, Date now, const Calendar& calendar) {
  const Date today = calendar.startOfDay(now);
  return between(calendar.addingDays(1 - std::max(days, 1), today).value_or(today), today,
                 calendar);
}

SummaryWindow SummaryWindow::between(Date first, Date last, const Calendar& calendar) {
  SummaryWindow window;
  window.today = calendar.startOfDay(last);
  // Day by day from the first, by calendar arithmetic: days across a daylight-saving change
  // still start at local midnight.
  const Date start = std::min(calendar.startOfDay(first), window.today);
  for (int k = 0;; ++k) {
    const auto date = calendar.addingDays(k, start);
    if (!date || *date > window.today) break;
    window.dates.push_back(*date);
    window.keys.push_back(calendar.dayKey(*date));
  }
  window.days = std::max<int>(1, static_cast<int>(window.dates.size()));
  window.lastKey = calendar.dayKey(window.today);
  window.firstKey = window.keys.empty() ? window.lastKey : window.keys.front();
  return window;
}

UsageSummary buildSummary(const SummaryWindow& window, const LedgerDays& days,
                          const PriceTable& prices) {
  UsageSummary summary;
  summary.days = window.days;
  summary.windowEnd = window.today;

  PerProvider<Totals> byProvider;
  PerProvider<std::optional<int64_t>> sessionsByProvider;
  PerProvider<bool> approximateByProvider;
  std::unordered_map<std::string, Totals> byDay;
  std::unordered_map<std::string, int64_t> sessionsByDay;
  std::unordered_map<std::string, bool> keptDays;
  PerProvider<std::unordered_map<std::string, Totals>> byProviderDay;
  std::map<std::pair<int, std::string>, ModelTotals> byModel;

  for (const DayUsage& row : days.usage) {
    const ProviderID p = row.provider;
    const PricedCost priced = prices.cost(row.model, row.tokens, row.reportedUSD);
    if (row.kept) keptDays[row.day] = true;
    const int64_t processed = row.tokens.processed();

    Totals& provider = byProvider[p];
    Totals& day = byDay[row.day];
    Totals& providerDay = byProviderDay[p][row.day];
    ModelTotals& model = byModel[{p.index(), row.model}];
    for (Totals* totals : {&provider, &day, &providerDay}) {
      totals->present = true;
      totals->tokens = saturatingAdd(totals->tokens, processed);
    }
    summary.tokens += row.tokens;
    model.tokens += row.tokens;
    if (priced.approximate) {
      approximateByProvider[p] = true;
      model.approximate = true;
    }
    summary.cacheSavingsUSD += priced.cacheSavingsUSD;
    if (!priced.usd) {
      summary.hasUnknownPrices = true;
      continue;
    }
    const double usd = *priced.usd;
    summary.totalCostUSD += usd;
    provider.cost += usd;
    day.cost += usd;
    providerDay.cost += usd;
    model.cost = model.cost.value_or(0.0) + usd;
    summary.costByType += *priced.breakdown;
  }

  // A session active on several days counts on each of them, and once in the window's totals.
  for (const DaySessions& count : days.sessions) sessionsByDay[count.day] += count.count;
  for (const DaySessions& count : days.sessionTotals) {
    auto& provider = sessionsByProvider[count.provider];
    provider = provider.value_or(0) + count.count;
    summary.sessions += count.count;
  }

  const double totalCost = summary.totalCostUSD;
  const auto totalTokens = static_cast<double>(summary.tokens.processed());

  std::vector<ProviderID> withData;
  for (const ProviderID id : ProviderID::allCases) {
    if (byProvider[id].present || sessionsByProvider[id]) withData.push_back(id);
  }

  for (const ProviderID id : withData) {
    const Totals& totals = byProvider[id];
    summary.tools.push_back({id, sessionsByProvider[id].value_or(0), totals.tokens, totals.cost,
                             share(totals.cost, totalCost),
                             share(static_cast<double>(totals.tokens), totalTokens),
                             approximateByProvider[id]});
  }
  std::stable_sort(summary.tools.begin(), summary.tools.end(),
                   [](const auto& a, const auto& b) { return a.costUSD > b.costUSD; });

  for (const ProviderID id : withData) {
    const auto& toolDays = byProviderDay[id];
    for (size_t i = 0; i < window.dates.size(); ++i) {
      const auto found = toolDays.find(window.keys[i]);
      summary.daily.push_back(found == toolDays.end() ? UsageSummary::DayPoint{window.dates[i], id}
                                                      : UsageSummary::DayPoint{window.dates[i], id,
                                                                               found->second.tokens,
                                                                               found->second.cost});
    }
  }

  for (const auto& [key, totals] : byModel) {
    const ProviderID provider = ProviderID::allCases[key.first];
    summary.models.push_back({provider, key.second, totals.cost,
                              share(totals.cost.value_or(0.0), totalCost),
                              share(static_cast<double>(totals.tokens.processed()), totalTokens),
                              totals.tokens, totals.approximate});
  }
  std::sort(summary.models.begin(), summary.models.end(), [](const auto& a, const auto& b) {
    if (a.costUSD.has_value() != b.costUSD.has_value()) return a.costUSD.has_value();
    if (a.costUSD && *a.costUSD != *b.costUSD) return *a.costUSD > *b.costUSD;
    const int64_t aTokens = a.tokens.processed(), bTokens = b.tokens.processed();
    if (aTokens != bTokens) return aTokens > bTokens;
    if (a.provider != b.provider) return a.provider.rawValue() < b.provider.rawValue();
    return a.model < b.model;
  });

  for (size_t i = 0; i < window.dates.size(); ++i) {
    const auto day = byDay.find(window.keys[i]);
    const auto daySessions = sessionsByDay.find(window.keys[i]);
    if (day == byDay.end() && daySessions == sessionsByDay.end()) continue;
    summary.perDay.push_back({window.dates[i], day == byDay.end() ? 0.0 : day->second.cost,
                              day == byDay.end() ? 0 : day->second.tokens,
                              daySessions == sessionsByDay.end() ? 0 : daySessions->second,
                              keptDays.count(window.keys[i]) > 0});
  }
  return summary;
}

}  // namespace brimlog
