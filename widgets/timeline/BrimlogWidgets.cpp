#include "timeline/BrimlogWidgets.hpp"

namespace brimlog {
namespace {

constexpr std::array kWidgets = {BrimlogWidgets::smallWidget, BrimlogWidgets::mediumWidget,
                                 BrimlogWidgets::largeWidget};

}  // namespace

std::span<const WidgetDescription> BrimlogWidgets::widgets() { return kWidgets; }

std::optional<WidgetDescription> BrimlogWidgets::widget(std::string_view kind) {
  for (const WidgetDescription& widget : kWidgets) {
    if (widget.kind == kind) return widget;
  }
  return std::nullopt;
}

}  // namespace brimlog
