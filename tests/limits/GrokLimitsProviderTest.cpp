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
  EXPECT_EQ(grok.fetch(now),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));

  GrokLimitsProvider bare{nullptr, nullptr, ""};
  const Date later = now + Seconds{86400};
  EXPECT_EQ(bare.fetch(later),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, later}));
}

}  // namespace
}  // namespace brimlog
