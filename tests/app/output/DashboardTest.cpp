#include <gtest/gtest.h>

#include "output/Dashboard.hpp"
#include "support/ExpectedFile.hpp"

namespace brimlog {
namespace {

const Date kBase = *parseISO8601("2026-10-29T12:00:00Z");

// The sample snapshot drawn whole: plain at 80 columns, in colour, narrow, and half an hour old.
TEST(DashboardTest, DrawsTheSnapshotAsExpected) {
  const Calendar utc = Calendar::utc();
  const Snapshot& sample = Snapshot::placeholder();
  struct Row {
    const char* file;
    Dashboard dashboard;
    double age;
  };
  const Row rows[] = {
      {"dashboard-80.txt", {80, false}, 0},
      {"dashboard-color.txt", {80, true}, 0},
      {"dashboard-narrow.txt", {50, false}, 0},
      {"dashboard-stale.txt", {80, false}, 1801},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.file);
    EXPECT_TRUE(testing::matchesExpectedFile(
        row.file, row.dashboard.render(sample, kBase + Seconds{row.age}, utc)));
  }
}

TEST(DashboardTest, SparklinesScaleToTheLargestDay) {
  EXPECT_EQ(Dashboard::sparkline({0, 0, 0}), "▁▁▁");
  EXPECT_EQ(Dashboard::sparkline({1, 8, 4, 0.01}), "▁█▄▁");
  EXPECT_EQ(Dashboard::sparkline({}), "");
}

}  // namespace
}  // namespace brimlog
