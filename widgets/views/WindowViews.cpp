#include "views/WindowViews.hpp"

#include <algorithm>

#include "display/MeterFormat.hpp"
#include "display/WidgetDisplay.hpp"

namespace brimlog {

using namespace ui;

namespace {

// A window kept from an earlier answer is drawn faded; its texts stay as they are.
double windowOpacity(const LimitWindow& window) { return window.source.isStale() ? 0.6 : 1; }

}  // namespace

View MiniLimitBar::body() const {
  const double radius = height / 3;
  Shape track;
  track.cornerRadius = radius;
  track.color = accent;
  track.opacity = 0.14;
  Shape fill = track;
  fill.width = Length{std::clamp(bar.leftFraction, 0.0, 1.0), 0};
  fill.opacity = 0.6;
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

View CompactWindowView::body() const {
  const LimitBarModel bar{window, now};
  std::vector<View> line{
      Text(window.label).foreground(Color::secondaryText()).lineLimit(1).layoutPriority(-1),
      Text(bar.percentLeftText).font(10, FontWeight::semibold).monospacedDigits().layoutPriority(1),
      // The same words as the small widget's: what is left, never a bare share.
      Text("left").foreground(Color::secondaryText()).layoutPriority(1),
      Spacer(2),
  };
  if (window.resetsAt) {
    line.push_back(ResetCountdown{*window.resetsAt, now, live}
                       .body()
                       .foreground(Color::secondaryText())
                       .lineLimit(1)
                       .layoutPriority(1));
  }
  return VStack(HorizontalAlignment::leading, 2,
                {
                    HStack(VerticalAlignment::firstTextBaseline, 3, std::move(line)).font(10),
                    MiniLimitBar{bar, accent, 5}.body(),
                })
      .frame(Frame::fullWidth(HorizontalAlignment::leading))
      .opacity(windowOpacity(window))
      .accessibility("", true);
}

View SmallWindowView::body() const {
  const LimitBarModel bar{window, now};
  std::vector<View> heading{Text(window.label).lineLimit(1), Spacer()};
  if (window.resetsAt) {
    heading.push_back(ResetCountdown{*window.resetsAt, now, live}.body().lineLimit(1));
  }
  return VStack(HorizontalAlignment::leading, 3,
                {
                    HStack(VerticalAlignment::firstTextBaseline, 4, std::move(heading))
                        .font(10)
                        .foreground(Color::secondaryText()),
                    HStack(VerticalAlignment::firstTextBaseline, 3,
                           {
                               Text(bar.percentLeftText)
                                   .font(17, FontWeight::semibold)
                                   .monospacedDigits(),
                               Text("left").font(11).foreground(Color::secondaryText()),
                           }),
                    MiniLimitBar{bar, accent, 6}.body(),
                })
      .opacity(windowOpacity(window))
      .accessibility("", true);
}

}  // namespace brimlog
