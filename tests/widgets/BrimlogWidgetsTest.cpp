#include <gtest/gtest.h>

#include "timeline/BrimlogWidgets.hpp"
#include "timeline/ProviderChoice.hpp"

namespace brimlog {
namespace {

// Each widget is found by its own kind, exactly; the catalogue's texts are the pages' to show.
TEST(BrimlogWidgetsTest, EachWidgetIsFoundByItsKindAndThePickerByTheToolsReadHere) {
  for (const WidgetDescription& widget : BrimlogWidgets::widgets()) {
    EXPECT_EQ(BrimlogWidgets::widget(widget.kind), widget);
  }
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
