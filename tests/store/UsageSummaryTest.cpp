#include <gtest/gtest.h>

#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/ExpectedFile.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

// Compares a summary with the one kept in tests/data/store/, in their JSON form, so that a failure
// shows the lines that differ.
void expectSummary(const UsageSummary& actual, const std::string& file) {
  const auto path = testing::dataPath("store/" + file);
  EXPECT_TRUE(testing::sameLines(json::parse(testing::readFile(path)).dump(1),
                                 actual.toJson(DateForm::iso8601).dump(1)))
      << path;
}

ModelPrice price(double input, double output, std::optional<std::string> proxy = std::nullopt) {
  return {input, output, input / 10, input * 1.25, input * 2, std::move(proxy), "t", "2025-01-01"};
}

const PriceTable prices{{{"opus", price(15, 75)},
                         {"sonnet", price(3, 15)},
                         {"gpt", price(1.25, 10)},
                         {"borrowed", price(1, 1, "gpt")}}};

class UsageSummaryTest : public ::testing::Test {
 protected:
  void add(ProviderID provider, const char* model, const char* timestamp, TokenCounts tokens,
           std::optional<double> reported = std::nullopt, std::string session = "s") {
    const UsageEvent event{provider,      model,  std::move(session), std::to_string(next_++),
                           at(timestamp), tokens, reported,           ""};
    store_.ingest(std::vector{event});
  }

  UsageSummary summary(int days = 30, const char* now = "2025-03-30T15:00:00Z") {
    return store_.summary(days, at(now), calendar_, prices);
  }

  Calendar calendar_ = Calendar::utc();
  UsageStore store_{":memory:"};
  int next_ = 0;
};

TEST_F(UsageSummaryTest, AnEmptyDatabaseGivesAnEmptyWindowEndingToday) {
  UsageSummary empty;
  empty.days = 7;
  empty.windowEnd = at("2025-03-30T00:00:00Z");
  EXPECT_EQ(summary(7), empty);
  for (int days : {0, -5}) EXPECT_EQ(summary(days).days, 1);
}

TEST_F(UsageSummaryTest, CostsTokensAndSharesAddUpPerToolModelAndDay) {
  add(ProviderID::claude, "opus", "2025-03-29T10:00:00Z", {1'000'000, 0, 0, 0, 0, 0}, 99.0, "a");
  add(ProviderID::claude, "sonnet", "2025-03-30T10:00:00Z", {0, 0, 0, 0, 1'000'000, 7}, {}, "b");
  add(ProviderID::codex, "gpt", "2025-03-30T11:00:00Z", {0, 2'000'000, 0, 0, 0, 0}, {}, "c");
  add(ProviderID::codex, "gpt", "2025-03-30T12:00:00Z", {0, 0, 0, 0, 0, 0}, {}, "c");
  add(ProviderID::grok, "gpt", "2025-03-30T13:00:00Z", {}, {}, "d");  // zero tokens still count
  add(ProviderID::claude, "opus", "2025-03-31T00:00:00Z", {1, 0, 0, 0, 0, 0});  // tomorrow
  // Three days up to today: the cache read saves 2 x (1.25 - 0.125); the tools share the costs
  // 30 : 0.25 and the tokens half and half; each tool has a point a day, zero where nothing
  // happened, while the list per day leaves the empty first day out.
  expectSummary(summary(3), "summary-costs.json");
}

TEST_F(UsageSummaryTest, UnknownAndBorrowedPricesAreFlagged) {
  add(ProviderID::grok, "mystery", "2025-03-30T10:00:00Z", {500, 0, 0, 0, 500, 0});
  add(ProviderID::grok, "reported", "2025-03-30T10:00:00Z", {10, 0, 0, 0, 0, 0}, 2.5);
  add(ProviderID::codex, "borrowed", "2025-03-30T10:00:00Z", {1'000'000, 0, 0, 0, 0, 0});
  // The unpriced model has no cost at all; the reported and the borrowed one are approximate.
  expectSummary(summary(1), "summary-unknown-prices.json");
}

TEST_F(UsageSummaryTest, TiesKeepProviderOrderAndThenNames) {
  // Equal costs (all unpriced and zero-cost reported) and equal tokens.
  add(ProviderID::grok, "b", "2025-03-30T10:00:00Z", {10, 0, 0, 0, 0, 0}, 0.0);
  add(ProviderID::codex, "z", "2025-03-30T10:00:00Z", {10, 0, 0, 0, 0, 0}, 0.0);
  add(ProviderID::cursor, "a", "2025-03-30T10:00:00Z", {10, 0, 0, 0, 0, 0}, 0.0);
  add(ProviderID::codex, "y", "2025-03-30T10:00:00Z", {10, 0, 0, 0, 0, 0}, 0.0);
  add(ProviderID::claude, "q", "2025-03-30T10:00:00Z", {5, 0, 0, 0, 0, 0}, 0.0);
  // The tools keep the providers' order (claude, codex, grok, cursor); models of equal tokens go
  // by provider name, then model name.
  expectSummary(summary(1), "summary-ties.json");
}

TEST_F(UsageSummaryTest, WindowDaysAreLocalMidnightsAcrossDaylightSaving) {
  calendar_ = *Calendar::named("America/New_York");
  add(ProviderID::claude, "opus", "2025-03-09T04:30:00Z", {1, 0, 0, 0, 0, 0});  // 8 Mar, 23:30
  add(ProviderID::claude, "opus", "2025-03-10T03:59:59Z", {2, 0, 0, 0, 0, 0});  // 9 Mar, 23:59
  add(ProviderID::codex, "gpt", "2025-03-10T04:30:00Z", {1, 0, 0, 0, 0, 0});    // 10 Mar, 00:30
  // Days start at 05:00Z before the change and 04:00Z after it; the 9th has 23 hours.
  expectSummary(summary(4, "2025-03-10T15:00:00Z"), "summary-daylight-saving.json");
}

}  // namespace
}  // namespace brimlog
