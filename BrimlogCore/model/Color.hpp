#pragma once

#include <variant>

namespace brimlog {

/// A colour as the screens ask for it: either a fixed sRGB colour, or a semantic colour that each
/// renderer resolves to its own palette (a terminal's default foreground, a widget's text colour
/// in light or dark mode).
///
///     Color orange = Color::srgb(217 / 255.0, 119 / 255.0, 87 / 255.0);
///     Color text = Color::primaryText();
///     if (const Color::SRGB* rgb = std::get_if<Color::SRGB>(&orange.value)) ... rgb->red ...
struct Color {
  /// Components from 0 to 1.
  struct SRGB {
    double red = 0;
    double green = 0;
    double blue = 0;
    double opacity = 1;
    bool operator==(const SRGB&) const = default;
  };

  /// The colours of ordinary, subdued and faint text, whatever the renderer makes of them.
  enum class Semantic { primaryText, secondaryText, tertiaryText };

  std::variant<SRGB, Semantic> value;

  static constexpr Color srgb(double red, double green, double blue, double opacity = 1) {
    return Color{SRGB{red, green, blue, opacity}};
  }
  static constexpr Color primaryText() { return Color{Semantic::primaryText}; }
  static constexpr Color secondaryText() { return Color{Semantic::secondaryText}; }
  static constexpr Color tertiaryText() { return Color{Semantic::tertiaryText}; }

  bool operator==(const Color&) const = default;
};

}  // namespace brimlog
