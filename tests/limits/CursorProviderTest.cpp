#include <gtest/gtest.h>

#include "limits/CurlHTTPClient.hpp"
#include "limits/CursorProvider.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/StubCredentialSource.hpp"

namespace brimlog {
namespace {

TEST(CursorProviderTest, LimitsAreAlwaysUnavailable) {
  const Date now = dateFromUnixSeconds(1'750'000'000.5);
  CursorProvider cursor{std::make_shared<testing::StubCredentialSource>(),
                        std::make_shared<CurlHTTPClient>(), "/nonexistent/state.vscdb"};
  EXPECT_EQ(cursor.id(), ProviderID::cursor);
  const ProviderLimits limits = cursor.fetch(now);
  EXPECT_EQ(limits,
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));

  // Its JSON says so, and reads back the same.
  const Json json = limits.toJson(DateForm::referenceSeconds);
  EXPECT_EQ(json.at("status"), Json::parse(R"({"unavailable":{}})"));
  EXPECT_EQ(json.at("windows"), Json::array());
  EXPECT_EQ(ProviderLimits::fromJson(json, DateForm::referenceSeconds), limits);

  // Nothing passed in matters, not even its absence.
  CursorProvider bare{nullptr, nullptr, ""};
  EXPECT_EQ(bare.fetch(Date{}),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, Date{}}));
}

TEST(CursorProviderTest, ThereAreNoUsageEvents) {
  const CursorProvider cursor{nullptr, nullptr, "state.vscdb"};
  EXPECT_TRUE(cursor.usageEvents(dateFromUnixSeconds(1'750'000'000)).empty());
  EXPECT_TRUE(cursor.usageEvents(dateFromUnixSeconds(-62'135'596'800)).empty());
  EXPECT_TRUE(cursor.usageEvents(Date{}).empty());
}

}  // namespace
}  // namespace brimlog
