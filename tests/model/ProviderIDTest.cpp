#include <gtest/gtest.h>

#include <unordered_set>

#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

TEST(ProviderIDTest, CasesComeInOrderWithTheirNames) {
  ASSERT_EQ(ProviderID::allCases.size(), 4u);
  const char* raw[] = {"claude", "codex", "grok", "cursor"};
  const char* display[] = {"Claude", "Codex", "Grok", "Cursor"};
  const char* tool[] = {"Claude Code", "Codex", "Grok Build", "Cursor"};
  for (size_t i = 0; i < 4; ++i) {
    const ProviderID id = ProviderID::allCases[i];
    EXPECT_EQ(id.index(), static_cast<int>(i));
    EXPECT_EQ(id.rawValue(), raw[i]);
    EXPECT_EQ(id.displayName(), display[i]);
    EXPECT_EQ(id.toolName(), tool[i]);
    EXPECT_EQ(ProviderID::fromRawValue(raw[i]), id);
  }
  EXPECT_EQ(std::unordered_set<ProviderID>(ProviderID::allCases.begin(), ProviderID::allCases.end())
                .size(),
            4u);
}

TEST(ProviderIDTest, RawValuesMatchExactly) {
  EXPECT_FALSE(ProviderID::fromRawValue("Claude"));
  EXPECT_FALSE(ProviderID::fromRawValue("claude "));
  EXPECT_FALSE(ProviderID::fromRawValue(""));
  EXPECT_EQ(ProviderID::fromJson("grok"), ProviderID::grok);
  EXPECT_EQ(ProviderID(ProviderID::cursor).toJson(), "cursor");
  EXPECT_THROW(ProviderID::fromJson("Grok"), JsonDecodeError);
  EXPECT_THROW(ProviderID::fromJson(1), JsonDecodeError);
}

}  // namespace
}  // namespace brimlog
