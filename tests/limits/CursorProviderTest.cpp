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
  EXPECT_EQ(cursor.id(), ProviderID::cursor);
  EXPECT_EQ(cursor.fetch(now),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now}));
  EXPECT_TRUE(cursor.usageEvents(dateFromUnixSeconds(-62'135'596'800)).empty());

  // Nothing passed in matters, not even its absence.
  CursorProvider bare{nullptr, nullptr, ""};
  EXPECT_EQ(bare.fetch(Date{}),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, Date{}}));
  EXPECT_TRUE(bare.usageEvents(now).empty());
}

}  // namespace
}  // namespace brimlog
