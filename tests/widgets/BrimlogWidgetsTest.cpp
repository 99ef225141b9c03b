#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "timeline/BrimlogWidgets.hpp"
#include "timeline/ProviderChoice.hpp"

namespace brimlog {
namespace {

using Family = WidgetDescription::Family;

TEST(BrimlogWidgetsTest, KindsNamesAndTextsTowardsTheSystem) {
  const WidgetDescription widgets[] = {
      {"app.brimlog.small", "Provider limits", "Session and weekly limits for one provider.",
       Family::small, true},
      {"app.brimlog.medium", "All providers", "The tightest limits of every provider you track.",
       Family::medium, false},
      {"app.brimlog.large", "Limits and cost",
       "Every provider's limits, with what the last 30 days would cost at API prices.",
       Family::large, false}};
  EXPECT_TRUE(std::ranges::equal(BrimlogWidgets::widgets(), widgets));
  for (const auto& widget : widgets) EXPECT_EQ(BrimlogWidgets::widget(widget.kind), widget);
  EXPECT_EQ(BrimlogWidgets::widget("app.brimlog.Small"), std::nullopt);

  // The picker offers the tools Brimlog reads here, and nothing else.
  for (const ProviderChoice choice : ProviderChoice::allCases) {
    EXPECT_EQ(ProviderChoice::fromRawValue(choice.rawValue()), choice);
  }
  EXPECT_EQ(ProviderChoice::fromRawValue("cursor"), std::nullopt);
  EXPECT_EQ(ProviderChoice::fromRawValue("Claude"), std::nullopt);
}

}  // namespace
}  // namespace brimlog
