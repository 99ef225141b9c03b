#include <gtest/gtest.h>

#include "limits/CurlHTTPClient.hpp"
#include "limits/GrokLimitsProvider.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/StubCredentialSource.hpp"

namespace brimlog {
namespace {

TEST(GrokLimitsProviderTest, LimitsAreAlwaysUnavailable) {
  const Date now = dateFromUnixSeconds(1'750'000'000.5);
  GrokLimitsProvider grok{std::make_shared<testing::StubCredentialSource>(),
                          std::make_shared<CurlHTTPClient>(), "/nonexistent/.grok"};
  EXPECT_EQ(grok.id(), ProviderID::grok);
  const ProviderLimits limits = grok.fetch(now);
  EXPECT_EQ(limits,
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));

  const Json json = limits.toJson(DateForm::iso8601);
  EXPECT_EQ(json.at("status"), Json::parse(R"({"unavailable":{}})"));
  EXPECT_EQ(json.at("windows"), Json::array());
  EXPECT_EQ(ProviderLimits::fromJson(limits.toJson(DateForm::referenceSeconds),
                                     DateForm::referenceSeconds),
            limits);

  GrokLimitsProvider bare{nullptr, nullptr, ""};
  const Date later = now + Seconds{86400};
  EXPECT_EQ(bare.fetch(later).fetchedAt, later);
  EXPECT_TRUE(bare.fetch(later).windows.empty());
}

}  // namespace
}  // namespace brimlog
