#include <gtest/gtest.h>

#include "limits/CurlHTTPClient.hpp"
#include "limits/CursorProvider.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/StubCredentialSource.hpp"

namespace brimlog {
namespace {

TEST(CursorProviderTest, LimitsAreAlwaysUnavailableAndThereAreNoUsageEvents) {
  const Date now = dateFromUnixSeconds(1'750'000'000.5);
  CursorProvider cursor{std::make_shared<testing::StubCredentialSource>(),
                        std::make_shared<CurlHTTPClient>(), "/nonexistent/state.vscdb"};
  CursorProvider bare{nullptr, nullptr, ""};  // nothing passed in matters, not even its absence
  for (CursorProvider* provider : {&cursor, &bare}) {
    EXPECT_EQ(provider->id(), ProviderID::cursor);
    EXPECT_EQ(provider->fetch(now),
              (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));
    EXPECT_TRUE(provider->usageEvents(dateFromUnixSeconds(-62'135'596'800)).empty());
  }
}

}  // namespace
}  // namespace brimlog
