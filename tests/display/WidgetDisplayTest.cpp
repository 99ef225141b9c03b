#include <gtest/gtest.h>

#include "display/WidgetDisplay.hpp"

namespace brimlog {
namespace {

const Date kNow = dateFromUnixSeconds(1'793'275'200);
constexpr double kDay = 86'400;

Date in(double seconds) { return kNow + Seconds{seconds}; }

LimitWindow window(const char* id, double used = 0, std::optional<Date> resetsAt = {}) {
  return {id, id, used, 3600.0, resetsAt, LimitSource::live()};
}

std::string ids(const std::vector<LimitWindow>& windows) {
  std::string result;
  for (const auto& w : windows) result += w.id + " ";
  return result;
}

TEST(WidgetDisplayTest, StaleAfterHalfAnHourSayingHowLongAgoInTheLargestWholeUnit) {
  std::string texts;
  for (const double age : {-60.0, 1800.0, 1800.5, 3599.0, 7200.0, kDay, 7 * kDay - 1, 7 * kDay,
                           30 * kDay - 1, 150 * kDay, 365 * kDay}) {
    EXPECT_EQ(WidgetDisplay::isStale(in(-age), kNow), age > 1800) << age;
    texts += WidgetDisplay::staleText(in(-age), kNow).value_or("-") + " | ";
  }
  EXPECT_EQ(texts,
            "- | - | Updated 30 min. ago | Updated 59 min. ago | Updated 2 hr. ago | "
            "Updated 1 day ago | Updated 6 days ago | Updated 1 wk. ago | Updated 4 wk. ago | "
            "Updated 5 mo. ago | Updated 1 yr. ago | ");
}

TEST(WidgetDisplayTest, EntriesAndReloadsFollowTheSnapshotAndTheResets) {
  // Generated at kNow, with Claude resets 780 s and 3 days later and a Codex one after 142 h.
  const Snapshot p = Snapshot::placeholder();
  EXPECT_EQ(WidgetDisplay::entryDates(p, in(1800)), (std::vector{in(1800), in(1801)}));
  EXPECT_EQ(WidgetDisplay::entryDates(p, in(1801)), std::vector{in(1801)});
  // Without a snapshot: the first reload, and one entry now (TimelineProviderTest).
  const std::optional<ProviderID> all, codex = ProviderID::codex;
  const std::tuple<const char*, Date, std::optional<ProviderID>, Date> rows[] = {
      {"a reset in exactly 900 s", in(-120), all, in(780)},
      {"a reset right now", in(780), all, in(1680)},
      {"Codex alone", kNow, codex, in(900)},
      {"all resets passed", in(600'000), all, in(600'900)}};
  for (const auto& [why, now, only, reload] : rows) {
    EXPECT_EQ(WidgetDisplay::nextReload(p, now, only), reload) << why;
  }
}

TEST(WidgetDisplayTest, RowsShowTheTightestWindowsAndTheSmallWidgetSessionAndWeekly) {
  const std::vector abc = {window("A", 0.2, in(10)), window("B", 0.9, kNow), window("C", 0.5)};
  EXPECT_EQ(ids(WidgetDisplay::tightestWindows(abc, kNow, 2)), "A C ");
  EXPECT_EQ(ids(WidgetDisplay::tightestWindows(abc, kNow, 5)), "A B C ");
  EXPECT_EQ(ids(WidgetDisplay::tightestWindows({{window("X", 0.5), window("Y", 0.5)}}, kNow, 1)),
            "X ");

  const auto pick = [](std::vector<LimitWindow> windows) {
    return ids(WidgetDisplay::sessionAndWeekly(windows));
  };
  EXPECT_EQ(pick({window("weekly"), window("opus"), window("session")}), "session weekly ");
  EXPECT_EQ(pick({window("opus"), window("session"), window("session")}), "session opus ");
  EXPECT_EQ(pick({window("opus"), window("sonnet"), window("extra")}), "opus sonnet ");
  EXPECT_EQ(pick({window("weekly")}) + pick({}), "weekly ");
}

TEST(WidgetDisplayTest, LiveTimersBelowADayAndTheNotesOfRowsWithoutWindows) {
  std::string timers;
  for (const double remaining : {-5.0, 0.0, 0.5, kDay - 1, kDay}) {
    timers += WidgetDisplay::usesLiveTimer(remaining) ? "live " : "fixed ";
  }
  EXPECT_EQ(timers, "fixed fixed live live fixed ");
  // The same words as `brimlog sync` and `limits` use for a fetch, not a second set.
  EXPECT_EQ(WidgetDisplay::noLimitsNote(ProviderStatus::rateLimited), "rate limited");
  EXPECT_EQ(WidgetDisplay::noLimitsNote(ProviderStatus::signInNeeded), "sign-in needed");
  EXPECT_EQ(WidgetDisplay::noLimitsNote(ProviderStatus::ok), "no live limits");
}

}  // namespace
}  // namespace brimlog
