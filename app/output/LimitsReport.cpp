#include "output/LimitsReport.hpp"

#include <fmt/format.h>

#include "display/WidgetDisplay.hpp"

namespace brimlog {
namespace {

std::string localTime(Date when, const Calendar& calendar) {
  const CalendarDay day = calendar.day(when);
  const double sinceMidnight = unixSeconds(when) - unixSeconds(calendar.startOfDay(when));
  const auto minutes = static_cast<int64_t>(sinceMidnight / 60);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", day.year, day.month, day.day, minutes / 60,
                     minutes % 60);
}

}  // namespace

std::string LimitsReport::render(const std::vector<std::pair<ProviderID, ProviderLimits>>& limits,
                                 const std::map<ProviderID, std::vector<LimitForecast>>& forecasts,
                                 const Dashboard& dashboard, Date now, const Calendar& calendar) {
  std::string text;
  bool stale = false;
  for (const auto& [provider, stored] : limits) {
    Snapshot::Provider entry{provider, stored.plan, stored.windows, stored.credits,   stored.status,
                             0,        0,           false,          stored.fetchedAt, {}};
    if (const auto found = forecasts.find(provider); found != forecasts.end()) {
      entry.forecasts = found->second;
    }
    std::string heading = std::string(provider.displayName());
    if (stored.plan) heading += " · " + *stored.plan;
    heading += fmt::format(" · {}", WidgetDisplay::statusText(stored.status));
    text +=
        fmt::format("{}{}  (asked {})\n{}", text.empty() ? "" : "\n", heading,
                    localTime(stored.fetchedAt, calendar), dashboard.windows(entry, now, calendar));
    for (const LimitWindow& window : stored.windows) stale = stale || window.source.isStale();
  }
  if (stale) text += "\n~ kept from an earlier answer: the last fetch failed.\n";
  return text;
}

Json LimitsReport::json(const std::vector<std::pair<ProviderID, ProviderLimits>>& limits,
                        const std::map<ProviderID, std::vector<LimitForecast>>& forecasts) {
  Json json = Json::object();
  for (const auto& [provider, stored] : limits) {
    Json entry = stored.toJson(DateForm::iso8601);
    const auto found = forecasts.find(provider);
    if (found != forecasts.end()) {
      for (Json& window : entry["windows"]) {
        for (const LimitForecast& forecast : found->second) {
          if (forecast.window != window["id"]) continue;
          // The chart's points are the snapshot's business; a script wants the figures.
          Json figures = forecast.toJson();
          figures.erase("window");
          figures.erase("history");
          window["forecast"] = std::move(figures);
        }
      }
    }
    json[std::string(provider.rawValue())] = std::move(entry);
  }
  return json;
}

}  // namespace brimlog
