#include <gtest/gtest.h>

#include <set>

#include "ingest/JSONLTail.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"
#include "store/PriceTable.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

ModelPrice price(double input, double output, double cacheRead, double w5m, double w1h,
                 std::optional<std::string> proxyFor = std::nullopt) {
  return {input, output, cacheRead, w5m, w1h, std::move(proxyFor), "test", "2025-01-01"};
}

const PriceTable table{{
    {"model-x", price(3, 15, 0.3, 3.75, 6)},
    {"model-x-20250514", price(1, 1, 1, 1, 1)},
    {"proxy-model", price(2, 8, 0.2, 2.5, 4, "model-x")},
}};

TEST(PriceTableTest, LookupIsExactThenWithoutADateStamp) {
  EXPECT_EQ(table.price("model-x-20250514")->input, 1);  // its own entry wins
  EXPECT_EQ(table.price("model-x-20250515")->input, 3);
  EXPECT_EQ(table.price("model-x")->input, 3);
  for (const char* unknown : {"model-x-2025051", "model-x-20250514-v2", "Model-X", "model-x ",
                              "model-x20250515", "model-x-2025o515", "-20250515"}) {
    EXPECT_EQ(table.price(unknown), nullptr) << unknown;
  }
}

TEST(PriceTableTest, CostsAreListPricesByTokenTypeOrElseTheReportedCost) {
  const auto usd = [](CostBreakdown breakdown, bool approximate = false, double savings = 0) {
    return PricedCost{breakdown.total(), breakdown, approximate, savings};
  };
  const struct {
    const char* name;
    const char* model;
    TokenCounts tokens;
    std::optional<double> reported;
    PricedCost expected;
  } rows[] = {
      {"input, report ignored", "model-x", {1'000'000}, 9.0, usd({3})},
      {"cache reads save", "model-x", {0, 2'000'000}, {}, usd({0, 0.6}, false, 5.4)},
      {"writes", "model-x", {0, 0, 300'000, 400'000, 500'000}, {}, usd({0, 0, 3.525, 7.5})},
      {"reasoning is in the output", "model-x", {0, 0, 0, 0, 0, 1'000'000}, {}, usd({})},
      {"borrowed price", "proxy-model", {1'000'000}, {}, usd({2}, true)},
      {"no price, reported cost", "other", {1000}, 1.23, usd({0, 0, 0, 0, 1.23}, true)},
      {"no price, nothing reported", "other", {1000, 1000}, {}, PricedCost{}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(table.cost(row.model, row.tokens, row.reported), row.expected);
  }
}

class PriceFileTest : public testing::TempDirTest {};

TEST_F(PriceFileTest, ABadPriceFileGivesAnEmptyTable) {
  EXPECT_TRUE(PriceTable::load(dir() / "absent.json").models.empty());
  EXPECT_TRUE(PriceTable::load(write("broken.json", "{\"models\":")).models.empty());
  EXPECT_TRUE(
      PriceTable::load(write("wrong.json", R"({"models":{"m":{"input":1}}})")).models.empty());
  EXPECT_TRUE(PriceTable::load(dir()).models.empty());  // a folder, not a file

  const PriceTable loaded = PriceTable::load(testing::dataPath("store/prices-two-models.json"));
  ASSERT_EQ(loaded.models.size(), 2u);
  EXPECT_EQ(loaded.models.at("m"),
            (ModelPrice{1, 2.5, 0.1, 1.25, 2, std::nullopt, "s", "2025-01-01"}));
  EXPECT_EQ(loaded.models.at("p").proxyFor, "m");
}

// The shipped price list: well formed, sourced, and pricing every model the real logs name.
TEST(BundledPricesTest, EveryEntryIsSourcedAndEveryRealModelFindsAPrice) {
  const PriceTable bundled = PriceTable::bundled();
  ASSERT_GT(bundled.models.size(), 20u) << "prices.json was not found beside the executable";
  for (const auto& [name, entry] : bundled.models) {
    EXPECT_FALSE(entry.source.empty()) << name;
    EXPECT_EQ(entry.asOf.size(), 10u) << name;
    EXPECT_GT(entry.input, 0) << name;
    EXPECT_GE(entry.output, entry.input) << name;
    EXPECT_LE(entry.cacheRead, entry.input) << name;
    if (entry.proxyFor) {
      EXPECT_TRUE(bundled.models.contains(*entry.proxyFor)) << name;
    }
  }
  for (const char* model :
       {"claude-opus-4-6", "claude-sonnet-4-5-20250929", "claude-haiku-4-5-20251001",
        "claude-sonnet-4-20250514", "gpt-5.3-codex", "gpt-5.5", "gpt-5-1-codex-2025-11-13",
        "converse/jp.anthropic.claude-haiku-4-5-20251001-v1:0"}) {
    EXPECT_NE(bundled.price(model), nullptr) << model;
  }
}

TEST(BundledPricesTest, EveryModelInTheRealClaudeLogsFindsAPrice) {
  BRIMLOG_REQUIRE_REAL_FIXTURES(fixtures);
  const PriceTable bundled = PriceTable::bundled();
  std::set<std::string> models;
  for (const auto& entry : std::filesystem::directory_iterator(fixtures / "claude")) {
    for (PaddedLine line : JSONLTail::read(entry.path(), std::nullopt, 1 << 24).lines) {
      if (auto event = ClaudeLogParser::event(line)) models.insert(event->model);
    }
  }
  EXPECT_GE(models.size(), 5u);
  for (const auto& model : models) EXPECT_NE(bundled.price(model), nullptr) << model;
}

}  // namespace
}  // namespace brimlog
