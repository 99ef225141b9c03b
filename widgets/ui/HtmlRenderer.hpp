#pragma once

#include <string>
#include <string_view>

#include "model/Color.hpp"
#include "ui/View.hpp"

namespace brimlog::ui {

/// Turns a view tree into HTML: stacks become flex boxes, points CSS pixels, the semantic text
/// colours CSS variables that the page sets for light and dark (`HtmlPageAssets`), canvases inline
/// SVG whose shapes the page's script lays out at the size the canvas gets. Nothing refers outside
/// the output.
///
/// Views grow as in a declarative layout toolkit: a spacer, a full-width frame or a canvas lets its
/// stack take all the room offered along that axis, and views that can grow share the room
/// equally.
///
///     std::string html = HtmlRenderer::render(Text("58%").font(17, FontWeight::semibold));
///     // <span class="text" style="font-size:17px;font-weight:600">58%</span>
struct HtmlRenderer {
  static std::string render(const View& view);

  /// `text` with &, <, >, " and ' escaped, for element content and quoted attributes.
  static std::string escape(std::string_view text);

  /// A colour as CSS: "var(--primary)" for a semantic one, "rgb(…)" for sRGB.
  static std::string css(const Color& color);
};

}  // namespace brimlog::ui
