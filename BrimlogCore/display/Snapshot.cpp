#include "display/Snapshot.hpp"

#include <cmath>
#include <utility>

#include "model/LimitReading.hpp"
#include "model/TokenCounts.hpp"

namespace brimlog {
namespace {

constexpr DateForm kForm = DateForm::iso8601;

Snapshot makePlaceholder() {
  const Date base = dateFromUnixSeconds(1'793'275'200);  // 2026-10-29T12:00:00Z
  const auto after = [&](double seconds) { return std::optional<Date>(base + Seconds{seconds}); };
  const LimitSource live = LimitSource::live();

  Snapshot snapshot;
  snapshot.generatedAt = base;
  snapshot.providers = {
      {ProviderID::claude,
       "Max 5x",
       {LimitWindow{"session", "Session", 0.15, 18000.0, after(780), live},
        LimitWindow{"weekly", "Weekly", 0.42, 604800.0, after(259'200), live}},
       std::nullopt,
       ProviderStatus::ok,
       182'400'000,
       214.6,
       false,
       std::nullopt,
       {}},
      {ProviderID::codex,
       "Plus",
       {LimitWindow{"weekly", "Weekly", 0.01, 604800.0, after(511'200), live}},
       Credits{"Credits", 12.5, std::nullopt, std::nullopt, false},
       ProviderStatus::ok,
       64'300'000,
       71.2,
       false,
       std::nullopt,
       {}},
      {ProviderID::grok,
       std::nullopt,
       {},
       std::nullopt,
       ProviderStatus::unavailable,
       5'200'000,
       6.8,
       true,
       std::nullopt,
       {}},
      {ProviderID::gemini,
       std::nullopt,
       {},
       std::nullopt,
       ProviderStatus::unavailable,
       9'100'000,
       18.4,
       false,
       std::nullopt,
       {}},
      {ProviderID::opencode,
       std::nullopt,
       {},
       std::nullopt,
       ProviderStatus::unavailable,
       6'000'000,
       12.3,
       false,
       std::nullopt,
       {}},
      {ProviderID::kilo,
       std::nullopt,
       {},
       std::nullopt,
       ProviderStatus::unavailable,
       1'400'000,
       3.1,
       true,
       std::nullopt,
       {}},
      {ProviderID::qwen,
       std::nullopt,
       {},
       std::nullopt,
       ProviderStatus::unavailable,
       2'300'000,
       2.75,
       false,
       std::nullopt,
       {}},
  };
  // A week that picked up speed: read every eight hours since it began four days ago, at this
  // pace it runs out before its reset. The session is on its way out at an even pace.
  const auto forecast = [&](const LimitWindow& window, std::span<const double> used) {
    const Date start = *LimitForecast::periodStart(window);
    const double step = std::round((base - start).count() / static_cast<double>(used.size() - 1));
    std::vector<LimitReading> readings;
    for (size_t i = 0; i + 1 < used.size(); ++i) {
      readings.push_back({ProviderID::claude, window.id,
                          start + Seconds{step * static_cast<double>(i)}, used[i], window.resetsAt,
                          window.duration, LimitReading::Origin::service});
    }
    return *LimitForecast::make(window, base, readings, base);
  };
  static constexpr double kWeek[] = {0,    0.01, 0.02, 0.03, 0.05, 0.07,
                                     0.10, 0.13, 0.17, 0.23, 0.31, 0.42};
  static constexpr double kSession[] = {0, 0.03, 0.06, 0.09, 0.12, 0.15};
  Snapshot::Provider& claude = snapshot.providers.front();
  claude.forecasts = {forecast(claude.windows[0], kSession), forecast(claude.windows[1], kWeek)};
  for (auto& provider : snapshot.providers) {
    if (!provider.windows.empty()) provider.readAt = base;
  }
  for (size_t i = 0; i < Snapshot::seriesLength; ++i) {
    const double value = (0.35 + 0.65 * std::fabs(std::sin(0.9 * static_cast<double>(i)))) * 10.0;
    snapshot.dailyCost30.push_back(std::round(value * 100.0) / 100.0);
  }
  snapshot.costTodayUSD = snapshot.dailyCost30.back();
  snapshot.cost30dUSD = 329.15;
  return snapshot;
}

}  // namespace

Snapshot Snapshot::make(const UsageSummary& summary,
                        const std::map<ProviderID, ProviderLimits>& limits,
                        std::span<const ProviderID> order, Date now, const Calendar& calendar,
                        const std::map<ProviderID, std::vector<LimitForecast>>& forecasts) {
  struct Totals {
    int64_t tokens = 0;
    double costUSD = 0;
  };
  std::map<Date, double> costByDay;
  std::map<ProviderID, Totals> dailyTotals;
  for (const auto& point : summary.daily) {
    costByDay[calendar.startOfDay(point.day)] += point.costUSD;
    Totals& totals = dailyTotals[point.provider];
    totals.tokens = saturatingAdd(totals.tokens, point.tokens);
    totals.costUSD += point.costUSD;
  }
  std::map<ProviderID, const UsageSummary::Tool*> tools;
  for (const auto& tool : summary.tools) tools.try_emplace(tool.provider, &tool);

  const auto find = [](const auto& map, ProviderID id) {
    const auto it = map.find(id);
    return it == map.end() ? nullptr : &it->second;
  };

  Snapshot snapshot;
  snapshot.generatedAt = now;
  for (const ProviderID id : order) {
    const ProviderLimits* limit = find(limits, id);
    const UsageSummary::Tool* tool = tools.contains(id) ? tools.at(id) : nullptr;
    const Totals* totals = find(dailyTotals, id);
    if (!limit && !tool && (!totals || (totals->tokens <= 0 && !(totals->costUSD > 0)))) continue;

    Provider entry;
    entry.id = id;
    if (limit) {
      entry.plan = limit->plan;
      entry.windows = limit->windows;
      entry.credits = limit->credits;
      entry.status = limit->status;
      entry.readAt = limit->fetchedAt;
      if (const auto* found = find(forecasts, id)) entry.forecasts = *found;
    } else {
      entry.status = ProviderStatus::unavailable;
    }
    if (tool) {
      entry.tokens30d = tool->tokens;
      entry.cost30dUSD = tool->costUSD;
      entry.approximate = tool->approximate;
    } else if (totals) {
      entry.tokens30d = totals->tokens;
      entry.cost30dUSD = totals->costUSD;
    }
    snapshot.providers.push_back(std::move(entry));
  }

  const auto costOn = [&](Date dayStart) {
    const auto it = costByDay.find(dayStart);
    return it == costByDay.end() ? 0.0 : it->second;
  };
  const Date lastDay = calendar.startOfDay(summary.windowEnd);
  for (int k = 1 - static_cast<int>(seriesLength); k <= 0; ++k) {
    const std::optional<Date> day = calendar.addingDays(k, lastDay);
    snapshot.dailyCost30.push_back(day ? costOn(calendar.startOfDay(*day)) : 0.0);
  }
  snapshot.costTodayUSD = costOn(calendar.startOfDay(now));
  snapshot.cost30dUSD = summary.totalCostUSD;
  return snapshot;
}

const Snapshot& Snapshot::placeholder() {
  static const Snapshot snapshot = makePlaceholder();
  return snapshot;
}

Json Snapshot::Provider::toJson() const {
  Json windowsJson = Json::array();
  for (const auto& window : windows) windowsJson.push_back(window.toJson(kForm));
  Json json = {{"id", id.toJson()},
               {"windows", std::move(windowsJson)},
               {"status", brimlog::toJson(status)},
               {"tokens30d", tokens30d},
               {"cost30dUSD", json::finite(cost30dUSD, "cost30dUSD")},
               {"approximate", approximate}};
  if (plan) json["plan"] = *plan;
  if (credits) json["credits"] = credits->toJson();
  if (readAt) json["readAt"] = json::encodeDate(*readAt, kForm, "readAt");
  if (!forecasts.empty()) {
    Json list = Json::array();
    for (const auto& forecast : forecasts) list.push_back(forecast.toJson());
    json["forecasts"] = std::move(list);
  }
  return json;
}

std::optional<Date> Snapshot::Provider::readAtOf(const LimitWindow& window) const {
  if (const auto asOf = window.source.asOf()) return asOf;
  return readAt;
}

const LimitForecast* Snapshot::Provider::forecastOf(std::string_view windowId) const {
  for (const auto& forecast : forecasts) {
    if (forecast.window == windowId) return &forecast;
  }
  return nullptr;
}

Snapshot::Provider Snapshot::Provider::fromJson(const Json& json) {
  Provider provider;
  provider.id = ProviderID::fromJson(json::require(json, "id"));
  provider.plan = json::optionalString(json, "plan");
  for (const Json& window : json::array(json::require(json, "windows"), "windows", maxWindows)) {
    provider.windows.push_back(LimitWindow::fromJson(window, kForm));
  }
  if (const Json* credits = json::optional(json, "credits")) {
    provider.credits = Credits::fromJson(*credits);
  }
  provider.status = providerStatusFromJson(json::require(json, "status"));
  provider.tokens30d = json::integer(json::require(json, "tokens30d"), "tokens30d");
  provider.cost30dUSD = json::number(json::require(json, "cost30dUSD"), "cost30dUSD");
  provider.approximate = json::boolean(json::require(json, "approximate"), "approximate");
  if (const Json* readAt = json::optional(json, "readAt")) {
    provider.readAt = json::decodeDate(*readAt, kForm, "readAt");
  }
  if (const Json* list = json::optional(json, "forecasts")) {
    for (const Json& forecast : json::array(*list, "forecasts", maxWindows)) {
      provider.forecasts.push_back(LimitForecast::fromJson(forecast));
    }
  }
  return provider;
}

Json Snapshot::toJson() const {
  Json providersJson = Json::array();
  for (const auto& provider : providers) providersJson.push_back(provider.toJson());
  Json series = Json::array();
  for (const double cost : dailyCost30) series.push_back(json::finite(cost, "dailyCost30"));
  return {{"generatedAt", json::encodeDate(generatedAt, kForm, "generatedAt")},
          {"providers", std::move(providersJson)},
          {"costTodayUSD", json::finite(costTodayUSD, "costTodayUSD")},
          {"cost30dUSD", json::finite(cost30dUSD, "cost30dUSD")},
          {"dailyCost30", std::move(series)}};
}

Snapshot Snapshot::fromJson(const Json& json) {
  Snapshot snapshot;
  snapshot.generatedAt = json::decodeDate(json::require(json, "generatedAt"), kForm, "generatedAt");
  for (const Json& provider :
       json::array(json::require(json, "providers"), "providers", maxProviders)) {
    snapshot.providers.push_back(Provider::fromJson(provider));
  }
  snapshot.costTodayUSD = json::number(json::require(json, "costTodayUSD"), "costTodayUSD");
  snapshot.cost30dUSD = json::number(json::require(json, "cost30dUSD"), "cost30dUSD");
  for (const Json& cost :
       json::array(json::require(json, "dailyCost30"), "dailyCost30", seriesLength)) {
    snapshot.dailyCost30.push_back(json::number(cost, "dailyCost30"));
  }
  return snapshot;
}

}  // namespace brimlog
