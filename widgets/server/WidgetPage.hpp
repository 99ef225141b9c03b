#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/ProviderID.hpp"
#include "timeline/Timeline.hpp"
#include "timeline/WidgetDescription.hpp"

namespace brimlog {

/// The widgets as self-contained HTML pages: no request leaves the page except the refresh
/// button's POST to the server that served it.
///
/// A widget is an element `.widget` (`data-kind`, `data-provider`, `data-reload-at` in Unix
/// seconds) at its real size, holding one `<section class="entry" data-date="…">` per timeline
/// entry. The page shows the entry whose date was reached last, switches to the next at its date
/// without reloading, keeps live countdowns (`.timer`) current every second, and reloads itself
/// at the earliest reload date of its widgets.
struct WidgetPage {
  /// Width and height in points of a widget of `family`.
  static std::pair<int, int> size(WidgetDescription::Family family);

  /// The element of one widget drawing `timeline` for `provider` (what the small widget shows).
  /// `now` only picks the entry that is shown before the page's script runs.
  static std::string widget(const WidgetDescription& description, const Timeline& timeline,
                            ProviderID provider, Date now);

  /// A whole page of `title` around `body`.
  static std::string page(std::string_view title, std::string_view body);

  /// The gallery's frame around widgets: each widget with its name and description below.
  struct Item {
    WidgetDescription description;
    std::string widget;
  };
  static std::string gallery(const std::vector<Item>& items);
};

}  // namespace brimlog
