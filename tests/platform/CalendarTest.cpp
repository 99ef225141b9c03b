#include <gtest/gtest.h>

#include <limits>

#include "platform/Calendar.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

TEST(CalendarTest, DaysStartAtLocalMidnightOrWhenAMidnightIsSkippedOrRepeatedInRange) {
  const Calendar ny = *Calendar::named("America/New_York");
  // Clocks went from 02:00 EST to 03:00 EDT on 2025-03-09.
  const Date saturday = ny.startOfDay(at("2025-03-08T15:00:00Z"));
  EXPECT_EQ(saturday, at("2025-03-08T05:00:00Z"));
  EXPECT_EQ(ny.addingDays(1, saturday), at("2025-03-09T05:00:00Z"));
  EXPECT_EQ(ny.addingDays(2, saturday), at("2025-03-10T04:00:00Z"));  // a 23-hour day between
  EXPECT_EQ(ny.addingDays(-1, at("2025-03-10T04:00:00Z")), at("2025-03-09T05:00:00Z"));
  EXPECT_EQ(ny.startOfDay(at("2025-03-09T20:00:00Z")), at("2025-03-09T05:00:00Z"));
  // A fraction of a second before midnight is still the day before.
  EXPECT_EQ(ny.dayKey(at("2025-03-10T03:59:59.9Z")), "2025-03-09");

  // A time of day that the target day skips moves forward by the gap.
  EXPECT_EQ(ny.addingDays(1, at("2025-03-08T07:30:00Z")), at("2025-03-09T07:30:00Z"));
  // The fraction of a second is kept.
  EXPECT_EQ(ny.addingDays(1, at("2025-03-08T05:00:00.25Z")), at("2025-03-09T05:00:00.25Z"));
  // Dates outside the calendar's range cannot be formed.
  EXPECT_FALSE(ny.addingDays(2'000'000'000, at("2025-01-01T00:00:00Z")));
  EXPECT_FALSE(ny.addingDays(1, dateFromUnixSeconds(std::numeric_limits<double>::infinity())));
  EXPECT_TRUE(ny.addingDays(3650, at("2025-01-01T00:00:00Z")));

  const Calendar saoPaulo = *Calendar::named("America/Sao_Paulo");
  // On 2018-11-04 clocks jumped from 00:00 (-03) to 01:00 (-02): midnight never happened.
  EXPECT_EQ(saoPaulo.startOfDay(at("2018-11-04T15:00:00Z")), at("2018-11-04T03:00:00Z"));
  const Date before = saoPaulo.startOfDay(at("2018-11-03T15:00:00Z"));
  EXPECT_EQ(before, at("2018-11-03T03:00:00Z"));
  EXPECT_EQ(saoPaulo.addingDays(1, before), at("2018-11-04T03:00:00Z"));
  EXPECT_EQ(saoPaulo.addingDays(2, before), at("2018-11-05T02:00:00Z"));
  EXPECT_EQ(saoPaulo.day(at("2018-11-04T03:00:00Z")), (CalendarDay{2018, 11, 4}));
  EXPECT_EQ(saoPaulo.day(at("2018-11-04T02:59:59Z")), (CalendarDay{2018, 11, 3}));
  // America/Havana fell back from 01:00 to 00:00 on 2023-11-05, so midnight came twice: the day
  // starts at the first.
  EXPECT_EQ(Calendar::named("America/Havana")->startOfDay(at("2023-11-05T15:00:00Z")),
            at("2023-11-05T04:00:00Z"));
}

// (Weekends are used only for the sample's figures, in UTC, which the drawn samples show.)
TEST(CalendarTest, DaysAndDayKeysAreLocalAndReadBackToTheStartOfTheirDay) {
  const Calendar tokyo = *Calendar::named("Asia/Tokyo");
  const Calendar la = *Calendar::named("America/Los_Angeles");
  const Date instant = at("2025-06-06T20:00:00Z");  // Saturday 05:00 in Tokyo, Friday 13:00 in LA
  EXPECT_EQ(tokyo.day(instant), (CalendarDay{2025, 6, 7}));
  EXPECT_EQ(la.dayKey(instant), "2025-06-06");
  EXPECT_EQ(Calendar::utc().day(at("1969-12-31T23:59:59.5Z")), (CalendarDay{1969, 12, 31}));
  // Day keys sort as text, so small years are padded.
  EXPECT_EQ(Calendar::utc().dayKey(at("0999-01-02T00:00:00Z")), "0999-01-02");

  // A day key read back names the same day, which starts as the zone says; the time of day is what
  // the local clock shows.
  EXPECT_EQ(CalendarDay::fromKey("2024-02-29"), (CalendarDay{2024, 2, 29}));
  for (const char* bad : {"2026-02-29", "2026-13-01", "2026-1-01", "2026-01-01 ", "20260101x",
                          "0000-01-01", "２026-01-01", ""}) {
    EXPECT_FALSE(CalendarDay::fromKey(bad)) << bad;
  }
  EXPECT_EQ(Calendar::named("Asia/Kathmandu")->startOfDay(CalendarDay{2026, 11, 23}),
            at("2026-11-22T18:15:00Z"));
  EXPECT_FALSE(Calendar::utc().startOfDay(CalendarDay{2026, 2, 30}));

  // 01:30 comes twice in New York on 2026-11-01; the clock shows it, not 2 h 30 min.
  const Calendar ny = *Calendar::named("America/New_York");
  EXPECT_EQ(ny.minuteOfDay(at("2026-11-01T06:30:59Z")), 90);
  EXPECT_EQ(Calendar::named("Asia/Kathmandu")->minuteOfDay(at("2026-11-22T18:14:00Z")), 1439);
}

TEST(CalendarTest, ZonesComeFromNamesOrATZValue) {
  EXPECT_FALSE(Calendar::named("Not/A_Zone"));
  EXPECT_EQ(Calendar::named("Europe/Paris")->zoneName(), "Europe/Paris");
  EXPECT_EQ(Calendar::utc().zoneName(), "UTC");

  EXPECT_EQ(Calendar::local("Asia/Tokyo").zoneName(), "Asia/Tokyo");
  EXPECT_EQ(Calendar::local(":Europe/Paris").zoneName(), "Europe/Paris");
  EXPECT_EQ(Calendar::local("/usr/share/zoneinfo/America/Sao_Paulo").zoneName(),
            "America/Sao_Paulo");
  EXPECT_EQ(Calendar::local("").zoneName(), "UTC");
}

}  // namespace
}  // namespace brimlog
