#include <gtest/gtest.h>

#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

TEST(ProviderIDTest, RawValuesMatchExactly) {
  for (const ProviderID id : ProviderID::allCases) {
    EXPECT_EQ(ProviderID::fromRawValue(id.rawValue()), id);
  }
  for (const char* other : {"Claude", "claude ", ""}) {
    EXPECT_FALSE(ProviderID::fromRawValue(other)) << other;
  }
  EXPECT_EQ(ProviderID::fromJson("grok"), ProviderID::grok);
  EXPECT_EQ(ProviderID(ProviderID::cursor).toJson(), "cursor");
  EXPECT_THROW(ProviderID::fromJson("Grok"), JsonDecodeError);
  EXPECT_THROW(ProviderID::fromJson(1), JsonDecodeError);
}

// A tool Brimlog cannot read here is kept for stored data but never offered to the user.
TEST(ProviderIDTest, UsersMayNameOnlyTheToolsBrimlogReads) {
  for (const ProviderID id : ProviderID::allCases) {
    EXPECT_EQ(ProviderID::readableNamed(id.rawValue()).has_value(), id.isReadable())
        << id.rawValue();
  }
  EXPECT_FALSE(ProviderID::readableNamed("cursor"));
  EXPECT_EQ(ProviderID::readableChoices(), "claude, codex, grok, gemini, opencode, kilo or qwen");
}

TEST(ProviderIDTest, EveryToolHasASingleColourLogo) {
  for (const ProviderID id : ProviderID::allCases) {
    const std::string& logo = id.logo();
    EXPECT_NE(logo.find("viewBox=\"0 0 24 24\""), std::string::npos) << id.rawValue();
    EXPECT_NE(logo.find("currentColor"), std::string::npos) << id.rawValue();
    EXPECT_EQ(logo.find('#'), std::string::npos) << id.rawValue() << " has a colour of its own";
  }
}

}  // namespace
}  // namespace brimlog
