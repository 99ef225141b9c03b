#pragma once

#include <string_view>

namespace brimlog {

/// How one widget presents itself to the system and in the gallery.
struct WidgetDescription {
  /// The one size a widget comes in.
  enum class Family { small, medium, large };

  /// The widget's identity towards the system, such as "app.brimlog.small".
  std::string_view kind;
  std::string_view displayName;
  std::string_view description;
  Family family = Family::small;
  /// Whether the user sets it up with a provider (a `ProviderChoice`) and it is answered by
  /// `ProviderChoiceTimelineProvider`; otherwise it has no settings and
  /// `SnapshotTimelineProvider` answers it.
  bool configurable = false;

  constexpr bool operator==(const WidgetDescription&) const = default;
};

}  // namespace brimlog
