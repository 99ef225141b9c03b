#include <gtest/gtest.h>

#include <limits>

#include "model/TokenCounts.hpp"

namespace brimlog {
namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

TEST(TokenCountsTest, ProcessedLeavesReasoningOut) {
  const TokenCounts counts{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(counts.cacheWrite(), 7);
  EXPECT_EQ(counts.processed(), 15);
  EXPECT_EQ(TokenCounts::zero().processed(), 0);
  EXPECT_EQ(TokenCounts::zero() + counts, counts);
  EXPECT_EQ(counts + counts, (TokenCounts{2, 4, 6, 8, 10, 12}));
}

TEST(TokenCountsTest, SumsSaturateInsteadOfWrapping) {
  const TokenCounts big{kMax, kMax - 1, kMax, 1, kMin, 0};
  const TokenCounts sum = big + TokenCounts{1, 1, 0, 0, -1, 0};
  EXPECT_EQ(sum, (TokenCounts{kMax, kMax, kMax, 1, kMin, 0}));
  EXPECT_EQ(sum.cacheWrite(), kMax);
  EXPECT_EQ((TokenCounts{kMax, kMax, 0, 0, 0, 0}).processed(), kMax);
}

TEST(TokenCountsTest, JsonRequiresAllSixIntegerKeys) {
  const TokenCounts counts{10, 20, 30, 40, 50, 60};
  const Json json = counts.toJson();
  EXPECT_EQ(json.size(), 6u);
  EXPECT_EQ(json["cacheWrite5m"], 30);
  EXPECT_EQ(TokenCounts::fromJson(json), counts);

  Json missing = json;
  missing.erase("reasoning");
  EXPECT_THROW(TokenCounts::fromJson(missing), JsonDecodeError);
  Json fractional = json;
  fractional["output"] = 1.5;
  EXPECT_THROW(TokenCounts::fromJson(fractional), JsonDecodeError);
  Json text = json;
  text["output"] = "50";
  EXPECT_THROW(TokenCounts::fromJson(text), JsonDecodeError);
}

}  // namespace
}  // namespace brimlog
