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

}  // namespace
}  // namespace brimlog
