#include "display/LimitBarModel.hpp"

#include <date/date.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "display/MeterFormat.hpp"

namespace brimlog {
namespace {

// A reset this recent still reads as "now": readings and clocks are a few seconds apart.
constexpr double kJustReset = 60;

}  // namespace

LimitBarModel::LimitBarModel(const LimitWindow& window, Date now) {
  if (window.isReset(now)) {
    percentLeftText = "100%";
    const double since = (now - *window.resetsAt).count();
    resetText = since <= kJustReset ? "now" : "reset " + MeterFormat::age(since) + " ago";
    return;
  }
  leftFraction = 1 - window.usedFraction;
  level = limitLevelOf(window.usedFraction);
  // Adding 0 turns a rounded -0 into 0, which prints without a sign.
  percentLeftText = fmt::format("{:.0f}%", std::round(leftFraction * 100) + 0.0);
  if (!window.resetsAt) return;

  const double remaining = (*window.resetsAt - now).count();
  resetText = MeterFormat::countdown(remaining);
  if (!window.duration || !(*window.duration > 0)) return;

  timeLeftFraction = std::clamp(remaining / *window.duration, 0.0, 1.0);
  const double timeGone = 1 - *timeLeftFraction;
  const double used = window.usedFraction;
  if (used > timeGone + 0.05) {
    pace = Pace::over;
  } else if (used >= timeGone - 0.15) {
    pace = Pace::onPace;
  } else {
    pace = Pace::under;
  }
}

std::optional<std::string> LimitBarModel::ageText(Date readAt, Date now) {
  const double age = (now - readAt).count();
  if (!(age > freshFor)) return std::nullopt;
  return "as of " + MeterFormat::age(age) + " ago";
}

std::optional<std::string> LimitBarModel::forecastText(const LimitForecast& forecast,
                                                       const LimitWindow& window, Date now,
                                                       const Calendar& calendar) {
  if (window.isReset(now) || !window.resetsAt || window.usedFraction >= 1) return std::nullopt;
  if (!forecast.runsOutAt) {
    if (forecast.usedPerHour <= 0 && forecast.history.size() < 2) return std::nullopt;
    return "at this pace: lasts until the reset";
  }
  static constexpr std::string_view kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  const CalendarDay day = calendar.day(*forecast.runsOutAt);
  const date::weekday weekday{date::sys_days{date::year{day.year} / day.month / day.day}};
  const int minute = calendar.minuteOfDay(*forecast.runsOutAt);
  return fmt::format("at this pace: runs out {} {:02}:{:02}, {} before the reset",
                     kWeekdays[weekday.c_encoding()], minute / 60, minute % 60,
                     MeterFormat::age((*window.resetsAt - *forecast.runsOutAt).count()));
}

}  // namespace brimlog
