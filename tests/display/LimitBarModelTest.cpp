#include <gtest/gtest.h>

#include "display/LimitBarModel.hpp"

namespace brimlog {
namespace {

const Date kNow = dateFromUnixSeconds(1'793'275'200);

LimitBarModel bar(double used, std::optional<double> duration, std::optional<double> resetIn) {
  std::optional<Date> resetsAt;
  if (resetIn) resetsAt = kNow + Seconds{*resetIn};
  return {LimitWindow{"weekly", "Weekly", used, duration, resetsAt, LimitSource::live()}, kNow};
}

TEST(LimitBarModelTest, OnPaceFromFifteenPointsBelowToFivePointsAboveTheTimeGone) {
  // A quarter of the window's time is left: three quarters have gone.
  for (const auto& [used, pace] : {std::pair{0.5999, Pace::under},
                                   {0.6, Pace::onPace},
                                   {0.8, Pace::onPace},
                                   {0.8001, Pace::over}}) {
    EXPECT_EQ(bar(used, 1000, 250).pace, pace) << used;
  }
  const LimitBarModel week = bar(0.42, 604'800, 259'200);
  EXPECT_NEAR(*week.timeLeftFraction, 3.0 / 7, 1e-12);
  EXPECT_EQ(week.pace, Pace::under);
  EXPECT_EQ(week.percentLeftText + " " + *week.resetText, "58% 3d 0h");
  EXPECT_EQ(bar(0.2, 100, 5000).timeLeftFraction, 1.0);
}

TEST(LimitBarModelTest, APassedResetIsFullAndNoLengthOrResetGivesNoPace) {
  const LimitBarModel passed = bar(0.9, 18000, 0);
  EXPECT_EQ(passed, bar(0.3, std::nullopt, -1));
  EXPECT_EQ(passed.percentLeftText + " " + *passed.resetText, "100% now");
  EXPECT_EQ(passed.leftFraction, 1);

  const LimitBarModel noLength = bar(0.995, std::nullopt, 90);
  EXPECT_EQ(noLength.percentLeftText + " " + *noLength.resetText, "1% 1m");
  EXPECT_EQ(noLength.pace, Pace::unknown);
  EXPECT_EQ(bar(0.5, 0, 90).timeLeftFraction, std::nullopt);
  EXPECT_EQ(bar(0.25, 18000, std::nullopt).resetText, std::nullopt);
}

// What a bar says beyond its figures: how long ago a reset passed, its level, the age of an old
// reading and the forecast's line.
TEST(LimitBarModelTest, TellsPassedResetsLevelsAgesAndForecasts) {
  for (const auto& [resetIn, text] : {std::pair{-60.0, "now"},
                                      {-61.0, "reset 1 min ago"},
                                      {-20 * 3600.0 - 59, "reset 20 h ago"},
                                      {-3 * 86400.0, "reset 3 d ago"}}) {
    EXPECT_EQ(bar(0.9, 18000, resetIn).resetText, text) << resetIn;
  }
  for (const auto& [used, level] : {std::pair{0.7999, LimitLevel::normal},
                                    {0.80, LimitLevel::warning},
                                    {0.9499, LimitLevel::warning},
                                    {0.95, LimitLevel::critical}}) {
    EXPECT_EQ(bar(used, 18000, 60).level, level) << used;
  }
  EXPECT_EQ(bar(0.99, 18000, -120).level, LimitLevel::normal);  // reset since

  EXPECT_EQ(LimitBarModel::ageText(kNow - Seconds{360}, kNow), std::nullopt);
  EXPECT_EQ(LimitBarModel::ageText(kNow - Seconds{3 * 3600 + 100}, kNow), "as of 3 h ago");

  // kNow is Thursday 2026-10-29 12:00 UTC.
  const LimitWindow week{"weekly",           "Weekly", 0.42, 604'800.0, kNow + Seconds{259'200},
                         LimitSource::live()};
  const Calendar utc = Calendar::utc();
  const LimitForecast early{"weekly", kNow, 0.01, kNow + Seconds{2 * 3600 + 600}, {}};
  EXPECT_EQ(LimitBarModel::forecastText(early, week, kNow, utc),
            "at this pace: runs out Thu 14:10, 2 d before the reset");
  const LimitForecast lasts{"weekly", kNow, 0.001, std::nullopt, {}};
  EXPECT_EQ(LimitBarModel::forecastText(lasts, week, kNow, utc),
            "at this pace: lasts until the reset");
  LimitWindow usedUp = week;
  usedUp.usedFraction = 1;
  EXPECT_EQ(LimitBarModel::forecastText(early, usedUp, kNow, utc), std::nullopt);
}

}  // namespace
}  // namespace brimlog
