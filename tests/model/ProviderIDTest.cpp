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

}  // namespace
}  // namespace brimlog
