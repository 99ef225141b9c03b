#include "ui/HtmlRenderer.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>

#include "platform/Json.hpp"
#include "platform/Markup.hpp"

namespace brimlog::ui {
namespace {

enum class Axis { none, horizontal, vertical };

// Which ways a view grows when its parent offers room.
struct Growth {
  bool horizontal = false;
  bool vertical = false;
};

Growth growth(const View& view, Axis parent) {
  Growth grows;
  switch (view.kind) {
    case View::Kind::spacer:
      grows.horizontal = parent == Axis::horizontal;
      grows.vertical = parent == Axis::vertical;
      break;
    case View::Kind::divider:
      grows.horizontal = parent != Axis::horizontal;
      grows.vertical = parent == Axis::horizontal;
      break;
    case View::Kind::canvas:
      grows = {true, true};
      break;
    case View::Kind::vstack:
    case View::Kind::hstack:
    case View::Kind::zstack: {
      const Axis own = view.kind == View::Kind::vstack   ? Axis::vertical
                       : view.kind == View::Kind::hstack ? Axis::horizontal
                                                         : Axis::none;
      for (const View& child : view.children) {
        const Growth inner = growth(child, own);
        grows.horizontal = grows.horizontal || inner.horizontal;
        grows.vertical = grows.vertical || inner.vertical;
      }
      break;
    }
    default:
      break;
  }
  if (const auto& frame = view.modifiers.frame) {
    if (frame->width) grows.horizontal = false;
    if (frame->height) grows.vertical = false;
    if (frame->maxWidth) grows.horizontal = true;
    if (frame->maxHeight) grows.vertical = true;
  }
  return grows;
}

std::string px(double points) {
  if (std::isinf(points)) return "none";
  return fmt::format("{:g}px", points);
}

std::string_view justify(HorizontalAlignment alignment) {
  switch (alignment) {
    case HorizontalAlignment::leading:
      return "flex-start";
    case HorizontalAlignment::center:
      return "center";
    case HorizontalAlignment::trailing:
      return "flex-end";
  }
  return "center";
}

std::string_view alignItems(VerticalAlignment alignment) {
  switch (alignment) {
    case VerticalAlignment::top:
      return "flex-start";
    case VerticalAlignment::center:
      return "center";
    case VerticalAlignment::bottom:
      return "flex-end";
    case VerticalAlignment::firstTextBaseline:
      return "baseline";
  }
  return "center";
}

Json lengthJson(const Length& length) { return Json::array({length.fraction, length.points}); }

// The shape's geometry as the page's script reads it: lengths as [fraction, points] pairs.
std::string shapeGeometry(const Shape& shape) {
  Json geometry = Json::object();
  if (shape.kind == Shape::Kind::rectangle) {
    geometry["x"] = lengthJson(shape.x.value);
    if (shape.x.min) geometry["xMin"] = lengthJson(*shape.x.min);
    if (shape.x.max) geometry["xMax"] = lengthJson(*shape.x.max);
    geometry["y"] = lengthJson(shape.y);
    geometry["width"] = lengthJson(shape.width);
    geometry["height"] = lengthJson(shape.height);
  } else {
    Json points = Json::array();
    for (const auto& [x, y] : shape.points)
      points.push_back(Json::array({lengthJson(x), lengthJson(y)}));
    geometry["points"] = std::move(points);
    geometry["closed"] = shape.closed;
  }
  return geometry.dump();
}

class Writer {
 public:
  std::string out;

