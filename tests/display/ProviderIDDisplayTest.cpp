#include <gtest/gtest.h>

#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

// A logo takes the colour of the text around it, so that it reads in light and dark themes alike.
TEST(ProviderIDDisplayTest, EveryLogoIsDrawnInTheCurrentColour) {
  for (const ProviderID id : ProviderID::allCases) {
    const std::string& logo = id.logo();
    EXPECT_NE(logo.find("viewBox=\"0 0 24 24\""), std::string::npos) << id.rawValue();
    EXPECT_NE(logo.find("currentColor"), std::string::npos) << id.rawValue();
    EXPECT_EQ(logo.find('#'), std::string::npos) << id.rawValue() << " has a colour of its own";
  }
}

}  // namespace
}  // namespace brimlog
