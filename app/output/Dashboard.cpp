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

// `line` cut to `width` columns, ending in "…" where it was cut; a colour in force is reset.
std::string fitted(const std::string& line, size_t width) {
  if (columns(line) <= width) return line;
  std::string out;
  size_t used = 0;
  bool painted = false;
  for (size_t i = 0; i < line.size();) {
    if (line[i] == '\x1b') {
      const size_t end = std::min(line.find('m', i), line.size() - 1) + 1;
      out.append(line, i, end - i);
      painted = line.compare(i, end - i, kReset) != 0;
      i = end;
      continue;
    }
    size_t next = i + 1;
    while (next < line.size() && (static_cast<unsigned char>(line[next]) & 0xC0) == 0x80) ++next;
    if (used + 1 == width) break;
    out.append(line, i, next - i);
    ++used;
    i = next;
  }
  out += "…";
  if (painted) out.append(kReset);
  return out;
}

// Every line of `text` fitted to `width` columns: a terminal never wraps one.
std::string fittedLines(const std::string& text, size_t width) {
  std::string out;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    out += fitted(text.substr(start, end - start), width) + "\n";
    start = end + 1;
  }
  return out;
}

// A sentence broken between words into lines of at most `width` columns, each in `paint` when
// one is given.
std::string wrapped(std::string_view sentence, size_t width, std::string_view paint = "") {
  std::string out, line;
  const auto finish = [&] {
    if (paint.empty()) {
      out.append(line);
    } else {
      out.append(paint).append(line).append(kReset);
    }
    out += '\n';
    line.clear();
  };
  for (size_t start = 0; start < sentence.size();) {
    const size_t end = std::min(sentence.find(' ', start), sentence.size());
    const std::string_view word = sentence.substr(start, end - start);
    if (!line.empty() && columns(line) + 1 + columns(word) > width) finish();
    if (!line.empty()) line += ' ';
    line.append(word);
    start = end + 1;
  }
  finish();
  return out;
}

// `left` and `right` on one line of `width` columns, at least two spaces apart; a `left` too
// long for both gives way.
std::string spread(const std::string& left, const std::string& right, int width) {
  const size_t room = static_cast<size_t>(width);
  const size_t rightColumns = columns(right);
  const std::string shown = columns(left) + rightColumns + 2 <= room || rightColumns + 3 > room
                                ? left
                                : fitted(left, room - rightColumns - 2);
  const size_t used = columns(shown) + rightColumns;
  const size_t gap = used + 2 <= room ? room - used : 2;
  return shown + std::string(gap, ' ') + right + "\n";
}

// The block of a share used, from "▁" (nothing) to "█" (all of the quota).
std::string_view usedLevel(double used) {
  static constexpr std::string_view kLevels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  return kLevels[std::clamp(static_cast<int>(std::ceil(used * 8)) - 1, 0, 7)];
}

std::string accentOf(ProviderID provider) {
  return ColorMarkup{ColorMarkup::Kind::ansi}.accent(provider);
}

}  // namespace

std::string Dashboard::sparkline(const std::vector<double>& values) {
  double top = 0;
  for (double value : values) top = std::max(top, value);
  std::string line;
  for (double value : values) line += usedLevel(top > 0 && value > 0 ? value / top : 0);
  return line;
}

std::string Dashboard::periodSparkline(const LimitForecast& forecast, const LimitWindow& window,
                                       Date now, int width) {
  const std::optional<Date> start = LimitForecast::periodStart(window);
  if (!start) return {};
  // A column per slice of the period; each shows the latest share read by the slice's end (none
  // read yet: nothing used since the period began), and the slices still to come stay blank.
  const double length = (*window.resetsAt - *start).count();
  const std::vector<LimitForecast::Point>& points = forecast.history;
  std::string line;
  size_t next = 0;
  double used = 0;
  for (int i = 0; i < width; ++i) {
    if (*start + Seconds{length * i / width} > now) break;
    const Date end = *start + Seconds{length * (i + 1) / width};
    for (; next < points.size() && points[next].at < end; ++next) used = points[next].used;
    line += usedLevel(used);
  }
  return line;
}

