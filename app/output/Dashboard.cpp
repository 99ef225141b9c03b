#include "output/Dashboard.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "display/LimitBarModel.hpp"
#include "display/MeterFormat.hpp"
#include "display/WidgetDisplay.hpp"
#include "output/ColorMarkup.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kReset = ColorMarkup::Ansi::reset;
constexpr std::string_view kDim = ColorMarkup::Ansi::dim;
constexpr std::string_view kBold = ColorMarkup::Ansi::bold;
constexpr std::string_view kWarn = ColorMarkup::Ansi::yellow;

// Columns a text takes: every code point is one column here (no wide or combining characters
// are drawn), and escape sequences take none.
size_t columns(std::string_view text) {
  size_t count = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\x1b') {
      while (i < text.size() && text[i] != 'm') ++i;
      continue;
    }
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++count;
  }
  return count;
}

// `left` and `right` on one line of `width` columns, at least two spaces apart.
std::string spread(const std::string& left, const std::string& right, int width) {
  const size_t used = columns(left) + columns(right);
  const size_t gap = used + 2 <= static_cast<size_t>(width) ? width - used : 2;
  return left + std::string(gap, ' ') + right + "\n";
}

std::string accentOf(ProviderID provider) {
  return ColorMarkup{ColorMarkup::Kind::ansi}.accent(provider);
}

}  // namespace

std::string Dashboard::sparkline(const std::vector<double>& values) {
  static constexpr std::string_view kLevels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  double top = 0;
  for (double value : values) top = std::max(top, value);
  std::string line;
  for (double value : values) {
    const double share = top > 0 && value > 0 ? value / top : 0;
    line += kLevels[std::clamp(static_cast<int>(std::ceil(share * 8)) - 1, 0, 7)];
  }
  return line;
}

std::string Dashboard::windows(const Snapshot::Provider& provider, Date now) const {
  const int fullWidth = std::max(width, 40);
  const std::string paint = color ? accentOf(provider.id) : "";
  const std::string_view reset = color ? kReset : "";
  // Where the width is short, the windows closest to running out come first and alone.
  const std::vector<LimitWindow> shown =
      fullWidth < 60 ? WidgetDisplay::tightestWindows(provider.windows, now, 2) : provider.windows;
  size_t labelWidth = 8;
  for (const LimitWindow& window : shown) labelWidth = std::max(labelWidth, columns(window.label));
  const int barWidth = std::clamp(fullWidth - static_cast<int>(labelWidth) - 44, 10, 40);

  std::string out;
  for (const LimitWindow& window : shown) {
    const LimitBarModel bar{window, now};
    const auto filled = static_cast<int>(std::lround(bar.leftFraction * barWidth));
    // The mark stands where the share left would be on pace: at the share of time left.
    const int mark =
        bar.timeLeftFraction
            ? std::clamp(static_cast<int>(std::lround(*bar.timeLeftFraction * barWidth)), 0,
                         barWidth - 1)
            : -1;
    std::string cells;
    std::string current;  // the colour in force, so escapes are written only where it changes
    for (int i = 0; i < barWidth; ++i) {
      const bool full = i < filled;
      if (color) {
        const std::string want = i == mark ? "" : full ? paint : std::string(kDim);
        if (want != current) {
          cells.append(kReset).append(want);
          current = want;
        }
      }
      cells += i == mark ? "│" : full ? "█" : "░";
    }
    if (!current.empty()) cells.append(kReset);
    std::string line = fmt::format("  {:<{}}  {}  {:>4} left", window.label, labelWidth, cells,
                                   bar.percentLeftText);
    if (window.source.isStale()) line += "~";
    const bool narrow = fullWidth < 60;  // room for the countdown alone
    if (bar.resetText) {
      line += narrow                    ? "  " + *bar.resetText
              : *bar.resetText == "now" ? "  resets now"
                                        : "  resets in " + *bar.resetText;
    }
    if (const std::string pace{ColorMarkup::paceText(bar.pace)};
        !narrow && !pace.empty() && bar.pace != Pace::onPace) {
      line += "  ";
      line +=
          color && bar.pace == Pace::over ? std::string(kWarn) + pace + std::string(reset) : pace;
    }
    out += line + "\n";
  }
  if (provider.windows.empty()) {
    out += fmt::format("  {}{}{}\n", color ? kDim : "",
                       WidgetDisplay::noLimitsNote(provider.status), reset);
  }
  if (provider.credits) {
    const Credits& credits = *provider.credits;
    const std::string amount = credits.unlimited    ? "unlimited"
                               : credits.balanceUSD ? MeterFormat::usd(credits.balanceUSD) + " left"
                                                    : "";
    out += fmt::format("  {:<{}}  {}\n", credits.label, labelWidth, amount);
  }
  return out;
}

std::string Dashboard::render(const Snapshot& snapshot, Date now, const Calendar& calendar) const {
  const int fullWidth = std::max(width, 40);
  const std::string_view reset = color ? kReset : "";
  bool approximate = false;
  for (const auto& provider : snapshot.providers) approximate = approximate || provider.approximate;
  const std::string mark = approximate ? "~" : "";

  std::string out = spread(fmt::format("{}Brimlog{}", color ? kBold : "", reset),
                           fmt::format("today {}{} · 30 days {}{} at API prices", mark,
                                       MeterFormat::usd(snapshot.costTodayUSD), mark,
                                       MeterFormat::usd(snapshot.cost30dUSD)),
                           fullWidth);
  if (const auto stale = WidgetDisplay::staleText(snapshot.generatedAt, now)) {
    out += fmt::format("{}{} (at {}); run brimlog sync for fresh figures{}\n", color ? kWarn : "",
                       *stale, calendar.dayKey(snapshot.generatedAt), reset);
  }
  if (snapshot.providers.empty()) {
    out += "\nNo usage or limits yet: the tools' logs hold no replies in the last 30 days.\n";
  }
  for (const Snapshot::Provider& provider : snapshot.providers) {
    std::string name =
        fmt::format("{}{}{}", color ? accentOf(provider.id) : "", provider.id.displayName(), reset);
    if (provider.plan) name += " · " + *provider.plan;
    if (provider.status != ProviderStatus::ok && !provider.windows.empty()) {
      name += fmt::format(" · {}", WidgetDisplay::noLimitsNote(provider.status));
    }
    out += "\n";
    out += spread(name,
                  fmt::format("30 days {}{}", provider.approximate ? "~" : "",
                              MeterFormat::usd(provider.cost30dUSD)),
                  fullWidth);
    out += windows(provider, now);
  }
  if (!snapshot.dailyCost30.empty()) {
    const double top = *std::max_element(snapshot.dailyCost30.begin(), snapshot.dailyCost30.end());
    out += fmt::format("\nLast 30 days  {}{}{}  top day {}\n", color ? kDim : "",
                       sparkline(snapshot.dailyCost30), reset, MeterFormat::usd(top));
  }
  if (approximate)
    out += "~ includes estimated costs (related models' prices or the tools' own).\n";
  return out;
}

}  // namespace brimlog
