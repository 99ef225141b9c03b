#include "daemon/LimitAlerts.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "display/LimitBarModel.hpp"
#include "display/LimitLevel.hpp"
#include "display/MeterFormat.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/Json.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr double kHighLevel = kLimitWarningShare;
constexpr double kCriticalLevel = kLimitCriticalShare;
/// Reset times that differ by at most this much name the same period: rounding to the minute
/// puts a jitter of a few seconds around a half minute into two neighbouring minutes.
constexpr double kPeriodTolerance = 60.0;
/// A remembered period whose reset is this far in the past cannot come back, even for a week.
constexpr double kForgetAfter = 7 * 86'400.0;

std::optional<Date> periodOf(const LimitWindow& window) {
  if (!window.resetsAt) return std::nullopt;
  const double seconds = unixSeconds(*window.resetsAt);
  if (!std::isfinite(seconds)) return std::nullopt;
  return dateFromUnixSeconds(std::round(seconds / 60.0) * 60.0);
}

bool samePeriod(const std::optional<Date>& a, const std::optional<Date>& b) {
  if (!a || !b) return !a && !b;
  return std::abs(unixSeconds(*a) - unixSeconds(*b)) <= kPeriodTolerance;
}

bool isLater(const std::optional<Date>& period, const std::optional<Date>& than) {
  return period && than && unixSeconds(*period) - unixSeconds(*than) > kPeriodTolerance;
}

std::string_view stageName(int stage) {
  static constexpr std::string_view names[] = {"", "80", "95", "reset"};
  return names[stage];
}

LimitAlert makeAlert(ProviderID provider, const LimitWindow& window, LimitAlert::Kind kind,
                     double used, Date now) {
  LimitAlert alert{provider, window.id, kind, std::string(provider.displayName()) + ": ", ""};
  if (kind == LimitAlert::Kind::reset) {
    alert.summary += window.label + " has reset";
  } else {
    alert.summary += window.label + " at " + MeterFormat::share(used);
  }
  alert.body = MeterFormat::share(1.0 - used) + " left";
  if (window.resetsAt && !window.isReset(now)) {
    alert.body += ", resets in " + MeterFormat::countdown((*window.resetsAt - now).count());
  }
  return alert;
}

}  // namespace

LimitAlerts::LimitAlerts(std::filesystem::path stateFile, Calendar calendar)
    : stateFile_(std::move(stateFile)), calendar_(std::move(calendar)) {
  load();
}

