#pragma once

#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/Color.hpp"
#include "platform/Date.hpp"

namespace brimlog::ui {

enum class HorizontalAlignment { leading, center, trailing };
enum class VerticalAlignment { top, center, bottom, firstTextBaseline };
enum class FontWeight { regular, medium, semibold };

inline constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The system font: a size in points, a weight, and digits of one width. What a view leaves
/// unset it takes from the nearest enclosing view that sets it, as text colour does.
struct Font {
  std::optional<double> size;
  std::optional<FontWeight> weight;
  bool monospacedDigits = false;
  bool operator==(const Font&) const = default;
};

/// A length along one side of the space a canvas is given: `fraction` of that side plus
/// `points`. The bar's fill is {0.6, 0} of the width; a line one point above the bottom edge is
/// {1, -1} of the height.
struct Length {
  double fraction = 0;
  double points = 0;
  double resolve(double side) const { return fraction * side + points; }
  bool operator==(const Length&) const = default;
};

/// A length kept between two others once resolved (`min` wins over `max` when they cross).
struct ClampedLength {
  Length value;
  std::optional<Length> min;
  std::optional<Length> max;
  double resolve(double side) const;
  bool operator==(const ClampedLength&) const = default;
};

/// One shape of a canvas: a rounded rectangle, or a path through points, open or closed.
struct Shape {
  enum class Kind { rectangle, path };
  Kind kind = Kind::rectangle;
  // A rectangle.
  ClampedLength x;
  Length y;
  Length width{1, 0};
  Length height{1, 0};
  double cornerRadius = 0;
  // A path.
  std::vector<std::pair<Length, Length>> points;
  bool closed = false;
  // How it is painted: a fill, or a stroke with round joins when `lineWidth` is above 0.
  Color color = Color::primaryText();
  double opacity = 1;
  double lineWidth = 0;
  // A stroke's dashes and gaps in points, in turn; empty for a solid line. With round caps a
  // dash of 0 is a dot.
  std::vector<double> dash;
  bool operator==(const Shape&) const = default;
};

/// Where a view sits in its parent and how big it is; every field is optional. `maxWidth` of
/// infinity takes all the width the parent offers.
struct Frame {
  std::optional<double> width;
  std::optional<double> height;
  std::optional<double> minHeight;
  std::optional<double> maxHeight;
  std::optional<double> maxWidth;
  HorizontalAlignment alignment = HorizontalAlignment::center;
  bool operator==(const Frame&) const = default;

  /// A fixed width, height or both, the content placed by `alignment`.
  static Frame size(std::optional<double> width, std::optional<double> height,
                    HorizontalAlignment alignment = HorizontalAlignment::center) {
    Frame frame;
    frame.width = width;
    frame.height = height;
    frame.alignment = alignment;
    return frame;
  }
  /// All the width the parent offers, and a fixed height when given.
  static Frame fullWidth(HorizontalAlignment alignment = HorizontalAlignment::center,
                         std::optional<double> height = std::nullopt) {
    Frame frame = size(std::nullopt, height, alignment);
    frame.maxWidth = kInfinity;
    return frame;
  }
  /// A height between `min` and `max`, as the space allows.
  static Frame heights(double min, double max) {
    Frame frame;
    frame.minHeight = min;
    frame.maxHeight = max;
    return frame;
  }
};

/// One node of a declarative view tree: a stack of children, a text, a timer text, a spacer, a
/// divider, an image, a canvas of shapes or a button, with the modifiers applied to it. Views are
/// built with the functions below and chained modifiers, and read like the layout they describe:
///
///     VStack(HorizontalAlignment::leading, 2, {
///         Text("Session").font(10).foreground(Color::secondaryText()).lineLimit(1),
///         Spacer(2),
///     }).opacity(0.6);
///
/// A renderer (see `HtmlRenderer`) turns the tree into output; tests read the tree itself.
struct View {
  enum class Kind {
    empty,
    vstack,
    hstack,
    zstack,
    text,
    timer,
    spacer,
    divider,
    image,
    canvas,
    button
  };
  Kind kind = Kind::empty;
  std::vector<View> children;

  // Stacks: how children line up across the stack's axis, and the gap between them.
  HorizontalAlignment horizontalAlignment = HorizontalAlignment::center;
  VerticalAlignment verticalAlignment = VerticalAlignment::center;
  double spacing = 0;

  // Text: its characters; an image: its SVG text; a button: the action it runs.
  std::string text;
  // A timer counts down to `timerEnd` from `timerStart`, updated every second by the renderer.
  Date timerStart{};
  Date timerEnd{};
  // A spacer's minimum length along its stack's axis.
  double minLength = 0;
  // An image that fills its frame; otherwise it is as big as its font, like a symbol.
  bool resizable = false;
  std::vector<Shape> shapes;

  /// What the modifiers set.
  struct Modifiers {
    Font font;
    std::optional<int> lineLimit;
    double minimumScaleFactor = 1;
    std::optional<Color> foreground;
    double opacity = 1;
    std::optional<Frame> frame;
    double layoutPriority = 0;
    std::string accessibilityLabel;
    bool accessibilityCombined = false;
    // A name the renderer passes on, for scripts and tests to find the view by ("stale-badge").
    std::string role;
    bool operator==(const Modifiers&) const = default;
  };
  Modifiers modifiers;

  bool operator==(const View&) const = default;

  View font(double size, std::optional<FontWeight> weight = std::nullopt) &&;
  View monospacedDigits() &&;
  View foreground(Color color) &&;
  View lineLimit(int lines) &&;
  View minimumScale(double factor) &&;
  View opacity(double value) &&;
  View frame(Frame value) &&;
  View layoutPriority(double value) &&;
  View accessibility(std::string label, bool combineChildren = false) &&;
  View role(std::string name) &&;

  /// Every text in the tree, depth first (timers as their first reading), for tests and
  /// accessibility.
  std::vector<std::string> texts() const;
  /// The first node, depth first, for which `match` holds.
  template <typename Match>
  const View* find(Match match) const {
    if (match(*this)) return this;
    for (const View& child : children) {
      if (const View* found = child.find(match)) return found;
    }
    return nullptr;
  }
};

View VStack(HorizontalAlignment alignment, double spacing, std::vector<View> children);
View HStack(VerticalAlignment alignment, double spacing, std::vector<View> children);
View ZStack(HorizontalAlignment alignment, std::vector<View> children);
View Text(std::string text);
/// A countdown from `start` to `end` that the renderer keeps current, showing hours.
View TimerText(Date start, Date end);
View Spacer(double minLength = 0);
View Divider();
/// An SVG image drawn as a template: every mark in the foreground colour.
View Image(std::string svg);
/// One of the renderer's built-in symbols by name ("arrow.clockwise"), drawn as an image.
View Symbol(std::string_view name);
View Canvas(std::vector<Shape> shapes);
View Button(std::string action, View label);
/// Nothing at all: takes no space.
View Empty();

/// The SVG text of a named symbol, or an empty string for a name without a drawing.
const std::string& symbolSVG(std::string_view name);

/// The countdown text of a timer with `seconds` left: "2:59:59", "0:05:00"; never negative.
std::string timerText(double seconds);

}  // namespace brimlog::ui
