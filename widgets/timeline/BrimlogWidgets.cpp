#include "timeline/BrimlogWidgets.hpp"

#include "display/WidgetDisplay.hpp"
#include "timeline/ProviderChoiceTimelineProvider.hpp"
#include "timeline/SnapshotTimelineProvider.hpp"

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

Timeline BrimlogWidgets::timeline(const WidgetDescription& widget,
                                  const std::optional<std::filesystem::path>& stateFolder,
                                  ProviderChoice choice, bool preview, Date now) {
  const auto clock = [now] { return now; };
  if (preview) {
    const SnapshotEntry entry =
        widget.configurable
            ? ProviderChoiceTimelineProvider{stateFolder, clock}.snapshotEntry(choice, true)
            : SnapshotTimelineProvider{stateFolder, clock}.snapshotEntry(true);
    return Timeline{{entry}, now + Seconds{WidgetDisplay::reloadInterval}};
  }
  return widget.configurable ? ProviderChoiceTimelineProvider{stateFolder, clock}.timeline(choice)
                             : SnapshotTimelineProvider{stateFolder, clock}.timeline();
}

}  // namespace brimlog
