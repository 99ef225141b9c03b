#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <thread>

#include "store/StoreSQL.hpp"
#include "store/UsageStore.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"

namespace brimlog {

// Failures show an error as its text rather than as bytes.
static void PrintTo(const UsageStoreError& error, std::ostream* out) { *out << error.what(); }

namespace {

using ::testing::ElementsAre;
using ::testing::Pair;
using testing::RawDatabase;

Date at(const char* text) { return *parseISO8601(text); }

UsageEvent event(std::string key, const char* timestamp, TokenCounts tokens = {1, 0, 0, 0, 1, 0},
                 std::optional<double> reported = std::nullopt, std::string session = "s1",
                 std::string model = "m1", ProviderID provider = ProviderID::claude) {
  return {provider,      std::move(model), std::move(session), std::move(key),
          at(timestamp), tokens,           reported,           ""};
}

// The error an operation failed with, if it did.
template <typename Operation>
std::optional<UsageStoreError> failure(Operation&& operation) {
  try {
    operation();
  } catch (const UsageStoreError& error) {
    return error;
  }
  return std::nullopt;
}

class UsageStoreTest : public testing::TempDirTest {
 protected:
  std::filesystem::path dbPath() const { return dir() / "usage.db"; }
  const Calendar utc = Calendar::utc();
};

// Another program's database, or one of a newer Brimlog, is refused and left as it was; an empty
// file (as good as none) and a database of ours written before it carried the id are taken. A
// file that is no database, or cannot be made, fails with SQLite's words.
TEST_F(UsageStoreTest, OpensOnlyItsOwnDatabases) {
  struct Row {
    const char* name;
    std::string setup;              // run on the file first
    const char* refusal;            // the message's tail, or nothing when the file is taken
    const char* pageSize = "4096";  // of a file that is taken: a new one's, or the one it had
  };
  const std::vector<Row> rows = {
      {"empty file", "", nullptr, "16384"},
      {"another program's tables", "CREATE TABLE other(x)", " is not a Brimlog database"},
      {"our tables beside others", std::string(sql::kSchema) + "CREATE TABLE other(x);",
       " is not a Brimlog database"},
      {"another program's id", "PRAGMA application_id = 7", " is not a Brimlog database"},
      {"a newer schema", std::string(sql::kSchema) + "PRAGMA user_version = 5;",
       " was written by a newer Brimlog (schema 5); this one reads up to schema 4"},
      {"ours before the id", std::string(sql::kSchema) + "PRAGMA user_version = 2;", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(dbPath());
    ASSERT_EQ(RawDatabase(dbPath()).exec(row.setup), SQLITE_OK);
    const std::string before = testing::readFile(dbPath());
    if (!row.refusal) {
      { UsageStore store{dbPath()}; }
      // The id, the schema version, the journal and the page size.
      EXPECT_THAT(RawDatabase(dbPath()).rows("SELECT * FROM pragma_application_id, "
                                             "pragma_user_version, pragma_journal_mode, "
                                             "pragma_page_size"),
                  ElementsAre(std::to_string(UsageStore::applicationId) + "|" +
                              std::to_string(UsageStore::schemaVersion) + "|wal|" + row.pageSize));
      continue;
    }
    for (bool readOnly : {false, true}) {
      const auto error = failure([&] { UsageStore store{dbPath(), {.readOnly = readOnly}}; });
      ASSERT_TRUE(error) << "opened";
      EXPECT_EQ(std::string(error->what()), dbPath().string() + row.refusal);
    }
    EXPECT_TRUE(testing::readFile(dbPath()) == before) << "the file was changed";
    EXPECT_FALSE(std::filesystem::exists(dbPath().string() + "-wal"));
  }

  EXPECT_EQ(failure([&] { UsageStore{write("not.db", std::string(4096, 'x'))}; }),
            UsageStoreError::sqlite(SQLITE_NOTADB, "file is not a database"));
  EXPECT_EQ(failure([&] { UsageStore{dir() / "missing" / "usage.db"}; }).value().code(),
            SQLITE_CANTOPEN);
  // A last component of ":memory:" opens a private database in memory, and no file.
  UsageStore first{dir() / ":memory:"};
  first.save({"/c", 1, 1, {}});
  EXPECT_FALSE(UsageStore{":memory:"}.cursor("/c"));
  EXPECT_FALSE(std::filesystem::exists(dir() / ":memory:"));
}

// A reply is counted once, with the largest counts any of its lines carried, in the slot it was
// first seen in: whether its lines come in one batch or one at a time.
TEST_F(UsageStoreTest, AReplyIsCountedOnceWithItsLargestCountsInItsFirstSlot) {
  const std::vector<UsageEvent> events = {
      event("1", "2025-03-02T10:00:00Z", {1, 2, 3, 4, 5, 6}, std::nullopt, "s1", "m1"),
      event("2", "2025-03-02T10:01:00Z", {1, 1, 1, 1, 1, 1}, 0.1, "s2", "m2", ProviderID::grok),
      // The reply grows while it streams, the last line in the next quarter hour.
      event("1", "2025-03-02T10:14:59Z", {1, 2, 3, 4, 9, 6}, std::nullopt, "s1", "m1"),
      event("1", "2025-03-02T10:15:30Z", {1, 2, 3, 4, 12, 6}, std::nullopt, "s1", "m1"),
      event("2", "2025-03-02T10:02:00Z", {1, 1, 1, 1, 1, 1}, 0.25, "s2", "m2", ProviderID::grok),
      // A smaller copy changes nothing; a reply without tokens still counts as a reply.
      event("1", "2025-03-02T10:16:00Z", {1, 2, 3, 4, 7, 6}, std::nullopt, "s1", "m1"),
      event("3", "2025-03-01T23:59:00Z", {0, 0, 0, 0, 0, 0}, std::nullopt, "s1", "m3"),
  };
  UsageStore batched{dir() / "batched.db"}, single{dir() / "single.db"};
  EXPECT_EQ(batched.ingest(events), 3);
  int64_t added = 0;
  for (const UsageEvent& e : events) added += single.ingest(std::vector{e});
  EXPECT_EQ(added, 3);
  RawDatabase a{dir() / "batched.db"}, b{dir() / "single.db"};
  for (const char* query :
       {"SELECT * FROM usage ORDER BY slot, session, model", "SELECT * FROM replies ORDER BY key",
        "SELECT * FROM sessions ORDER BY id"}) {
    EXPECT_EQ(a.rows(query), b.rows(query)) << query;
  }

  const LedgerRows rows =
      batched.ledger({at("2025-03-01T00:00:00Z"), at("2025-03-03T00:00:00Z"), {}, {}});
  const int64_t ten = slotOf(at("2025-03-02T10:00:00Z"));
  EXPECT_THAT(rows.slots,
              ElementsAre(LedgerSlot{slotOf(at("2025-03-01T23:45:00Z")), 1, "m3", {}, {}},
                          LedgerSlot{ten, 1, "m1", {1, 2, 3, 4, 12, 6}, {}},
                          LedgerSlot{ten, 2, "m2", {1, 1, 1, 1, 1, 1}, 0.25}));
  // The per-day quarter rows give the days the slot rows give, in any zone.
  for (const char* zone : {"UTC", "Asia/Kathmandu", "America/Los_Angeles"}) {
    const LedgerFilter span{at("2025-02-28T00:00:00Z"), at("2025-03-04T00:00:00Z"), {}, {}};
    const Calendar calendar = *Calendar::named(zone);
    EXPECT_EQ(batched.days(span, calendar), LedgerDays::of(batched.ledger(span), calendar)) << zone;
  }
  ASSERT_EQ(rows.sessions.size(), 2u);
  EXPECT_EQ(rows.sessions[0].firstReply, at("2025-03-01T23:59:00Z"));
  EXPECT_EQ(rows.sessions[0].lastReply, at("2025-03-02T10:16:00Z"));
  EXPECT_EQ(rows.sessions[1].provider, ProviderID::grok);
}

// A batch either is stored whole, with its cursors, or leaves nothing behind; either way the same
// store goes on working.
TEST_F(UsageStoreTest, ABatchIsStoredWholeOrNotAtAll) {
  const FileCursor cursor{"/logs/a.jsonl", 7, 100, {{"provider", "claude"}}};
  const std::vector<UsageEvent> batch = {
      event("new", "2025-03-02T10:00:00Z", {5, 5, 5, 5, 5, 5}, 1.0, "s2"),
      event("boom", "2025-03-02T11:00:00Z", {}, std::nullopt, "s3", "explode"),
  };
  UsageStore store{dbPath(), {.busyTimeout = 0.05}};
  RawDatabase raw{dbPath()};

  // Another program is writing: past the wait, the error names the file, what was being done,
  // SQLite's reason and what to do.
  ASSERT_EQ(raw.exec("BEGIN IMMEDIATE"), SQLITE_OK);
  const auto busy = failure([&] { store.ingest(batch, std::vector{cursor}); });
  ASSERT_TRUE(busy) << "wrote past the lock";
  EXPECT_EQ(*busy, UsageStoreError::sqlite(SQLITE_BUSY, "database is locked"));
  EXPECT_EQ(std::string(busy->what()),
            dbPath().string() +
                ": cannot save the new replies: database is locked. Another program is "
                "writing to it (a second brimlog sync?); try again when it is done.");
  ASSERT_EQ(raw.exec("ROLLBACK"), SQLITE_OK);

  // A statement fails part way through the batch.
  ASSERT_EQ(raw.exec("CREATE TRIGGER refuse BEFORE INSERT ON usage WHEN NEW.model = 'explode' "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END"),
            SQLITE_OK);
  EXPECT_EQ(failure([&] { store.ingest(batch, std::vector{cursor}); }),
            UsageStoreError::sqlite(SQLITE_CONSTRAINT, "refused"));
  // A batch that got partly written would leave rows in one of these tables.
  EXPECT_THAT(raw.rows("SELECT (SELECT COUNT(*) FROM replies), (SELECT COUNT(*) FROM usage), "
                       "(SELECT COUNT(*) FROM sessions), (SELECT COUNT(*) FROM cursors)"),
              ElementsAre("0|0|0|0"));
  ASSERT_EQ(raw.exec("DROP TRIGGER refuse"), SQLITE_OK);
  EXPECT_EQ(store.ingest(batch, std::vector{cursor}), 2);
  EXPECT_EQ(store.cursor(cursor.path), cursor);

  // A store with time to wait writes once the other program is done.
  ASSERT_EQ(raw.exec("BEGIN IMMEDIATE"), SQLITE_OK);
  std::jthread release{[&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    raw.exec("COMMIT");
  }};
  EXPECT_EQ(UsageStore{dbPath()}.ingest(std::vector{event("late", "2025-03-02T12:00:00Z")}), 1);
}

// Cursors are saved alone or with a batch, replaced per path, and read back together under the
// path they were stored under, leaving out rows that do not decode; they are reset per provider.
// Limits are kept per provider, their dates as seconds since 2001. Pruning drops the usage,
// replies and sessions before the cutoff's local day, and keeps cursors and limits.
TEST_F(UsageStoreTest, CursorsAndLimitsAreKeptBesideTheUsageThatIsPruned) {
  UsageStore store{dbPath()};
  FileCursor codex{"/c1", 42, 1024, {{"provider", "codex"}, {"model", "gpt-5"}}};
  store.save(codex);
  codex.offset = 2048;
  const FileCursor claude{"/k1", 3, 30, {{"provider", "claude"}}};
  const FileCursor none{"/n1", 4, 40, {}};
  const FileCursor upper{"/u1", 5, 50, {{"provider", "Codex"}}};
  store.ingest(std::vector{event("old", "2025-03-09T23:59:59Z", {}, std::nullopt, "s-old"),
                           event("keep", "2025-03-10T00:00:00Z", {}, std::nullopt, "s-keep")},
               std::vector{codex, claude, none, upper});
  RawDatabase raw{dbPath()};
  raw.exec("INSERT INTO cursors VALUES('/bad', '{\"path\":1}')");
  // Stored under one path, naming another: the row's own path is the one deleted.
  raw.exec(R"(INSERT INTO cursors VALUES('/moved', '{"path":"/elsewhere","inode":1,"offset":0,)"
           R"("context":{"provider":"codex"}}'))");
  EXPECT_THROW(store.cursor("/bad"), JsonDecodeError);
  EXPECT_THAT(store.allCursors(),
              ElementsAre(Pair("/c1", codex), Pair("/k1", claude), Pair("/moved", ::testing::_),
                          Pair("/n1", none), Pair("/u1", upper)));
  store.resetCursors(ProviderID::codex);
  const auto paths = [&] { return raw.rows("SELECT path FROM cursors ORDER BY path"); };
  EXPECT_THAT(paths(), ElementsAre("/bad", "/k1", "/n1", "/u1"));

  EXPECT_FALSE(store.limits(ProviderID::codex));
  const ProviderLimits limits{"Plus", {}, {}, ProviderStatus::ok, at("2025-03-01T10:00:00.25Z")};
  store.setLimits(limits, ProviderID::codex);
  EXPECT_FALSE(store.limits(ProviderID::claude));
  EXPECT_EQ(json::parse(raw.rows("SELECT json FROM limits")[0])["fetchedAt"], 762516000.25);

  store.prune(at("2025-03-10T18:00:00Z"), utc);
  EXPECT_THAT(raw.rows("SELECT slot FROM usage"),
              ElementsAre(std::to_string(slotOf(at("2025-03-10T00:00:00Z")))));
  EXPECT_THAT(raw.rows("SELECT session_id FROM sessions"), ElementsAre("s-keep"));
  EXPECT_THAT(raw.rows("SELECT key FROM replies"), ElementsAre("keep"));
  EXPECT_THAT(paths(), ElementsAre("/bad", "/k1", "/n1", "/u1"));
  EXPECT_EQ(store.limits(ProviderID::codex), limits);
  // A pruned key counts again when its line is read again.
  EXPECT_EQ(store.ingest(std::vector{event("old", "2025-03-09T23:59:59Z")}), 1);

  raw.exec("UPDATE limits SET json = '{\"windows\":[]}'");
  EXPECT_THROW(store.limits(ProviderID::codex), JsonDecodeError);
}

// A database of schema 1 kept day totals in the zone of each sync. It is migrated on first open:
// every cursor goes, so the logs are read again into slots, and a day total stands only for a day
// on which the logs left nothing of its tool.
TEST_F(UsageStoreTest, AnOlderDatabaseKeepsItsDayTotalsForDaysWhoseLogsAreGone) {
  // Day totals of two models on 1 March and of one on the 2nd, a session, a cursor and limits.
  ASSERT_EQ(RawDatabase(dbPath()).exec(testing::readFile(testing::dataPath("store/schema-1.sql"))),
            SQLITE_OK);
  // Only a program that may write brings it up to date.
  const auto readOnly = failure([&] { UsageStore{dbPath(), {.readOnly = true}}; });
  ASSERT_TRUE(readOnly);
  EXPECT_THAT(readOnly->what(),
              ::testing::HasSubstr("older Brimlog (schema 1); run `brimlog sync`"));
  UsageStore store{dbPath()};
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT (SELECT COUNT(*) FROM cursors), (SELECT COUNT(*) FROM limits), "
                       "(SELECT COUNT(*) FROM kept_days)"),
              ElementsAre("0|1|3"));
  // The logs of the second day are still there, and read again.
  store.ingest(std::vector{event("b", "2025-03-02T12:00:00Z", {7, 0, 0, 0, 7, 0})});

  const LedgerFilter span{at("2025-03-01T00:00:00Z"), at("2025-03-03T00:00:00Z"), {}, {}};
  const LedgerDays days = store.days(span, utc);
  EXPECT_EQ(days, LedgerDays::of(store.ledger(span), utc));
  EXPECT_THAT(
      days.usage,
      ElementsAre(DayUsage{ProviderID::claude, "m1", "2025-03-01", {10, 0, 0, 0, 5, 0}, {}, true},
                  DayUsage{ProviderID::claude, "m2", "2025-03-01", {1, 0, 0, 0, 1, 0}, {}, true},
                  DayUsage{ProviderID::claude, "m1", "2025-03-02", {7, 0, 0, 0, 7, 0}, {}, false}));
  EXPECT_THAT(days.sessions, ElementsAre(DaySessions{ProviderID::claude, "2025-03-01", 1},
                                         DaySessions{ProviderID::claude, "2025-03-02", 1}));
}

}  // namespace
}  // namespace brimlog