  void view(const View& node, Axis parent) {
    const View::Modifiers& m = node.modifiers;
    if (m.frame) {
      // A frame is a box of its own around the view: it takes the given
      // size, or grows, and places the view inside by its alignment.
      const Frame& f = *m.frame;
      std::string style = placement(growth(node, parent), parent, m.layoutPriority);
      if (f.width) style += fmt::format("width:{};flex-shrink:0;", px(*f.width));
      if (f.height) style += fmt::format("height:{};", px(*f.height));
      if (f.minHeight) style += fmt::format("min-height:{};", px(*f.minHeight));
      if (f.maxHeight) style += fmt::format("max-height:{};", px(*f.maxHeight));
      style += fmt::format("justify-content:{};", justify(f.alignment));
      View inner = node;
      inner.modifiers.frame.reset();
      inner.modifiers.layoutPriority = 0;
      std::string classes = "frame";
      if (!m.role.empty()) classes += " " + m.role;
      inner.modifiers.role.clear();
      element("div", classes, style, "", [&] { view(inner, Axis::horizontal); });
      return;
    }
    if (node.kind == View::Kind::empty) return;
    std::string style = placement(growth(node, parent), parent, m.layoutPriority);
    if (m.font.size) style += fmt::format("font-size:{};", px(*m.font.size));
    if (m.font.weight) {
      style += m.font.weight == FontWeight::semibold ? "font-weight:600;"
               : m.font.weight == FontWeight::medium ? "font-weight:500;"
                                                     : "font-weight:400;";
    }
    if (m.font.monospacedDigits) style += "font-variant-numeric:tabular-nums;";
    if (m.foreground) style += "color:" + HtmlRenderer::css(*m.foreground) + ";";
    if (m.opacity != 1) style += fmt::format("opacity:{:g};", m.opacity);
    if (m.lineLimit) style += "white-space:nowrap;overflow:hidden;text-overflow:ellipsis;";

    std::string attributes;
    std::string classes(kindClass(node));
    if (!m.role.empty()) classes += " " + m.role;
    if (!m.accessibilityLabel.empty()) {
      attributes += " aria-label=\"" + HtmlRenderer::escape(m.accessibilityLabel) + "\"";
      if (node.kind != View::Kind::button) attributes += " role=\"group\"";
    } else if (node.kind == View::Kind::image) {
      attributes += " aria-hidden=\"true\"";
    }
    if (m.minimumScaleFactor < 1) {
      attributes += fmt::format(" data-min-scale=\"{:g}\"", m.minimumScaleFactor);
    }

    switch (node.kind) {
      case View::Kind::vstack:
        style += fmt::format("align-items:{};gap:{};", justify(node.horizontalAlignment),
                             px(node.spacing));
        element("div", classes, style, attributes, [&] { children(node, Axis::vertical); });
        break;
      case View::Kind::hstack:
        style += fmt::format("align-items:{};gap:{};", alignItems(node.verticalAlignment),
                             px(node.spacing));
        element("div", classes, style, attributes, [&] { children(node, Axis::horizontal); });
        break;
      case View::Kind::zstack:
        style += fmt::format("justify-items:{};", justify(node.horizontalAlignment));
        element("div", classes, style, attributes, [&] { children(node, Axis::none); });
        break;
      case View::Kind::text:
        element("span", classes, style, attributes,
                [&] { out += HtmlRenderer::escape(node.text); });
        break;
      case View::Kind::timer:
        attributes += fmt::format(" data-ends=\"{:.0f}\"", unixSeconds(node.timerEnd));
        element("span", classes, style, attributes,
                [&] { out += timerText((node.timerEnd - node.timerStart).count()); });
        break;
      case View::Kind::spacer:
        style += fmt::format("{}:{};", parent == Axis::horizontal ? "min-width" : "min-height",
                             px(node.minLength));
        element("div", classes, style, attributes, [] {});
        break;
      case View::Kind::divider:
        element("div", classes, style, attributes + " role=\"separator\"", [] {});
        break;
      case View::Kind::image:
        element("span", classes, style, attributes, [&] { out += node.text; });
        break;
      case View::Kind::canvas:
        element("div", classes, style, attributes, [&] { canvas(node); });
        break;
      case View::Kind::button:
        attributes += " type=\"button\" data-action=\"" + HtmlRenderer::escape(node.text) + "\"";
        element("button", classes, style, attributes, [&] { children(node, Axis::none); });
        break;
      case View::Kind::empty:
        break;
    }
  }

