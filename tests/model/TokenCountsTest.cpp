#include <gtest/gtest.h>

#include <limits>

#include "model/TokenCounts.hpp"

namespace brimlog {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

TEST(TokenCountsTest, SumsSaturateInsteadOfWrapping) {
  const TokenCounts big{kMax, kMax - 1, kMax, 1, kMin, 0};
  const TokenCounts sum = big + TokenCounts{1, 1, 0, 0, -1, 0};
  EXPECT_EQ(sum, (TokenCounts{kMax, kMax, kMax, 1, kMin, 0}));
  EXPECT_EQ(sum.cacheWrite(), kMax);
  EXPECT_EQ((TokenCounts{kMax, kMax, 0, 0, 0, 0}).processed(), kMax);
}

TEST(TokenCountsTest, JsonHasAllSixIntegerKeys) {
  const TokenCounts counts{10, 20, 30, 40, 50, 60};
  const Json json = Json::parse(R"({"uncachedInput":10,"cacheRead":20,"cacheWrite5m":30,
                                    "cacheWrite1h":40,"output":50,"reasoning":60})");
  EXPECT_EQ(counts.toJson(), json);
  EXPECT_EQ(TokenCounts::fromJson(json), counts);
  Json missing = json, fractional = json, text = json;
  missing.erase("reasoning");
  fractional["output"] = 1.5;
  text["output"] = "50";
  for (const Json& bad : {missing, fractional, text}) {
    EXPECT_THROW(TokenCounts::fromJson(bad), JsonDecodeError) << bad;
  }
}

}  // namespace
}  // namespace brimlog