namespace brimlog {
namespace {

// Every write marks the UTC days it changed, and only those; a database of the schema before
// the marks counts every day it holds as changed.
TEST_F(UsageStoreTest, MarksTheDaysItWritesForSharing) {
  const auto days = [](const std::vector<ShareMark>& marks) {
    std::vector<std::pair<ShareKind, int64_t>> days;
    for (const ShareMark& m : marks) days.emplace_back(m.kind, m.day);
    return days;
  };
  const int64_t first = 20148, third = 20150;  // 2025-03-01, 2025-03-03
  {
    UsageStore store{dbPath()};
    store.ingest(
        std::vector{event("1", "2025-03-01T23:59:00Z"), event("2", "2025-03-03T01:00:00Z")});
    const std::vector<ShareMark> before = store.shareMarks();
    EXPECT_THAT(days(before),
                ElementsAre(Pair(ShareKind::usage, first), Pair(ShareKind::usage, third)));
    // The same counts again change nothing; a reply that grew changes its first day only.
    store.ingest(
        std::vector{event("1", "2025-03-01T23:59:00Z"), event("2", "2025-03-03T01:00:00Z")});
    EXPECT_EQ(store.shareMarks(), before);
    store.ingest(std::vector{event("1", "2025-03-02T00:01:00Z", {1, 0, 0, 0, 5, 0})});
    const std::vector<ShareMark> after = store.shareMarks();
    EXPECT_GT(after[0].mark, before[0].mark);
    EXPECT_EQ(after[1], before[1]);
    LimitReading reading;
    reading.window = "session";
    reading.readAt = at("2025-03-03T12:00:00Z");
    store.addReadings(std::vector{reading});
    EXPECT_THAT(days(store.shareMarks()),
                ElementsAre(Pair(ShareKind::limits, third), Pair(ShareKind::usage, first),
                            Pair(ShareKind::usage, third)));
  }
  ASSERT_EQ(RawDatabase(dbPath()).exec("DROP TABLE share_marks; PRAGMA user_version = 3;"),
            SQLITE_OK);
  UsageStore store{dbPath()};
  EXPECT_THAT(days(store.shareMarks()),
              ElementsAre(Pair(ShareKind::limits, third), Pair(ShareKind::usage, first),
                          Pair(ShareKind::usage, third)));
}

}  // namespace
}  // namespace brimlog
