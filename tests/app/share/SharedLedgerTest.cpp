#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "share/PgConnection.hpp"
#include "share/SharedLedger.hpp"
#include "store/UsageStore.hpp"
#include "support/PostgresCluster.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

UsageEvent reply(const std::string& key, const char* at, int64_t output, std::string session,
                 ProviderID provider = ProviderID::claude) {
  return {provider,     "claude-sonnet-4-5", std::move(session),
          key,          *parseISO8601(at),   TokenCounts{100, 0, 0, 0, output, 0},
          std::nullopt, "/work/tab\there"};
}

class SharedLedgerTest : public testing::PostgresTest {
 protected:
  const LedgerFilter march{
      *parseISO8601("2025-03-01T00:00:00Z"), *parseISO8601("2025-04-01T00:00:00Z"), {}, {}};
  const Calendar berlin = *Calendar::named("Europe/Berlin");
};

// Two machines' ledgers read back from the shared one exactly as each machine reads its own,
// and together as their sum; sharing again sends only the days that changed since.
TEST_F(SharedLedgerTest, EachMachineSharesItsChangedDaysAndReportsReadThemBackExactly) {
  UsageStore laptop{dir() / "laptop.db"}, desk{dir() / "desk.db"};
  laptop.ingest(std::vector{reply("a1", "2025-03-01T22:59:00Z", 10, "s1"),
                            reply("a2", "2025-03-02T09:00:00Z", 20, "s1"),
                            reply("a3", "2025-03-09T09:00:00Z", 30, "s2", ProviderID::codex)});
  // The same session id on another machine is another session.
  desk.ingest(std::vector{reply("b1", "2025-03-02T10:00:00Z", 40, "s1")});
  LimitReading reading;
  reading.window = "weekly";
  reading.readAt = *parseISO8601("2025-03-02T10:00:00Z");
  reading.usedFraction = 0.4;
  desk.addReadings(std::vector{reading});

  SharedLedger shared{url};
  const ShareResult first = shared.share(laptop, "laptop", "ana");
  EXPECT_EQ(first.days, 3);
  EXPECT_EQ(first.usageRows, 3);
  EXPECT_EQ(first.sessions, 2);
  EXPECT_EQ(shared.share(desk, "desk", "").readings, 1);
  EXPECT_FALSE(shared.share(laptop, "laptop", "ana").sentAnything());

  SharedLedger laptopOnly{url, {.machine = "laptop"}}, ana{url, {.user = "ana"}};
  EXPECT_EQ(laptopOnly.days(march, berlin), laptop.days(march, berlin));
  EXPECT_EQ(ana.ledger(march).slots, laptop.ledger(march).slots);
  const LedgerDays all = shared.days(march, berlin);
  int64_t output = 0;
  for (const DayUsage& day : all.usage) output += day.tokens.output;
  EXPECT_EQ(output, 100);
  EXPECT_EQ(all.sessionTotals.front().count, 2);  // claude: s1 of each machine
  ASSERT_EQ(shared.machines().size(), 2u);
  EXPECT_EQ(ana.machines().front().machine, "laptop");

  // A reply that grew changes one day, which alone is sent again and replaces the one held.
  laptop.ingest(std::vector{reply("a2", "2025-03-02T09:00:00Z", 25, "s1")});
  const ShareResult again = shared.share(laptop, "laptop", "ana");
  EXPECT_EQ(again.days, 1);
  EXPECT_EQ(laptopOnly.days(march, berlin), laptop.days(march, berlin));

  PgConnection raw{url};
  raw.exec("UPDATE brimlog.schema_version SET version = 2");
  EXPECT_THAT([&] { SharedLedger{url}; }, ThrowsMessage<SharedLedgerError>(AllOf(
                                              HasSubstr("set up by a newer Brimlog (schema 2)"),
                                              ::testing::Not(HasSubstr(cluster->password())))));
}

}  // namespace
}  // namespace brimlog
