#include "output/StatusLine.hpp"

#include <date/date.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "display/LimitBarModel.hpp"
#include "display/MeterFormat.hpp"
#include "display/WidgetDisplay.hpp"
#include "output/ColorMarkup.hpp"
#include "platform/Json.hpp"
#include "platform/Markup.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kSeparator = " · ";

LimitLevel levelOf(const LimitWindow& window, Date now) {
  return limitLevelOf(window.effectiveUsedFraction(now));
}

struct Shown {
  ProviderID provider;
  LimitWindow window;
  const LimitForecast* forecast = nullptr;
};

// The tightest window of `only`, or of every provider, ranked as the widgets rank a row's
// windows; ties go to the provider listed first.
std::optional<Shown> tightest(const Snapshot& snapshot, Date now, std::optional<ProviderID> only) {
  std::vector<LimitWindow> windows;
  std::vector<const Snapshot::Provider*> owners;
  for (const Snapshot::Provider& provider : snapshot.providers) {
    if (only && provider.id != *only) continue;
    for (const LimitWindow& window : provider.windows) {
      windows.push_back(window);
      owners.push_back(&provider);
    }
  }
  const std::vector<LimitWindow> picked = WidgetDisplay::tightestWindows(windows, now, 1);
  if (picked.empty()) return std::nullopt;
  // Of equal windows the ranking keeps the first, so the first equal one is the one picked.
  const auto index = std::find(windows.begin(), windows.end(), picked.front()) - windows.begin();
  const Snapshot::Provider& owner = *owners[static_cast<size_t>(index)];
  return Shown{owner.id, picked.front(), owner.forecastOf(picked.front().id)};
}

// "runs out 14:10" when the window's forecast has it running out before its reset and after
// `now`, the weekday before the time when that is not today.
std::optional<std::string> runsOutText(const LimitWindow& window, const LimitForecast* forecast,
                                       Date now, const Calendar& calendar) {
  if (forecast == nullptr || !forecast->runsOutAt || !window.resetsAt || window.isReset(now) ||
      window.usedFraction >= 1 || *forecast->runsOutAt <= now ||
      *forecast->runsOutAt >= *window.resetsAt) {
    return std::nullopt;
  }
  const Date when = *forecast->runsOutAt;
  std::string text = "runs out ";
  if (const CalendarDay day = calendar.day(when); day != calendar.day(now)) {
    static constexpr std::string_view kWeekdays[] = {"Sun", "Mon", "Tue", "Wed",
                                                     "Thu", "Fri", "Sat"};
    const date::weekday weekday{date::sys_days{date::year{day.year} / day.month / day.day}};
    text += fmt::format("{} ", kWeekdays[weekday.c_encoding()]);
  }
  const int minute = calendar.minuteOfDay(when);
  return text + fmt::format("{:02}:{:02}", minute / 60, minute % 60);
}

// "Claude Session 58% left, over pace · 3h 12m · runs out 14:10".
std::string windowText(const ColorMarkup& markup, ProviderID provider, const LimitWindow& window,
                       const LimitForecast* forecast, Date now, const Calendar& calendar) {
  const LimitBarModel bar{window, now};
  std::string text = markup.paint(fmt::format("{} {}", provider.displayName(), window.label),
                                  markup.accent(provider));
  const LimitLevel level = levelOf(window, now);
  text += " ";
  text +=
      markup.paint(bar.percentLeftText + " left", level == LimitLevel::critical  ? markup.critical()
                                                  : level == LimitLevel::warning ? markup.warning()
                                                                                 : std::string());
  if (bar.pace == Pace::over || bar.pace == Pace::under) {
    text += ", ";
    text += markup.paint(ColorMarkup::paceText(bar.pace),
                         bar.pace == Pace::over ? markup.warning() : std::string());
  }
  if (bar.resetText) {
    text += kSeparator;
    text += *bar.resetText == "now" ? "resets now" : *bar.resetText;
  }
  if (const auto runsOut = runsOutText(window, forecast, now, calendar)) {
    text += kSeparator;
    text += markup.paint(*runsOut, markup.warning());
  }
  return text;
}

bool anyApproximate(const Snapshot& snapshot) {
  return std::any_of(snapshot.providers.begin(), snapshot.providers.end(),
                     [](const Snapshot::Provider& provider) { return provider.approximate; });
}

// The line's parts for a snapshot, in the order shown.
std::vector<std::string> snapshotParts(const ColorMarkup& markup, const Snapshot& snapshot,
                                       Date now, std::optional<ProviderID> only,
                                       const Calendar& calendar) {
  std::vector<std::string> parts;
  if (const std::optional<Shown> shown = tightest(snapshot, now, only)) {
    parts.push_back(
        windowText(markup, shown->provider, shown->window, shown->forecast, now, calendar));
  } else if (only) {
    ProviderStatus status = ProviderStatus::unavailable;
    for (const Snapshot::Provider& provider : snapshot.providers) {
      if (provider.id == *only) status = provider.status;
    }
    parts.push_back(markup.paint(only->displayName(), markup.accent(*only)) + " " +
                    std::string(WidgetDisplay::noLimitsNote(status)));
  }
  parts.push_back(fmt::format("today {}{}", anyApproximate(snapshot) ? "~" : "",
                              MeterFormat::usd(snapshot.costTodayUSD)));
  if (const auto stale = WidgetDisplay::staleText(snapshot.generatedAt, now)) {
    parts.push_back(markup.paint(*stale, markup.warning()));
  }
  return parts;
}

