#include "views/ProviderRows.hpp"

#include <string>

#include "display/WidgetDisplay.hpp"
#include "views/WindowViews.hpp"

namespace brimlog {

using namespace ui;

View ProviderName::body() const {
  return HStack(
      VerticalAlignment::center, 4,
      {
          Image(provider.logo())
              .frame(Frame::size(size - 1, size - 1))
              .foreground(provider.accent()),
          Text(std::string(provider.displayName())).font(size, FontWeight::medium).lineLimit(1),
      });
}

View NoLimitsRow::body() const {
  return HStack(VerticalAlignment::center, 4,
                {
                    // The mark keeps the tool's accent, so the faint row is still its own.
                    Image(provider.id.logo())
                        .frame(Frame::size(10, 10))
                        .foreground(provider.id.accent()),
                    Text(std::string(provider.id.displayName()) + " · " +
                         std::string(WidgetDisplay::noLimitsNote(provider.status)))
                        .font(11)
                        .lineLimit(1),
                })
      .foreground(Color::tertiaryText())
      .frame(Frame::fullWidth(HorizontalAlignment::leading));
}

View ProviderRow::body() const {
  std::vector<View> row{
      ProviderName{provider.id, 11}.body().frame(
          Frame::size(64, std::nullopt, HorizontalAlignment::leading)),
  };
  const std::vector<LimitWindow> shown = WidgetDisplay::tightestWindows(provider.windows, now, 2);
  for (const LimitWindow& window : shown) {
    row.push_back(
        CompactWindowView{window, provider.id.accent(), now, live, provider.readAtOf(window)}
            .body());
  }
  // An invisible filler the width of a window keeps a lone window from stretching.
  if (shown.size() < 2) row.push_back(Empty().frame(Frame::fullWidth()).role("filler"));
  return HStack(VerticalAlignment::center, 10, std::move(row));
}

View ProviderRows::body() const {
  std::vector<View> rows;
  for (const Snapshot::Provider& provider : snapshot.providers) {
    rows.push_back(provider.windows.empty() ? NoLimitsRow{provider}.body()
                                            : ProviderRow{provider, now, live}.body());
  }
  return VStack(HorizontalAlignment::leading, spacing, std::move(rows));
}

}  // namespace brimlog
