#include <gtest/gtest.h>

#include "daemon/MetricsServer.hpp"

namespace brimlog {
namespace {

// Pruning takes old days out of the ledger; the counters the daemon serves never fall for it,
// and a model whose days are all gone keeps its last figures.
TEST(MetricsServerTest, CountersNeverFallWhenTheLedgerIsPruned) {
  using Usage = MetricsFigures::Usage;
  const std::vector<Usage> before = {{ProviderID::claude, "m1", {10, 0, 0, 0, 100, 0}, 1.0},
                                     {ProviderID::codex, "m2", {5, 0, 0, 0, 7, 0}, std::nullopt}};
  const std::vector<Usage> after = MetricsServer::neverLower(
      before, {{ProviderID::claude, "m1", {12, 0, 0, 0, 90, 0}, 0.9}});
  ASSERT_EQ(after.size(), 2u);
  EXPECT_EQ(after[0].tokens, (TokenCounts{12, 0, 0, 0, 100, 0}));
  EXPECT_EQ(after[0].costUSD, 1.0);
  EXPECT_EQ(after[1].model, "m2");
}

}  // namespace
}  // namespace brimlog