std::string Dashboard::windows(const Snapshot::Provider& provider, Date now,
                               const Calendar& calendar) const {
  const int fullWidth = std::max(width, 40);
  const std::string accent = color ? accentOf(provider.id) : "";
  const std::string_view reset = color ? kReset : "";
  const ColorMarkup markup{color ? ColorMarkup::Kind::ansi : ColorMarkup::Kind::none};
  // Where the width is short, the windows closest to running out come first and alone.
  const bool narrow = fullWidth < 60;  // room for the countdown alone
  const std::vector<LimitWindow> shown =
      narrow ? WidgetDisplay::tightestWindows(provider.windows, now, 2) : provider.windows;
  size_t labelWidth = 8;
  for (const LimitWindow& window : shown) labelWidth = std::max(labelWidth, columns(window.label));
  const int barWidth = std::clamp(fullWidth - static_cast<int>(labelWidth) - 44, 10, 40);
  // The lines under a bar start where the bar does.
  const std::string under = std::string(labelWidth + 4, ' ');
  const auto dimmed = [&](const std::string& text) {
    return color ? std::string(kDim) + text + std::string(kReset) : text;
  };

  std::string out;
  for (const LimitWindow& window : shown) {
    const LimitBarModel bar{window, now};
    // A window close to running out is drawn in the warning colours instead of the accent.
    const std::string level = bar.level == LimitLevel::critical  ? markup.critical()
                              : bar.level == LimitLevel::warning ? markup.warning()
                                                                 : std::string();
    const std::string paint = level.empty() ? accent : level;
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
    std::string line =
        fmt::format("  {:<{}}  {}  {}", window.label, labelWidth, cells,
                    markup.paint(fmt::format("{:>4} left", bar.percentLeftText), level));
    if (window.source.isStale()) line += "~";
    if (bar.resetText) {
      // A passed reset says so itself ("reset 20 h ago").
      line += *bar.resetText == "now" && !narrow ? "  resets now"
              : narrow || window.isReset(now)    ? "  " + *bar.resetText
                                                 : "  resets in " + *bar.resetText;
    }
    // The pace is the first to go when the line would not fit.
    if (const std::string pace{ColorMarkup::paceText(bar.pace)};
        !narrow && !pace.empty() && bar.pace != Pace::onPace &&
        columns(line) + 2 + columns(pace) <= static_cast<size_t>(fullWidth)) {
      line += "  ";
      line +=
          color && bar.pace == Pace::over ? std::string(kWarn) + pace + std::string(reset) : pace;
    }
    out += line + "\n";
    // Under the bar: how old figures read a while ago are, and the forecast.
    if (const std::optional<Date> readAt = provider.readAtOf(window)) {
      if (const auto age = LimitBarModel::ageText(*readAt, now)) out += under + dimmed(*age) + "\n";
    }
    const LimitForecast* forecast = provider.forecastOf(window.id);
    if (forecast != nullptr) {
      if (const auto text = LimitBarModel::forecastText(*forecast, window, now, calendar)) {
        out += under + dimmed(*text) + "\n";
      }
    }
    // The weekly window's use so far, over its week.
    if (forecast != nullptr && window.id == "weekly" && !narrow && !window.isReset(now) &&
        !forecast->history.empty()) {
      out += under + dimmed(periodSparkline(*forecast, window, now, barWidth)) +
             "  this week's use so far\n";
    }
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
  return fittedLines(out, static_cast<size_t>(fullWidth));
}

std::string Dashboard::render(const Snapshot& snapshot, Date now, const Calendar& calendar) const {
  const int fullWidth = std::max(width, 40);
  const auto room = static_cast<size_t>(fullWidth);
  const std::string_view reset = color ? kReset : "";
  bool approximate = false;
  for (const auto& provider : snapshot.providers) approximate = approximate || provider.approximate;
  const std::string mark = approximate ? "~" : "";

  const std::string title = fmt::format("{}Brimlog{}", color ? kBold : "", reset);
  const std::string costs =
      fmt::format("today {}{} · 30 days {}{}", mark, MeterFormat::usd(snapshot.costTodayUSD), mark,
                  MeterFormat::usd(snapshot.cost30dUSD));
  // "at API prices" is the first to go where the width is short.
  const std::string priced = costs + " at API prices";
  std::string out =
      spread(title, columns(title) + columns(priced) + 2 <= room ? priced : costs, fullWidth);
  if (const auto stale = WidgetDisplay::staleText(snapshot.generatedAt, now)) {
    out += wrapped(fmt::format("{} (at {}); run brimlog sync for fresh figures", *stale,
                               calendar.dayKey(snapshot.generatedAt)),
                   room, color ? kWarn : "");
  }
  if (snapshot.providers.empty()) {
    out += '\n';
    out += wrapped("No usage or limits yet: the tools' logs hold no replies in the last 30 days.",
                   room);
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
    out += windows(provider, now, calendar);
  }
  if (!snapshot.dailyCost30.empty()) {
    // The sparkline takes the room there is, the latest days first: a day to a column.
    const std::string label = "Last {} days  ";
    std::vector<double> days = snapshot.dailyCost30;
    for (;;) {
      const double top = *std::max_element(days.begin(), days.end());
      const std::string topDay = "  top day " + MeterFormat::usd(top);
      const size_t fixed = columns(fmt::format(fmt::runtime(label), days.size())) + columns(topDay);
      if (days.size() == 1 || fixed + days.size() <= room) {
        out += fmt::format("\n{}{}{}{}{}\n", fmt::format(fmt::runtime(label), days.size()),
                           color ? kDim : "", sparkline(days), reset, topDay);
        break;
      }
      days.erase(days.begin(),
                 days.end() - static_cast<std::ptrdiff_t>(std::max(room, fixed + 1) - fixed));
    }
  }
  if (approximate) {
    out += wrapped("~ includes estimated costs (related models' prices or the tools' own).", room);
  }
  return fittedLines(out, room);
}

}  // namespace brimlog