std::vector<LimitAlert> LimitAlerts::update(ProviderID provider, const ProviderLimits& limits,
                                            Date now, std::span<const LimitForecast> forecasts) {
  std::vector<LimitAlert> alerts;
  bool changed = false;
  for (const LimitWindow& window : limits.windows) {
    if (window.source.isStale()) continue;
    const Key key{std::string(provider.rawValue()), window.id};
    const std::optional<Date> period = periodOf(window);
    const double used = window.effectiveUsedFraction(now);
    const auto found = entries_.find(key);
    const Entry before = found != entries_.end() ? found->second : Entry{};

    Entry after{period, Stage::none};
    std::optional<LimitAlert::Kind> kind;
    if (samePeriod(before.period, period)) {
      after = before;  // keeps the first reset time seen, so that jitter never moves the period
      if (before.stage == Stage::reached95 && window.isReset(now)) {
        kind = LimitAlert::Kind::reset;
        after.stage = Stage::resetSent;
      } else if (!period && used < kHighLevel) {
        after.stage = Stage::none;  // without a reset time, coming back down starts afresh
      }
    } else if (before.stage == Stage::reached95) {
      // A different period after a used-up one: it reset when the old reset time has passed or
      // the new one is later (services may drop the reset time of a window nobody uses yet).
      const bool oldOver =
          (before.period && *before.period <= now) || isLater(period, before.period);
      if (window.isReset(now) || (used < kHighLevel && oldOver)) {
        kind = LimitAlert::Kind::reset;
        if (window.isReset(now)) after.stage = Stage::resetSent;
      }
    }
    if (!kind) {
      const Stage level = used >= kCriticalLevel ? Stage::reached95
                          : used >= kHighLevel   ? Stage::reached80
                                                 : Stage::none;
      if (level > after.stage) {
        kind =
            level == Stage::reached95 ? LimitAlert::Kind::reached95 : LimitAlert::Kind::reached80;
        after.stage = level;
      }
    }
    if (kind) alerts.push_back(makeAlert(provider, window, *kind, used, now));

    const auto forecast =
        std::find_if(forecasts.begin(), forecasts.end(),
                     [&](const LimitForecast& f) { return f.window == window.id; });
    if (!after.forecastTold && forecast != forecasts.end() && forecast->runsOutAt) {
      if (const auto text = LimitBarModel::forecastText(*forecast, window, now, calendar_)) {
        alerts.push_back(
            {provider, window.id, LimitAlert::Kind::runsOutEarly,
             fmt::format("{}: {} runs out early", provider.displayName(), window.label), *text});
        after.forecastTold = true;
      }
    }

    if (after.stage == Stage::none && !after.forecastTold) {
      if (found != entries_.end()) {
        entries_.erase(found);
        changed = true;
      }
    } else if (found == entries_.end() || before.stage != after.stage ||
               before.period != after.period || before.forecastTold != after.forecastTold) {
      entries_[key] = after;
      changed = true;
    }
  }
  // Forget periods long over, so that windows of models no longer offered do not pile up.
  changed |= std::erase_if(entries_, [&](const auto& item) {
               const std::optional<Date>& period = item.second.period;
               return period && unixSeconds(now) - unixSeconds(*period) > kForgetAfter;
             }) > 0;
  if (changed) save();
  return alerts;
}

void LimitAlerts::load() {
  Json json;
  try {
    json = Json::parse(WholeFile::read(stateFile_, WholeFile::kSmallFileLimit).bytes);
  } catch (const std::exception&) {
    return;  // missing or damaged: nothing said yet
  }
  const auto windows = json.is_object() ? json.find("windows") : json.end();
  if (!json.is_object() || windows == json.end() || !windows->is_array()) return;
  for (const Json& item : *windows) {
    // Each entry on its own: a damaged one does not cost the others.
    if (!item.is_object()) continue;
    const auto text = [&](const char* key) -> std::optional<std::string> {
      const auto value = item.find(key);
      if (value == item.end() || !value->is_string()) return std::nullopt;
      return value->get<std::string>();
    };
    const std::optional<std::string> provider = text("provider");
    const std::optional<std::string> window = text("window");
    const std::optional<std::string> alerted = text("alerted");
    if (!provider || !ProviderID::fromRawValue(*provider) || !window || !alerted) continue;
    Entry entry;
    for (int stage = 1; stage <= 3; ++stage) {
      if (*alerted == stageName(stage)) entry.stage = static_cast<Stage>(stage);
    }
    const auto forecast = item.find("forecast");
    entry.forecastTold = forecast != item.end() && forecast->is_boolean() && forecast->get<bool>();
    if (entry.stage == Stage::none && !entry.forecastTold) continue;
    if (const std::optional<std::string> period = text("period")) {
      entry.period = parseISO8601(*period);
      if (!entry.period) continue;
    }
    entries_[{*provider, *window}] = entry;
  }
}

void LimitAlerts::save() {
  Json windows = Json::array();
  for (const auto& [key, entry] : entries_) {
    Json item = {{"provider", key.first},
                 {"window", key.second},
                 {"alerted", stageName(static_cast<int>(entry.stage))}};
    if (entry.period) item["period"] = formatISO8601(*entry.period);
    if (entry.forecastTold) item["forecast"] = true;
    windows.push_back(std::move(item));
  }
  const std::string text = json::dump(Json{{"windows", std::move(windows)}}) + "\n";

  try {
    AtomicFile::replace(stateFile_, text);
    saveError_.reset();
  } catch (const std::filesystem::filesystem_error& error) {
    saveError_ = error.what();
  }
}

}  // namespace brimlog
