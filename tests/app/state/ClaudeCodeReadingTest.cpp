#include <gtest/gtest.h>

#include "state/ClaudeCodeReading.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

const Date kNow = *parseISO8601("2026-11-20T12:00:00Z");

ClaudeCodeReading reading(Date at, double used) {
  return {at,
          {LimitWindow{"session", "Session", used, 18000, kNow + Seconds{3600},
                       LimitSource::local(at)}}};
}

class ClaudeCodeReadingTest : public testing::TempDirTest {};

// Only new figures are written, and only a newer reading replaces what is stored; the stored
// plan and credits stay, since Claude Code does not report them.
TEST_F(ClaudeCodeReadingTest, ANewerReadingReplacesTheStoredLimitsAndOnlyNewFiguresAreWritten) {
  EXPECT_TRUE(reading(kNow, 0.4).handOver(dir()));
  EXPECT_FALSE(reading(kNow + Seconds{30}, 0.4).handOver(dir()));
  EXPECT_TRUE(reading(kNow + Seconds{60}, 0.5).handOver(dir()));
  ASSERT_TRUE(ClaudeCodeReading::read(dir()));
  EXPECT_EQ(ClaudeCodeReading::read(dir())->windows, reading(kNow + Seconds{60}, 0.5).windows);

  ProviderLimits stored;
  stored.plan = "Max 5x";
  stored.fetchedAt = kNow + Seconds{10};
  EXPECT_FALSE(reading(kNow, 0.4).over(stored)) << "an older reading replaced a newer fetch";
  const std::optional<ProviderLimits> taken = reading(kNow + Seconds{60}, 0.5).over(stored);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->plan, "Max 5x");
  EXPECT_EQ(taken->fetchedAt, kNow + Seconds{60});
  EXPECT_EQ(taken->status, ProviderStatus::ok);
  EXPECT_FALSE((ClaudeCodeReading{kNow, {}}.over(std::nullopt))) << "no windows, nothing to take";

  write(std::string(ClaudeCodeReading::fileName), "{\"readAt\":");
  EXPECT_FALSE(ClaudeCodeReading::read(dir()));
}

}  // namespace
}  // namespace brimlog
