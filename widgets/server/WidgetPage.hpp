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

  /// The title of a page holding one widget, the same for every entry and every snapshot, so
  /// that a window manager's rule can match it: "Brimlog — Small — Claude", "Brimlog — Large".
  static std::string title(const WidgetDescription& description, ProviderID provider);

  /// How a page sets its widgets out: `padded` on the page's own background with room around
  /// them, as a browser tab shows them; `bare` with nothing but the widget, its exact size on a
  /// transparent background, for a window or a panel of that size on the desktop (a smaller
  /// one clips the widget rather than scroll).
  enum class Frame { padded, bare };

  /// A whole page of `title` around `body`.
  static std::string page(std::string_view title, std::string_view body,
                          Frame frame = Frame::padded);

  /// The gallery's frame around widgets: each widget with its name and description below, and
  /// a link to `address`, the widget's bare page.
  struct Item {
    WidgetDescription description;
    std::string widget;
    std::string address;
  };
  static std::string gallery(const std::vector<Item>& items);
};

}  // namespace brimlog