  // How a view sits in its parent stack: grows along the stack to share the room with the
  // others that grow, stretches across it, or keeps its size when its priority is raised.
  static std::string placement(Growth grows, Axis parent, double priority) {
    std::string style;
    if (parent == Axis::horizontal) {
      if (grows.horizontal) style += "flex:1 1 0;";
      if (grows.vertical) style += "align-self:stretch;";
      if (priority > 0) style += "flex-shrink:0;";
    } else if (parent == Axis::vertical) {
      if (grows.vertical) style += "flex:1 1 auto;";
      if (grows.horizontal) style += "align-self:stretch;";
    } else if (grows.horizontal || grows.vertical) {
      style += "width:100%;height:100%;";
    }
    return style;
  }

 private:
  static std::string_view kindClass(const View& node) {
    switch (node.kind) {
      case View::Kind::vstack:
        return "vstack";
      case View::Kind::hstack:
        return "hstack";
      case View::Kind::zstack:
        return "zstack";
      case View::Kind::text:
        return "text";
      case View::Kind::timer:
        return "text";
      case View::Kind::spacer:
        return "spacer";
      case View::Kind::divider:
        return "divider";
      case View::Kind::image:
        return node.resizable ? "image resizable" : "image";
      case View::Kind::canvas:
        return "canvas";
      case View::Kind::button:
        return "button";
      case View::Kind::empty:
        return "empty";
    }
    return "empty";
  }

  template <typename Content>
  void element(std::string_view tag, const std::string& classes, const std::string& style,
               const std::string& attributes, Content content) {
    out += fmt::format("<{} class=\"{}\"", tag, classes);
    if (!style.empty()) out += " style=\"" + HtmlRenderer::escape(style) + "\"";
    out += attributes;
    out += ">";
    content();
    out += fmt::format("</{}>", tag);
  }

  void children(const View& node, Axis axis) {
    for (const View& child : node.children) view(child, axis);
  }

  void canvas(const View& node) {
    out += "<svg xmlns=\"http://www.w3.org/2000/svg\" aria-hidden=\"true\">";
    for (const Shape& shape : node.shapes) {
      std::string paint = shape.lineWidth > 0
                              ? fmt::format(
                                    "fill:none;stroke:{};stroke-opacity:{:g};stroke-width:{:g}px;"
                                    "stroke-linejoin:round;stroke-linecap:round",
                                    HtmlRenderer::css(shape.color), shape.opacity, shape.lineWidth)
                              : fmt::format("fill:{};fill-opacity:{:g}",
                                            HtmlRenderer::css(shape.color), shape.opacity);
      if (shape.lineWidth > 0 && !shape.dash.empty()) {
        paint += fmt::format(";stroke-dasharray:{:g}", fmt::join(shape.dash, " "));
      }
      if (shape.kind == Shape::Kind::rectangle) {
        out += fmt::format("<rect rx=\"{0:g}\" ry=\"{0:g}\"", shape.cornerRadius);
      } else {
        out += "<path";
      }
      out += " style=\"" + HtmlRenderer::escape(paint) + "\" data-geometry=\"" +
             HtmlRenderer::escape(shapeGeometry(shape)) + "\"/>";
    }
    out += "</svg>";
  }
};

}  // namespace

std::string HtmlRenderer::render(const View& view) {
  Writer writer;
  // The outermost view is laid out like the content of a widget: in a column.
  writer.view(view, Axis::vertical);
  return std::move(writer.out);
}

std::string HtmlRenderer::escape(std::string_view text) { return Markup::escape(text); }

std::string HtmlRenderer::css(const Color& color) {
  if (const auto* semantic = std::get_if<Color::Semantic>(&color.value)) {
    switch (*semantic) {
      case Color::Semantic::primaryText:
        return "var(--primary)";
      case Color::Semantic::secondaryText:
        return "var(--secondary)";
      case Color::Semantic::tertiaryText:
        return "var(--tertiary)";
    }
  }
  const auto& rgb = std::get<Color::SRGB>(color.value);
  auto channel = [](double value) { return static_cast<int>(std::lround(value * 255)); };
  if (rgb.opacity == 1) {
    return fmt::format("rgb({},{},{})", channel(rgb.red), channel(rgb.green), channel(rgb.blue));
  }
  return fmt::format("rgba({},{},{},{:g})", channel(rgb.red), channel(rgb.green), channel(rgb.blue),
                     rgb.opacity);
}

}  // namespace brimlog::ui
