#include "views/WidgetHeader.hpp"

#include "display/WidgetDisplay.hpp"
#include "model/ProviderID.hpp"

namespace brimlog {

using namespace ui;

namespace {
// A warm orange, which reads as a warning on light and dark backgrounds alike.
constexpr Color kOrange = Color::srgb(1.0, 149 / 255.0, 0.0);
}  // namespace

View StaleBadge::body() const {
  const std::optional<std::string> text = WidgetDisplay::staleText(generatedAt, now);
  if (!text) return Empty();
  return Text(*text)
      .font(10, FontWeight::medium)
      .foreground(kOrange)
      .lineLimit(1)
      .role("stale-badge");
}

View RefreshButton::body() const {
  return Button("refresh", Symbol("arrow.clockwise")
                               .font(11, FontWeight::semibold)
                               .foreground(Color::secondaryText())
                               .frame(Frame::size(18, 18)))
      .accessibility("Refresh")
      .role("refresh");
}

View WidgetHeader::body() const {
  return HStack(VerticalAlignment::center, 4,
                {
                    Symbol(ProviderID::appSymbolName)
                        .font(11, FontWeight::medium)
                        .foreground(Color::secondaryText()),
                    Text("Brimlog").font(12, FontWeight::semibold),
                    Spacer(4),
                    StaleBadge{snapshot.generatedAt, now}.body(),
                    RefreshButton{}.body(),
                });
}

}  // namespace brimlog
