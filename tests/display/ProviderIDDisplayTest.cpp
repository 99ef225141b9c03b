#include <gtest/gtest.h>

#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

TEST(ProviderIDDisplayTest, AccentsAndSingleColourLogosForEveryProvider) {
  EXPECT_EQ(ProviderID(ProviderID::claude).accent(),
            Color::srgb(0.8509803921568627, 0.4666666666666667, 0.3411764705882353));
  EXPECT_EQ(ProviderID(ProviderID::codex).accent(), Color::primaryText());
  EXPECT_EQ(ProviderID(ProviderID::cursor).accent(), ProviderID(ProviderID::grok).accent());
  for (const ProviderID id : ProviderID::allCases) {
    const std::string& logo = id.logo();
    EXPECT_NE(logo.find("viewBox=\"0 0 24 24\""), std::string::npos) << id.rawValue();
    EXPECT_NE(logo.find("currentColor"), std::string::npos) << id.rawValue();
    EXPECT_EQ(logo.find('#'), std::string::npos) << id.rawValue() << " has a colour of its own";
  }
}

}  // namespace
}  // namespace brimlog
