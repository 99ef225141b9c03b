#include "store/UsageSummary.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "platform/Calendar.hpp"

namespace brimlog {
namespace {

UsageSummary makePreview() {
  struct Sample {
    ProviderID provider;
    const char* model;
    double baseCost;
    double tokensPerUSD;
    int64_t sessions;
  };
  const std::array<Sample, 3> samples = {{
      {ProviderID::claude, "claude-opus-5-5", 14.0, 400'000, 64},
      {ProviderID::codex, "gpt-5.5-codex", 5.0, 900'000, 21},
      {ProviderID::grok, "grok-build-1", 1.5, 700'000, 6},
  }};

  const Calendar utc = Calendar::utc();
  const Date today = utc.startOfDay(dateFromUnixSeconds(1'793'275'200));  // 2026-10-29 UTC
  std::vector<Date> dates;
  for (int k = -29; k <= 0; ++k) {
    if (const auto date = utc.addingDays(k, today)) dates.push_back(*date);
  }

  UsageSummary summary;
  summary.days = 30;
  summary.windowEnd = today;
  std::vector<double> dayCost(dates.size(), 0.0);
  std::vector<int64_t> dayTokens(dates.size(), 0);
  std::array<double, 3> cost{};
  std::array<int64_t, 3> tokens{};
  for (size_t s = 0; s < samples.size(); ++s) {
    const Sample& sample = samples[s];
    for (size_t i = 0; i < dates.size(); ++i) {
      const double wave =
          0.35 + 0.65 * std::fabs(std::sin(0.9 * static_cast<double>(i) + sample.provider.index()));
      const double factor = utc.isWeekend(dates[i]) ? 0.3 : 1.0;
      const double dayUSD = std::round(wave * sample.baseCost * factor * 100.0) / 100.0;
      const auto dayTok = static_cast<int64_t>(dayUSD * sample.tokensPerUSD);
      summary.daily.push_back({dates[i], sample.provider, dayTok, dayUSD});
      cost[s] += dayUSD;
      tokens[s] += dayTok;
      dayCost[i] += dayUSD;
      dayTokens[i] += dayTok;
    }
  }
  const double totalCost = cost[0] + cost[1] + cost[2];
  const auto totalTokens = static_cast<double>(tokens[0] + tokens[1] + tokens[2]);
  summary.totalCostUSD = totalCost;

  for (size_t s = 0; s < samples.size(); ++s) {
    const Sample& sample = samples[s];
    const int64_t t = tokens[s];
    const bool approximate = sample.provider == ProviderID::grok;
    const double costShare = cost[s] / totalCost;
    const double tokenShare = static_cast<double>(t) / totalTokens;
    summary.tools.push_back(
        {sample.provider, sample.sessions, t, cost[s], costShare, tokenShare, approximate});
    const TokenCounts split{t / 20, 17 * t / 20, t / 25,
                            0,      t / 20,      sample.provider == ProviderID::codex ? t / 60 : 0};
    summary.models.push_back(
        {sample.provider, sample.model, cost[s], costShare, tokenShare, split, approximate});
    summary.tokens += split;
  }
  std::stable_sort(summary.tools.begin(), summary.tools.end(),
                   [](const auto& a, const auto& b) { return a.costUSD > b.costUSD; });
  std::stable_sort(summary.models.begin(), summary.models.end(), [](const auto& a, const auto& b) {
    return a.costUSD.value_or(0.0) > b.costUSD.value_or(0.0);
  });

  for (size_t i = 0; i < dates.size(); ++i) {
    const int64_t daySessions = i % 3 == 0 ? 4 : 3;
    summary.perDay.push_back({dates[i], dayCost[i], dayTokens[i], daySessions});
    summary.sessions += daySessions;
  }
  summary.costByType = {0.08 * totalCost, 0.22 * totalCost, 0.2 * totalCost, 0.5 * totalCost, 0};
  summary.cacheSavingsUSD = 3.1 * totalCost;
  summary.hasUnknownPrices = false;
  return summary;
}

template <typename T, typename Encode>
Json encodeList(const std::vector<T>& items, Encode&& encode) {
  Json list = Json::array();
  for (const T& item : items) list.push_back(encode(item));
  return list;
}

}  // namespace

const UsageSummary& UsageSummary::preview() {
  static const UsageSummary summary = makePreview();
  return summary;
}

Json UsageSummary::toJson(DateForm form) const {
  Json json;
  json["days"] = days;
  json["windowEnd"] = json::encodeDate(windowEnd, form, "windowEnd");
  json["totalCostUSD"] = json::finite(totalCostUSD, "totalCostUSD");
  json["sessions"] = sessions;
  json["tools"] = encodeList(tools, [](const Tool& tool) {
    return Json{{"provider", tool.provider.toJson()},
                {"sessions", tool.sessions},
                {"tokens", tool.tokens},
                {"costUSD", json::finite(tool.costUSD, "costUSD")},
                {"costShare", json::finite(tool.costShare, "costShare")},
                {"tokenShare", json::finite(tool.tokenShare, "tokenShare")},
                {"approximate", tool.approximate}};
  });
  json["daily"] = encodeList(daily, [form](const DayPoint& point) {
    return Json{{"day", json::encodeDate(point.day, form, "day")},
                {"provider", point.provider.toJson()},
                {"tokens", point.tokens},
                {"costUSD", json::finite(point.costUSD, "costUSD")}};
  });
  json["models"] = encodeList(models, [](const ModelRow& row) {
    Json item = {{"provider", row.provider.toJson()},
                 {"model", row.model},
                 {"costShare", json::finite(row.costShare, "costShare")},
                 {"tokenShare", json::finite(row.tokenShare, "tokenShare")},
                 {"tokens", row.tokens.toJson()},
                 {"approximate", row.approximate}};
    if (row.costUSD) item["costUSD"] = json::finite(*row.costUSD, "costUSD");
    return item;
  });
  json["perDay"] = encodeList(perDay, [form](const DayRow& row) {
    Json item = {{"day", json::encodeDate(row.day, form, "day")},
                 {"costUSD", json::finite(row.costUSD, "costUSD")},
                 {"tokens", row.tokens},
                 {"sessions", row.sessions}};
    if (row.kept) item["kept"] = true;
    return item;
  });
  json["tokens"] = tokens.toJson();
  json["costByType"] = costByType.toJson();
  json["cacheSavingsUSD"] = json::finite(cacheSavingsUSD, "cacheSavingsUSD");
  json["hasUnknownPrices"] = hasUnknownPrices;
  return json;
}

}  // namespace brimlog