std::string joined(const std::vector<std::string>& parts) {
  std::string line;
  for (const std::string& part : parts) {
    if (!line.empty()) line += kSeparator;
    line += part;
  }
  return line;
}

std::string waybarObject(const std::optional<Snapshot>& snapshot, Date now,
                         std::optional<ProviderID> only, const Calendar& calendar) {
  const ColorMarkup plain{ColorMarkup::Kind::none};
  if (!snapshot) {
    return Json{{"text", Markup::escape(StatusLine::noData)}, {"class", "stale"}}.dump();
  }
  std::string tooltip;
  for (const Snapshot::Provider& provider : snapshot->providers) {
    for (const LimitWindow& window : provider.windows) {
      tooltip +=
          windowText(plain, provider.id, window, provider.forecastOf(window.id), now, calendar) +
          "\n";
    }
    if (provider.windows.empty()) {
      tooltip += fmt::format("{} {}\n", provider.id.displayName(),
                             WidgetDisplay::noLimitsNote(provider.status));
    }
  }
  tooltip += fmt::format("30 days {}{}", anyApproximate(*snapshot) ? "~" : "",
                         MeterFormat::usd(snapshot->cost30dUSD));
  if (const auto stale = WidgetDisplay::staleText(snapshot->generatedAt, now)) {
    tooltip += "\n" + *stale;
  }

  Json object = {
      {"text", Markup::escape(joined(snapshotParts(plain, *snapshot, now, only, calendar)))},
      {"tooltip", Markup::escape(tooltip)}};
  const std::optional<Shown> shown = tightest(*snapshot, now, only);
  std::string_view cssClass = "ok";
  if (WidgetDisplay::isStale(snapshot->generatedAt, now)) {
    cssClass = "stale";
  } else if (shown) {
    const LimitLevel level = levelOf(shown->window, now);
    cssClass = level == LimitLevel::critical  ? "critical"
               : level == LimitLevel::warning ? "warning"
                                              : "ok";
  }
  object["class"] = cssClass;
  if (shown) object["percentage"] = std::lround(shown->window.effectiveUsedFraction(now) * 100);
  return object.dump();
}

// The snapshot with Claude's windows as Claude Code just reported them: fresher than any the
// snapshot holds, whatever their age there.
Snapshot withClaudeLimits(Snapshot snapshot, const std::vector<LimitWindow>& limits) {
  auto claude =
      std::find_if(snapshot.providers.begin(), snapshot.providers.end(),
                   [](const Snapshot::Provider& p) { return p.id == ProviderID::claude; });
  if (claude == snapshot.providers.end()) {
    claude = snapshot.providers.insert(snapshot.providers.begin(), Snapshot::Provider{});
    claude->id = ProviderID::claude;
  }
  claude->windows = limits;
  claude->status = ProviderStatus::ok;
  return snapshot;
}

}  // namespace

std::optional<StatusLine::Format> StatusLine::formatNamed(std::string_view name) {
  if (name == "plain") return Format::plain;
  if (name == "claude-code") return Format::claudeCode;
  if (name == "tmux") return Format::tmux;
  if (name == "waybar") return Format::waybar;
  if (name == "polybar") return Format::polybar;
  return std::nullopt;
}

std::string StatusLine::render(const std::optional<Snapshot>& snapshot, Date now,
                               const std::optional<ClaudeCodeStatus>& input) const {
  ColorMarkup::Kind kind = ColorMarkup::Kind::none;
  std::optional<ProviderID> only = provider;
  std::vector<std::string> parts;
  switch (format) {
    case Format::waybar:
      return waybarObject(snapshot, now, provider, calendar) + "\n";
    case Format::plain:
      break;
    case Format::tmux:
      kind = ColorMarkup::Kind::tmux;
      break;
    case Format::polybar:
      kind = ColorMarkup::Kind::polybar;
      break;
    case Format::claudeCode:
      kind = color ? ColorMarkup::Kind::ansi : ColorMarkup::Kind::none;
      if (!only) only = ProviderID::claude;
      if (input && input->modelName) parts.push_back(*input->modelName);
      if (input && input->sessionCostUSD) {
        parts.push_back("session " + MeterFormat::usd(input->sessionCostUSD));
      }
      break;
  }
  const ColorMarkup markup{kind};
  if (snapshot && format == Format::claudeCode && input && !input->limits.empty()) {
    for (std::string& part :
         snapshotParts(markup, withClaudeLimits(*snapshot, input->limits), now, only, calendar)) {
      parts.push_back(std::move(part));
    }
  } else if (snapshot) {
    for (std::string& part : snapshotParts(markup, *snapshot, now, only, calendar)) {
      parts.push_back(std::move(part));
    }
  } else {
    parts.emplace_back(noData);
  }
  return joined(parts) + "\n";
}

}  // namespace brimlog
