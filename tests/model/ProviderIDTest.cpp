#include <gtest/gtest.h>

#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

// A tool Brimlog cannot read here is kept for stored data but never offered to the user. Logos
// take the text's colour.
TEST(ProviderIDTest, NamesMatchExactlyOnlyReadableToolsAreOfferedAndLogosHaveNoColour) {
  for (const ProviderID id : ProviderID::allCases) {
    SCOPED_TRACE(id.rawValue());
    EXPECT_EQ(ProviderID::fromRawValue(id.rawValue()), id);
    EXPECT_EQ(ProviderID::readableNamed(id.rawValue()).has_value(), id.isReadable());
    EXPECT_NE(id.logo().find("viewBox=\"0 0 24 24\""), std::string::npos);
    EXPECT_NE(id.logo().find("currentColor"), std::string::npos);
    EXPECT_EQ(id.logo().find('#'), std::string::npos) << "a colour of its own";
  }
  for (const char* other : {"Claude", "claude ", ""}) {
    EXPECT_FALSE(ProviderID::fromRawValue(other)) << other;
  }
  EXPECT_EQ(ProviderID::fromJson("grok"), ProviderID::grok);
  EXPECT_EQ(ProviderID(ProviderID::cursor).toJson(), "cursor");
  EXPECT_THROW(ProviderID::fromJson("Grok"), JsonDecodeError);
  EXPECT_THROW(ProviderID::fromJson(1), JsonDecodeError);
  EXPECT_FALSE(ProviderID::readableNamed("cursor"));
  EXPECT_EQ(ProviderID::readableChoices(), "claude, codex, grok, gemini, opencode, kilo or qwen");
}

}  // namespace
}  // namespace brimlog
