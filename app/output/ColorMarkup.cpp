#include "output/ColorMarkup.hpp"

#include <fmt/format.h>

#include <cmath>
#include <variant>

namespace brimlog {

std::string ColorMarkup::accent(ProviderID provider) const {
  const Color color = provider.accent();
  if (const auto* rgb = std::get_if<Color::SRGB>(&color.value)) {
    const long red = std::lround(rgb->red * 255);
    const long green = std::lround(rgb->green * 255);
    const long blue = std::lround(rgb->blue * 255);
    switch (kind_) {
      case Kind::none:
        return {};
      case Kind::ansi:
        return fmt::format("\x1b[38;2;{};{};{}m", red, green, blue);
      case Kind::tmux:
        return fmt::format("#[fg=#{:02x}{:02x}{:02x}]", red, green, blue);
      case Kind::polybar:
        return fmt::format("%{{F#{:02x}{:02x}{:02x}}}", red, green, blue);
    }
    return {};
  }
  // The screen's own text colours stand for the semantic ones: bold for primary, dim for the
  // others. Polybar has neither, so those providers keep its foreground.
  const bool primary = std::get<Color::Semantic>(color.value) == Color::Semantic::primaryText;
  switch (kind_) {
    case Kind::ansi:
      return std::string(primary ? Ansi::bold : Ansi::dim);
    case Kind::tmux:
      return primary ? "#[bold]" : "#[dim]";
    case Kind::none:
    case Kind::polybar:
      return {};
  }
  return {};
}

std::string ColorMarkup::warning() const {
  switch (kind_) {
    case Kind::none:
      return {};
    case Kind::ansi:
      return std::string(Ansi::yellow);
    case Kind::tmux:
      return "#[fg=yellow]";
    case Kind::polybar:
      return "%{F#e5a50a}";
  }
  return {};
}

std::string ColorMarkup::critical() const {
  switch (kind_) {
    case Kind::none:
      return {};
    case Kind::ansi:
      return std::string(Ansi::red);
    case Kind::tmux:
      return "#[fg=red]";
    case Kind::polybar:
      return "%{F#e01b24}";
  }
  return {};
}

std::string ColorMarkup::reset() const {
  switch (kind_) {
    case Kind::none:
      return {};
    case Kind::ansi:
      return std::string(Ansi::reset);
    case Kind::tmux:
      return "#[default]";
    case Kind::polybar:
      // Only colours are ever set, so resetting the foreground resets everything.
      return "%{F-}";
  }
  return {};
}

std::string ColorMarkup::escape(std::string_view text) const {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (kind_ == Kind::tmux && text[i] == '#') out += '#';
    if (kind_ == Kind::polybar && text[i] == '%' && i + 1 < text.size() && text[i + 1] == '{') {
      out += '%';
    }
    out += text[i];
  }
  return out;
}

std::string ColorMarkup::paint(std::string_view text, std::string_view mark) const {
  if (mark.empty()) return escape(text);
  return std::string(mark) + escape(text) + reset();
}

std::string_view ColorMarkup::paceText(Pace pace) {
  switch (pace) {
    case Pace::over:
      return "over pace";
    case Pace::under:
      return "under pace";
    case Pace::onPace:
      return "on pace";
    case Pace::unknown:
      return {};
  }
  return {};
}

}  // namespace brimlog
