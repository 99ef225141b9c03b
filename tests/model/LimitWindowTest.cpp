#include <gtest/gtest.h>

#include <cmath>

#include "model/LimitWindow.hpp"
#include "support/LimitsPrinting.hpp"

namespace brimlog {
namespace {

const Date kReset = dateFromUnixSeconds(1'750'000'000);

LimitWindow window(double used, std::optional<Date> resetsAt = kReset) {
  return {"session", "Session", used, 18000.0, resetsAt, LimitSource::live()};
}

// (The constructor's clamp of shares out of 0...1 shows in CodexLogParserTest's windows.)
TEST(LimitWindowTest, AWindowCountsAsResetFromItsResetTimeOn) {
  EXPECT_EQ(window(std::nan("")).usedFraction, 0.0);
  const LimitWindow w = window(0.6);
  EXPECT_FALSE(w.isReset(kReset - Seconds{1}));
  EXPECT_EQ(w.effectiveUsedFraction(kReset - Seconds{1}), 0.6);
  EXPECT_TRUE(w.isReset(kReset));
  EXPECT_EQ(w.effectiveUsedFraction(kReset), 0.0);

  const LimitWindow unknown = window(0.6, std::nullopt);
  EXPECT_FALSE(unknown.isReset(kReset));
  EXPECT_EQ(unknown.effectiveUsedFraction(kReset + Seconds{1e9}), 0.6);
}

// Stored records are read as they were written. (The stored form itself, sources included, is
// ProviderLimitsTest's; keys a later version adds are ignored as JsonTest shows for one case.)
TEST(LimitWindowTest, DecodingKeepsStoredSharesAndAcceptsANullLength) {
  Json stored = window(0.5).toJson(DateForm::referenceSeconds);
  stored["usedFraction"] = 1.7;
  stored["duration"] = nullptr;
  const LimitWindow decoded = LimitWindow::fromJson(stored, DateForm::referenceSeconds);
  EXPECT_EQ(decoded.usedFraction, 1.7);
  EXPECT_FALSE(decoded.duration);
  EXPECT_EQ(decoded.resetsAt, kReset);
}

}  // namespace
}  // namespace brimlog
