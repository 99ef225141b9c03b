#include "views/WindowViews.hpp"

#include <algorithm>

#include "display/MeterFormat.hpp"
#include "display/WidgetDisplay.hpp"
#include "views/LevelColor.hpp"

namespace brimlog {

using namespace ui;

namespace {

// A window kept from an earlier answer is drawn faded; its texts stay as they are.
double windowOpacity(const LimitWindow& window) { return window.source.isStale() ? 0.6 : 1; }

// "as of 3 h ago" for figures read before the last refresh; nothing for fresh ones.
View ageNote(const std::optional<Date>& readAt, Date now, double size) {
  const std::optional<std::string> text =
      readAt ? LimitBarModel::ageText(*readAt, now) : std::nullopt;
  if (!text) return Empty();
  return Text(*text).font(size).foreground(Color::tertiaryText()).lineLimit(1).role("age-note");
}

// The share left, in the window's level colour from 80% used on.
View percentLeft(const LimitBarModel& bar) {
  View figure = Text(bar.percentLeftText).monospacedDigits();
  if (bar.level != LimitLevel::normal) {
    figure = std::move(figure).foreground(levelColor(bar.level, Color::primaryText()));
  }
  return figure;
}

}  // namespace

View MiniLimitBar::body() const {
  const double radius = height / 3;
  Shape track;
  track.cornerRadius = radius;
  track.color = accent;
  track.opacity = 0.14;
  Shape fill = track;
  fill.width = Length{std::clamp(bar.leftFraction, 0.0, 1.0), 0};
  // A warning colour is shown whole, so that a thin fill near the end still reads as one.
  fill.color = levelColor(bar.level, accent);
  fill.opacity = bar.level == LimitLevel::normal ? 0.6 : 0.9;
  std::vector<Shape> shapes{track, fill};
  if (bar.timeLeftFraction) {
    Shape marker;
    marker.x = ClampedLength{Length{*bar.timeLeftFraction, -0.75}, Length{0, 0}, Length{1, -1.5}};
    marker.width = Length{0, 1.5};
    marker.color = Color::primaryText();
    shapes.push_back(marker);
  }
  return Canvas(std::move(shapes)).frame(Frame::fullWidth(HorizontalAlignment::leading, height));
}

View ResetCountdown::body() const {
  const double remaining = (resetsAt - now).count();
  if (live && WidgetDisplay::usesLiveTimer(remaining)) {
    return TimerText(now, resetsAt).monospacedDigits().role("timer");
  }
  return Text(MeterFormat::countdown(remaining)).monospacedDigits();
}

View WindowResetText::body() const {
  if (!window.resetsAt) return Empty();
  if (!window.isReset(now)) return ResetCountdown{*window.resetsAt, now, live}.body();
  const LimitBarModel bar{window, now};
  return Text(bar.resetText.value_or("")).monospacedDigits().role("passed-reset");
}

View CompactWindowView::body() const {
  const LimitBarModel bar{window, now};
  std::vector<View> line{
      Text(window.label).foreground(Color::secondaryText()).lineLimit(1).layoutPriority(-1),
      percentLeft(bar).font(10, FontWeight::semibold).layoutPriority(1),
      // The same words as the small widget's: what is left, never a bare share.
      Text("left").foreground(Color::secondaryText()).layoutPriority(1),
      Spacer(2),
  };
  if (window.resetsAt) {
    line.push_back(WindowResetText{window, now, live}
                       .body()
                       .foreground(Color::secondaryText())
                       .lineLimit(1)
                       .layoutPriority(1));
  }
  return VStack(HorizontalAlignment::leading, 2,
                {
                    HStack(VerticalAlignment::firstTextBaseline, 3, std::move(line)).font(10),
                    MiniLimitBar{bar, accent, 5}.body(),
                    ageNote(readAt, now, 9),
                })
      .frame(Frame::fullWidth(HorizontalAlignment::leading))
      .opacity(windowOpacity(window))
      .accessibility("", true);
}

View SmallWindowView::body() const {
  const LimitBarModel bar{window, now};
  std::vector<View> heading{Text(window.label).lineLimit(1), Spacer()};
  if (window.resetsAt) heading.push_back(WindowResetText{window, now, live}.body().lineLimit(1));
  return VStack(HorizontalAlignment::leading, 3,
                {
                    HStack(VerticalAlignment::firstTextBaseline, 4, std::move(heading))
                        .font(10)
                        .foreground(Color::secondaryText()),
                    HStack(VerticalAlignment::firstTextBaseline, 3,
                           {
                               percentLeft(bar).font(17, FontWeight::semibold),
                               Text("left").font(11).foreground(Color::secondaryText()),
                               ageNote(readAt, now, 10),
                           }),
                    MiniLimitBar{bar, accent, 6}.body(),
                })
      .opacity(windowOpacity(window))
      .accessibility("", true);
}

}  // namespace brimlog
