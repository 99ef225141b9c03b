#include <gtest/gtest.h>

#include "timeline/BrimlogWidgets.hpp"

namespace brimlog {
namespace {

// Each widget is found by its own kind, exactly; the catalogue's texts are the pages' to show. (The
// picker's tools are ProviderID::readableNamed's, in ProviderIDTest.)
TEST(BrimlogWidgetsTest, EachWidgetIsFoundByItsKind) {
  for (const WidgetDescription& widget : BrimlogWidgets::widgets()) {
    EXPECT_EQ(BrimlogWidgets::widget(widget.kind), widget);
  }
  EXPECT_EQ(BrimlogWidgets::widget("app.brimlog.Small"), std::nullopt);
}

}  // namespace
}  // namespace brimlog
