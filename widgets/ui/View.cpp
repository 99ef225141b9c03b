#include "ui/View.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

namespace brimlog::ui {

double ClampedLength::resolve(double side) const {
  double resolved = value.resolve(side);
  if (max) resolved = std::min(resolved, max->resolve(side));
  if (min) resolved = std::max(resolved, min->resolve(side));
  return resolved;
}

View View::font(double size, std::optional<FontWeight> weight) && {
  modifiers.font.size = size;
  if (weight) modifiers.font.weight = weight;
  return std::move(*this);
}
View View::monospacedDigits() && {
  modifiers.font.monospacedDigits = true;
  return std::move(*this);
}
View View::foreground(Color color) && {
  modifiers.foreground = color;
  return std::move(*this);
}
View View::lineLimit(int lines) && {
  modifiers.lineLimit = lines;
  return std::move(*this);
}
View View::minimumScale(double factor) && {
  modifiers.minimumScaleFactor = factor;
  return std::move(*this);
}
View View::opacity(double value) && {
  modifiers.opacity = value;
  return std::move(*this);
}
View View::frame(Frame value) && {
  modifiers.frame = value;
  return std::move(*this);
}
View View::layoutPriority(double value) && {
  modifiers.layoutPriority = value;
  return std::move(*this);
}
View View::accessibility(std::string label, bool combineChildren) && {
  modifiers.accessibilityLabel = std::move(label);
  modifiers.accessibilityCombined = combineChildren;
  return std::move(*this);
}
View View::role(std::string name) && {
  modifiers.role = std::move(name);
  return std::move(*this);
}

std::vector<std::string> View::texts() const {
  std::vector<std::string> all;
  if (kind == Kind::text) all.push_back(text);
  if (kind == Kind::timer) all.push_back(timerText((timerEnd - timerStart).count()));
  for (const View& child : children) {
    std::vector<std::string> more = child.texts();
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

namespace {
View stack(View::Kind kind, std::vector<View> children) {
  View view;
  view.kind = kind;
  view.children = std::move(children);
  return view;
}
}  // namespace

View VStack(HorizontalAlignment alignment, double spacing, std::vector<View> children) {
  View view = stack(View::Kind::vstack, std::move(children));
  view.horizontalAlignment = alignment;
  view.spacing = spacing;
  return view;
}

View HStack(VerticalAlignment alignment, double spacing, std::vector<View> children) {
  View view = stack(View::Kind::hstack, std::move(children));
  view.verticalAlignment = alignment;
  view.spacing = spacing;
  return view;
}

View ZStack(HorizontalAlignment alignment, std::vector<View> children) {
  View view = stack(View::Kind::zstack, std::move(children));
  view.horizontalAlignment = alignment;
  return view;
}

View Text(std::string text) {
  View view;
  view.kind = View::Kind::text;
  view.text = std::move(text);
  return view;
}

View TimerText(Date start, Date end) {
  View view;
  view.kind = View::Kind::timer;
  view.timerStart = start;
  view.timerEnd = end;
  return view;
}

View Spacer(double minLength) {
  View view;
  view.kind = View::Kind::spacer;
  view.minLength = minLength;
  return view;
}

View Divider() {
  View view;
  view.kind = View::Kind::divider;
  return view;
}

View Image(std::string svg) {
  View view;
  view.kind = View::Kind::image;
  view.text = std::move(svg);
  view.resizable = true;
  return view;
}

View Symbol(std::string_view name) {
  View view = Image(symbolSVG(name));
  view.resizable = false;
  return view;
}

View Canvas(std::vector<Shape> shapes) {
  View view;
  view.kind = View::Kind::canvas;
  view.shapes = std::move(shapes);
  return view;
}

View Button(std::string action, View label) {
  View view = stack(View::Kind::button, {std::move(label)});
  view.text = std::move(action);
  return view;
}

View Empty() { return View{}; }

const std::string& symbolSVG(std::string_view name) {
  // Our own simple drawings of the two symbols the widgets use, in the logos' style: a 24-unit
  // box, strokes in currentColor so they tint like text.
  static const std::map<std::string, std::string, std::less<>> symbols{
      {"gauge.with.dots.needle.67percent",
       R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24" fill="none" )"
       R"(stroke="currentColor" stroke-width="2" stroke-linecap="round">)"
       R"(<path d="M4.2 17.5A9 9 0 1 1 19.8 17.5"/><path d="M12 14L16.5 8.5"/>)"
       R"(<circle cx="12" cy="14" r="1.6" fill="currentColor" stroke="none"/>)"
       R"(<circle cx="6.5" cy="12" r="1" fill="currentColor" stroke="none"/>)"
       R"(<circle cx="8.5" cy="7.5" r="1" fill="currentColor" stroke="none"/>)"
       R"(<circle cx="12" cy="6" r="1" fill="currentColor" stroke="none"/></svg>)"},
      {"arrow.clockwise",
       R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 24 24" fill="none" )"
       R"(stroke="currentColor" stroke-width="2.4" stroke-linecap="round" )"
       R"(stroke-linejoin="round"><path d="M19.5 12A7.5 7.5 0 1 1 16.8 6.2"/>)"
       R"(<path d="M17.5 2.5V6.8H13.2"/></svg>)"},
  };
  static const std::string none;
  const auto found = symbols.find(name);
  return found == symbols.end() ? none : found->second;
}

std::string timerText(double seconds) {
  const auto whole = static_cast<long long>(std::max(0.0, std::ceil(seconds)));
  return fmt::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
}

}  // namespace brimlog::ui
