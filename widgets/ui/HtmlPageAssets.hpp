#pragma once

#include <string_view>

namespace brimlog::ui {

/// What a page must carry for `HtmlRenderer`'s output to draw: the style sheet (the colour
/// variables for light and dark, the system font, the stack and text classes) and the script
/// that lays canvases out at their real size, shrinks texts with a minimum scale and ticks the
/// timers every second.
struct HtmlPageAssets {
  static std::string_view styleSheet();
  static std::string_view script();
};

}  // namespace brimlog::ui
