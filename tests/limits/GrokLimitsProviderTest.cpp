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
  GrokLimitsProvider bare{nullptr, nullptr, ""};  // nothing passed in matters, not even its absence
  for (GrokLimitsProvider* provider : {&grok, &bare}) {
    EXPECT_EQ(provider->id(), ProviderID::grok);
    EXPECT_EQ(provider->fetch(now),
              (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));
  }
}

}  // namespace
}  // namespace brimlog
