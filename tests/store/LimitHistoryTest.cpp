#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include "store/StoreSQL.hpp"
#include "store/UsageStore.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::ElementsAre;
using testing::RawDatabase;

const Date kStart = dateFromUnixSeconds(1'795'000'000);

LimitReading reading(double minute, double used, double resetMinute = 300,
                     const char* window = "session") {
  return {ProviderID::codex,
          window,
          kStart + Seconds{minute * 60},
          used,
          kStart + Seconds{resetMinute * 60},
          18000.0,
          LimitReading::Origin::log};
}

// "minute:used" of each reading, in the order read back.
std::vector<std::string> figures(const std::vector<LimitReading>& readings) {
  std::vector<std::string> result;
  for (const LimitReading& r : readings) {
    result.push_back(fmt::format("{}:{}", (r.readAt - kStart).count() / 60, r.usedFraction));
  }
  return result;
}

class LimitHistoryTest : public testing::TempDirTest {};

// A reading that says what the one before it in time said is not kept, in whatever order the
// readings arrive; a reset that moved by seconds is the same reset.
TEST_F(LimitHistoryTest, KeepsOnlyReadingsThatChangeSomething) {
  UsageStore store{dir() / "usage.db"};
  const std::vector<LimitReading> first = {reading(0, 0.1), reading(5, 0.1), reading(10, 0.2),
                                           reading(15, 0.2, 300.5)};
  EXPECT_EQ(store.addReadings(first), 2);
  // Arriving late: one between the stored ones that repeats its predecessor, one that does not,
  // one of a moment already stored, and the same figures after a new reset.
  const std::vector<LimitReading> late = {reading(7, 0.1), reading(8, 0.15), reading(10, 0.9),
                                          reading(20, 0.2, 600)};
  EXPECT_EQ(store.addReadings(late), 2);
  EXPECT_THAT(figures(store.readings({})), ElementsAre("0:0.1", "8:0.15", "10:0.2", "20:0.2"));

  // Stored limits add their fresh windows; stale ones and failed answers add nothing.
  ProviderLimits limits{
      std::nullopt,
      {{"session", "Session", 0.3, 18000.0, kStart + Seconds{18000}, LimitSource::live()},
       {"weekly", "Weekly", 0.9, 604800.0, std::nullopt, LimitSource::stale(kStart)}},
      std::nullopt,
      ProviderStatus::ok,
      kStart + Seconds{1800}};
  store.setLimits(limits, ProviderID::codex);
  limits.status = ProviderStatus::unreachable;
  limits.windows[0].usedFraction = 0.4;
  limits.fetchedAt += Seconds{60};
  store.setLimits(limits, ProviderID::codex);
  const std::vector<LimitReading> sessions =
      store.readings({.provider = ProviderID::codex, .window = "session"});
  EXPECT_EQ(sessions.back().origin, LimitReading::Origin::service);
  EXPECT_THAT(figures(sessions), ElementsAre("0:0.1", "8:0.15", "10:0.2", "20:0.2", "30:0.3"));
  EXPECT_TRUE(store.readings({.provider = ProviderID::codex, .window = "weekly"}).empty());

  // Pruning drops readings of days before the cutoff's, with the usage.
  store.prune(kStart + Seconds{86400 * 2}, Calendar::utc());
  EXPECT_TRUE(store.readings({}).empty());
}

// A database of the schema before the history gains its table and keeps everything else.
TEST_F(LimitHistoryTest, AnOlderDatabaseGainsTheHistory) {
  {
    RawDatabase raw{dir() / "usage.db"};
    ASSERT_EQ(raw.exec(std::string(sql::kSchema) +
                       "DROP TABLE limit_readings; INSERT INTO cursors VALUES('/a', '{}');"
                       "PRAGMA user_version = 2;"),
              SQLITE_OK);
  }
  UsageStore store{dir() / "usage.db"};
  EXPECT_EQ(store.addReadings(std::vector{reading(0, 0.1)}), 1);
  EXPECT_THAT(RawDatabase(dir() / "usage.db").rows("SELECT path FROM cursors"), ElementsAre("/a"));
}

}  // namespace
}  // namespace brimlog
