#pragma once

#include <string_view>

#include "timeline/ProviderChoice.hpp"

namespace brimlog {

/// The small widget's settings: which provider it shows, picked among all of
/// `ProviderChoice::allCases` without any further question. A widget never set up shows Claude.
/// Running it does nothing: the choice takes effect through the widget's next timeline.
struct ProviderChoiceIntent {
  static constexpr std::string_view title = "Provider";
  /// The title of the `provider` parameter.
  static constexpr std::string_view providerTitle = "Provider";

  ProviderChoice provider = ProviderChoice::claude;

  bool operator==(const ProviderChoiceIntent&) const = default;
};

}  // namespace brimlog
