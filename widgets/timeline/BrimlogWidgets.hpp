#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>

#include "platform/Date.hpp"
#include "timeline/ProviderChoice.hpp"
#include "timeline/Timeline.hpp"
#include "timeline/WidgetDescription.hpp"

namespace brimlog {

/// The widgets the widget process offers, in the order it declares them: one provider's limits
/// (small, set up with a provider), every provider's tightest limits (medium), and every
/// provider's limits with the 30-day cost (large).
///
///     for (const WidgetDescription& widget : BrimlogWidgets::widgets()) ...
///     BrimlogWidgets::widget("app.brimlog.medium")->displayName;  // "All providers"
struct BrimlogWidgets {
  static constexpr WidgetDescription smallWidget{"app.brimlog.small", "Provider limits",
                                                 "Session and weekly limits for one provider.",
                                                 WidgetDescription::Family::small, true};
  static constexpr WidgetDescription mediumWidget{
      "app.brimlog.medium", "All providers", "The tightest limits of every provider you track.",
      WidgetDescription::Family::medium, false};
  static constexpr WidgetDescription largeWidget{
      "app.brimlog.large", "Limits and cost",
      "Every provider's limits, with what the last 30 days would cost at API prices.",
      WidgetDescription::Family::large, false};

  /// Small, medium and large, in that order.
  static std::span<const WidgetDescription> widgets();

  /// The widget of `kind` (compared exactly), or nothing.
  static std::optional<WidgetDescription> widget(std::string_view kind);

  /// What `widget` shows at `now` from the snapshot in `stateFolder`: the small widget's
  /// timeline for `choice` (ProviderChoiceTimelineProvider), the others' for every provider
  /// (SnapshotTimelineProvider). In `preview` the gallery's one entry, looked at again as a
  /// timeline would be, a reload interval on.
  static Timeline timeline(const WidgetDescription& widget,
                           const std::optional<std::filesystem::path>& stateFolder,
                           ProviderChoice choice, bool preview, Date now);
};

}  // namespace brimlog
