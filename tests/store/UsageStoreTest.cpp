#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <thread>

#include "store/StoreSQL.hpp"
#include "store/UsageStore.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

Date at(const char* text) { return *parseISO8601(text); }

UsageEvent event(std::string key, const char* timestamp, TokenCounts tokens = {1, 0, 0, 0, 1, 0},
                 std::optional<double> reported = std::nullopt, std::string session = "s1",
                 std::string model = "m1", ProviderID provider = ProviderID::claude) {
  return {provider, std::move(model), std::move(session), std::move(key), at(timestamp),
          tokens,   reported};
}

using testing::RawDatabase;

class UsageStoreTest : public testing::TempDirTest {
 protected:
  std::filesystem::path dbPath() const { return dir() / "usage.db"; }
  const Calendar utc = Calendar::utc();
};

TEST_F(UsageStoreTest, CreatesTheFiveTablesAndTheSchemaVersion) {
  { UsageStore store{dbPath()}; }
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("PRAGMA user_version"), ElementsAre("1"));
  EXPECT_THAT(raw.rows("PRAGMA journal_mode"), ElementsAre("wal"));
  EXPECT_THAT(raw.rows("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"),
              ElementsAre("cursors", "daily", "limits", "seen", "sessions"));
  const auto columns = [&](const char* table) {
    return raw.rows(
        std::string("SELECT name || ':' || type || ':' || pk FROM pragma_table_info('") + table +
        "')");
  };
  EXPECT_THAT(columns("seen"), ElementsAre("key:TEXT:1", "day:TEXT:0"));
  EXPECT_THAT(columns("daily"),
              ElementsAre("provider:TEXT:1", "model:TEXT:2", "day:TEXT:3", "uncached:INTEGER:0",
                          "cache_read:INTEGER:0", "w5m:INTEGER:0", "w1h:INTEGER:0",
                          "output:INTEGER:0", "reasoning:INTEGER:0", "reported_usd:REAL:0"));
  EXPECT_THAT(columns("sessions"),
              ElementsAre("provider:TEXT:1", "session_id:TEXT:2", "day:TEXT:0"));
  EXPECT_THAT(columns("cursors"), ElementsAre("path:TEXT:1", "json:TEXT:0"));
  EXPECT_THAT(columns("limits"), ElementsAre("provider:TEXT:1", "json:TEXT:0"));
}

std::string contents(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Another program's database, or one of a newer Brimlog, is refused and left as it was; an empty
// file and a database of ours written before it carried the id are taken.
TEST_F(UsageStoreTest, OpensOnlyItsOwnDatabases) {
  struct Row {
    const char* name;
    std::string setup;    // run on the file first
    const char* refusal;  // the message's tail, or nothing when the file is taken
  };
  const std::vector<Row> rows = {
      {"empty file", "", nullptr},
      {"another program's tables", "CREATE TABLE other(x)", " is not a Brimlog database"},
      {"our tables beside others", std::string(sql::kSchema) + "CREATE TABLE other(x);",
       " is not a Brimlog database"},
      {"another program's id", "PRAGMA application_id = 7", " is not a Brimlog database"},
      {"a newer schema", std::string(sql::kSchema) + "PRAGMA user_version = 2;",
       " was written by a newer Brimlog (schema 2); this one reads up to schema 1"},
      {"ours before the id", std::string(sql::kSchema) + "PRAGMA user_version = 1;", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(dbPath());
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(dbPath().c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db, row.setup.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    const std::string before = contents(dbPath());
    if (!row.refusal) {
      { UsageStore store{dbPath()}; }
      RawDatabase raw{dbPath()};
      EXPECT_THAT(raw.rows("PRAGMA application_id"),
                  ElementsAre(std::to_string(UsageStore::applicationId)));
      EXPECT_THAT(raw.rows("PRAGMA user_version"), ElementsAre("1"));
      continue;
    }
    for (bool readOnly : {false, true}) {
      try {
        UsageStore store{dbPath(), {.readOnly = readOnly}};
        ADD_FAILURE() << "opened";
      } catch (const UsageStoreError& error) {
        EXPECT_EQ(std::string(error.what()), dbPath().string() + row.refusal);
      }
    }
    EXPECT_TRUE(contents(dbPath()) == before) << "the file was changed";
    EXPECT_FALSE(std::filesystem::exists(dbPath().string() + "-wal"));
  }
}

// A second writer waits for the first; past the wait, the error names the file, what was being
// done, SQLite's reason and what to do.
TEST_F(UsageStoreTest, ABusyDatabaseIsWaitedForThenReportedPlainly) {
  { UsageStore create{dbPath()}; }
  auto blocker = std::make_unique<RawDatabase>(dbPath());
  ASSERT_EQ(blocker->exec("BEGIN IMMEDIATE"), SQLITE_OK);
  std::thread release{[&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    blocker->exec("COMMIT");
  }};
  UsageStore waiting{dbPath()};
  EXPECT_EQ(waiting.ingest(std::vector{event("a", "2025-03-01T10:00:00Z")}, utc), 1);
  release.join();

  ASSERT_EQ(blocker->exec("BEGIN IMMEDIATE"), SQLITE_OK);
  UsageStore impatient{dbPath(), {.busyTimeout = 0.05}};
  try {
    impatient.ingest(std::vector{event("b", "2025-03-01T10:00:00Z")}, utc);
    ADD_FAILURE() << "wrote past the lock";
  } catch (const UsageStoreError& error) {
    EXPECT_EQ(std::string(error.what()),
              dbPath().string() +
                  ": cannot save the new replies: database is locked. Another program is "
                  "writing to it (a second brimlog sync?); try again when it is done.");
  }
  blocker->exec("ROLLBACK");
}

TEST_F(UsageStoreTest, EveryKeyIsCountedOnceAcrossAndWithinBatches) {
  UsageStore store{dbPath()};
  const std::vector<UsageEvent> batch = {
      event("a", "2025-03-01T10:00:00Z", {10, 1, 2, 3, 4, 5}),
      event("b", "2025-03-01T11:00:00Z", {1, 1, 1, 1, 1, 1}),
      event("a", "2025-03-01T12:00:00Z", {100, 100, 100, 100, 100, 100}),  // a repeat within
  };
  EXPECT_EQ(store.ingest(batch, utc), 2);
  EXPECT_EQ(store.ingest(batch, utc), 0);
  // A different provider, model and day do not make a known key new.
  EXPECT_EQ(store.ingest(std::vector{event("b", "2025-04-01T00:00:00Z", {9, 9, 9, 9, 9, 9}, 1.0,
                                           "s9", "m9", ProviderID::codex)},
                         utc),
            0);
  EXPECT_EQ(store.ingest(std::vector<UsageEvent>{}, utc), 0);

  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT * FROM daily"),
              ElementsAre("claude|m1|2025-03-01|11|2|3|4|5|6|NULL"));
  EXPECT_THAT(raw.rows("SELECT * FROM sessions"), ElementsAre("claude|s1|2025-03-01"));
  EXPECT_THAT(raw.rows("SELECT key, day FROM seen ORDER BY key"),
              ElementsAre("a|2025-03-01", "b|2025-03-01"));
}

TEST_F(UsageStoreTest, ABatchLeavesTheSameRowsAsItsEventsOneByOne) {
  const std::vector<UsageEvent> events = {
      event("1", "2025-03-02T10:00:00Z", {1, 2, 3, 4, 5, 6}, std::nullopt, "s1", "m1"),
      event("2", "2025-03-01T10:00:00Z", {1, 1, 1, 1, 1, 1}, 0.1, "s2", "m2", ProviderID::grok),
      event("3", "2025-03-02T11:00:00Z", {7, 0, 0, 0, 7, 0}, std::nullopt, "s1", "m1"),
      event("4", "2025-03-01T11:00:00Z", {1, 1, 1, 1, 1, 1}, 0.2, "s2", "m2", ProviderID::grok),
      event("5", "2025-03-01T12:00:00Z", {2, 0, 0, 0, 0, 0}, std::nullopt, "s2", "m2",
            ProviderID::grok),
      event("1", "2025-03-03T10:00:00Z", {9, 9, 9, 9, 9, 9}),  // a repeat: ignored
      event("6", "2025-03-01T09:00:00Z", {3, 0, 0, 0, 3, 0}, 0.3, "s1", "m1"),
      event("7", "2025-02-28T09:00:00Z", {0, 0, 0, 0, 0, 0}, std::nullopt, "s1", "m3"),
  };
  UsageStore batched{dir() / "batched.db"};
  UsageStore single{dir() / "single.db"};
  EXPECT_EQ(batched.ingest(events, utc), 7);
  for (const UsageEvent& e : events) single.ingest(std::vector{e}, utc);
  RawDatabase a{dir() / "batched.db"};
  RawDatabase b{dir() / "single.db"};
  for (const char* query :
       {"SELECT rowid, * FROM daily ORDER BY rowid", "SELECT rowid, * FROM sessions ORDER BY rowid",
        "SELECT rowid, * FROM seen ORDER BY rowid"}) {
    EXPECT_EQ(a.rows(query), b.rows(query)) << query;
  }
  EXPECT_THAT(a.rows("SELECT provider, model, day, reported_usd FROM daily ORDER BY rowid"),
              ElementsAre("claude|m1|2025-03-02|NULL", "grok|m2|2025-03-01|0.3",
                          "claude|m1|2025-03-01|0.3", "claude|m3|2025-02-28|NULL"));
  EXPECT_THAT(a.rows("SELECT session_id, day FROM sessions ORDER BY rowid"),
              ElementsAre("s1|2025-02-28", "s2|2025-03-01"));
}

TEST_F(UsageStoreTest, ReportedCostsStayNullUntilOneIsReported) {
  UsageStore store{dbPath()};
  RawDatabase raw{dbPath()};
  const auto reported = [&] { return raw.rows("SELECT reported_usd FROM daily"); };
  store.ingest(std::vector{event("1", "2025-03-01T01:00:00Z")}, utc);
  EXPECT_THAT(reported(), ElementsAre("NULL"));
  store.ingest(std::vector{event("2", "2025-03-01T02:00:00Z", {}, 0.25)}, utc);
  EXPECT_THAT(reported(), ElementsAre("0.25"));
  store.ingest(
      std::vector{event("3", "2025-03-01T03:00:00Z"), event("4", "2025-03-01T04:00:00Z", {}, 0.5)},
      utc);
  EXPECT_THAT(reported(), ElementsAre("0.75"));
}

TEST_F(UsageStoreTest, ASessionKeepsItsEarliestDay) {
  UsageStore store{dbPath()};
  store.ingest(std::vector{event("x", "2025-03-02T10:00:00Z")}, utc);
  store.ingest(std::vector{event("y", "2025-03-01T10:00:00Z")}, utc);
  store.ingest(std::vector{event("z", "2025-03-05T10:00:00Z")}, utc);
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT day FROM sessions"), ElementsAre("2025-03-01"));
}

TEST_F(UsageStoreTest, DaysAreLocalToTheCalendar) {
  const Calendar ny = *Calendar::named("America/New_York");
  UsageStore store{dbPath()};
  store.ingest(
      std::vector{event("late", "2025-03-10T03:59:59Z"), event("early", "2025-03-10T04:00:01Z")},
      ny);
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT day, uncached FROM daily ORDER BY day"),
              ElementsAre("2025-03-09|1", "2025-03-10|1"));
}

TEST_F(UsageStoreTest, AFailingStatementRollsTheWholeBatchBack) {
  const FileCursor cursor{"/logs/a.jsonl", 7, 100, {{"provider", "claude"}}};
  {
    UsageStore store{dbPath()};
    store.ingest(std::vector{event("before", "2025-03-01T10:00:00Z")}, utc);
  }
  RawDatabase raw{dbPath()};
  ASSERT_EQ(raw.exec("CREATE TRIGGER refuse BEFORE INSERT ON daily WHEN NEW.model = 'explode' "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END"),
            SQLITE_OK);
  const auto everything = [&] {
    std::vector<std::string> all;
    for (const char* table : {"seen", "daily", "sessions", "cursors"}) {
      for (auto& row : raw.rows(std::string("SELECT * FROM ") + table)) all.push_back(row);
    }
    return all;
  };
  const auto before = everything();

  UsageStore store{dbPath()};
  const std::vector<UsageEvent> batch = {
      event("new", "2025-03-02T10:00:00Z", {5, 5, 5, 5, 5, 5}, 1.0, "s2"),
      event("boom", "2025-03-02T11:00:00Z", {}, std::nullopt, "s3", "explode"),
  };
  try {
    store.ingest(batch, utc, std::vector{cursor});
    FAIL() << "the batch was accepted";
  } catch (const UsageStoreError& error) {
    EXPECT_EQ(error.code(), SQLITE_CONSTRAINT);
    EXPECT_EQ(error.message(), "refused");
  }
  EXPECT_EQ(everything(), before);
  EXPECT_FALSE(store.cursor(cursor.path));

  // The same store goes on working, and the events are new on the next try.
  ASSERT_EQ(raw.exec("DROP TRIGGER refuse"), SQLITE_OK);
  EXPECT_EQ(store.ingest(batch, utc, std::vector{cursor}), 2);
  EXPECT_EQ(store.cursor(cursor.path), cursor);
}

TEST_F(UsageStoreTest, CursorsAreStoredReplacedAndReadBackInOneQuery) {
  UsageStore store{dbPath()};
  EXPECT_FALSE(store.cursor("/nowhere"));
  FileCursor cursor{"/logs/a.jsonl", 42, 1024, {{"provider", "codex"}, {"model", "gpt-5"}}};
  store.save(cursor);
  EXPECT_EQ(store.cursor(cursor.path), cursor);
  cursor.offset = 2048;
  store.save(cursor);
  EXPECT_EQ(store.cursor(cursor.path), cursor);

  const FileCursor other{"/logs/b.jsonl", 1, 0, {}};
  store.ingest(std::vector<UsageEvent>{}, utc, std::vector{other});
  RawDatabase raw{dbPath()};
  raw.exec("INSERT INTO cursors VALUES('/logs/broken', '{\"path\":1}')");
  EXPECT_THAT(store.allCursors(), ElementsAre(Pair(cursor.path, cursor), Pair(other.path, other)));
  EXPECT_THROW(store.cursor("/logs/broken"), JsonDecodeError);
}

TEST_F(UsageStoreTest, ResettingAProviderKeepsForeignAndUndecodableCursors) {
  UsageStore store{dbPath()};
  store.save({"/c1", 1, 10, {{"provider", "codex"}}});
  store.save({"/c2", 2, 20, {{"provider", "codex"}, {"session", "s"}}});
  store.save({"/k1", 3, 30, {{"provider", "claude"}}});
  store.save({"/n1", 4, 40, {}});
  store.save({"/u1", 5, 50, {{"provider", "Codex"}}});
  RawDatabase raw{dbPath()};
  raw.exec("INSERT INTO cursors VALUES('/bad', 'not json')");
  // Stored under one path, naming another: the row's own path is the one deleted.
  raw.exec(R"(INSERT INTO cursors VALUES('/moved', '{"path":"/elsewhere","inode":1,"offset":0,)"
           R"("context":{"provider":"codex"}}'))");
  store.resetCursors(ProviderID::codex);
  EXPECT_THAT(raw.rows("SELECT path FROM cursors ORDER BY path"),
              ElementsAre("/bad", "/k1", "/n1", "/u1"));
}

TEST_F(UsageStoreTest, LimitsRoundTripWithDatesAsSecondsSince2001) {
  UsageStore store{dbPath()};
  EXPECT_FALSE(store.limits(ProviderID::codex));
  ProviderLimits limits;
  limits.plan = "Plus";
  limits.windows = {{"session", "Session", 0.4, 18000.0, at("2025-03-01T15:00:00.5Z"),
                     LimitSource::local(at("2025-03-01T10:00:00.25Z"))}};
  limits.fetchedAt = at("2025-03-01T10:00:00.25Z");
  store.setLimits(limits, ProviderID::codex);
  EXPECT_EQ(store.limits(ProviderID::codex), limits);
  EXPECT_FALSE(store.limits(ProviderID::claude));

  RawDatabase raw{dbPath()};
  const Json stored = json::parse(raw.rows("SELECT json FROM limits")[0]);
  EXPECT_EQ(stored["fetchedAt"], 762516000.25);
  raw.exec("UPDATE limits SET json = '{\"windows\":[]}'");
  EXPECT_THROW(store.limits(ProviderID::codex), JsonDecodeError);
}

TEST_F(UsageStoreTest, PruningKeepsTheCutoffDayCursorsAndLimits) {
  UsageStore store{dbPath()};
  store.ingest(std::vector{event("old", "2025-03-09T23:59:59Z", {}, std::nullopt, "s-old"),
                           event("keep", "2025-03-10T00:00:00Z", {}, std::nullopt, "s-keep")},
               utc);
  store.save({"/c", 1, 1, {}});
  ProviderLimits limits;
  store.setLimits(limits, ProviderID::grok);
  store.prune(at("2025-03-10T18:00:00Z"), utc);

  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT day FROM daily"), ElementsAre("2025-03-10"));
  EXPECT_THAT(raw.rows("SELECT session_id FROM sessions"), ElementsAre("s-keep"));
  EXPECT_THAT(raw.rows("SELECT key FROM seen"), ElementsAre("keep"));
  EXPECT_EQ(raw.rows("SELECT COUNT(*) FROM cursors")[0], "1");
  EXPECT_EQ(raw.rows("SELECT COUNT(*) FROM limits")[0], "1");
  // A pruned key counts again when its line is read again.
  EXPECT_EQ(store.ingest(std::vector{event("old", "2025-03-09T23:59:59Z")}, utc), 1);
}

TEST_F(UsageStoreTest, InMemoryStoresArePrivate) {
  UsageStore first{dir() / ":memory:"};
  first.ingest(std::vector{event("a", "2025-03-01T00:00:00Z")}, utc);
  first.save({"/c", 1, 1, {}});
  UsageStore second{":memory:"};
  EXPECT_FALSE(second.cursor("/c"));
  EXPECT_EQ(second.ingest(std::vector{event("a", "2025-03-01T00:00:00Z")}, utc), 1);
  EXPECT_FALSE(std::filesystem::exists(dir() / ":memory:"));
}

TEST_F(UsageStoreTest, FilesThatAreNotDatabasesOrAreLockedFailWithSQLitesWords) {
  write("not.db", std::string(4096, 'x'));
  try {
    UsageStore store{dir() / "not.db"};
    FAIL() << "opened a file that is not a database";
  } catch (const UsageStoreError& error) {
    EXPECT_EQ(error.code(), SQLITE_NOTADB);
    EXPECT_EQ(error.message(), "file is not a database");
  }
  try {
    UsageStore store{dir() / "missing" / "usage.db"};
    FAIL() << "opened a database in a missing folder";
  } catch (const UsageStoreError& error) {
    EXPECT_EQ(error.code(), SQLITE_CANTOPEN);
  }

  UsageStore store{dbPath()};
  RawDatabase other{dbPath()};
  ASSERT_EQ(other.exec("BEGIN IMMEDIATE"), SQLITE_OK);
  try {
    store.ingest(std::vector{event("a", "2025-03-01T00:00:00Z")}, utc);
    FAIL() << "wrote past another writer's lock";
  } catch (const UsageStoreError& error) {
    EXPECT_EQ(error.code(), SQLITE_BUSY);
    EXPECT_EQ(error.message(), "database is locked");
  }
  ASSERT_EQ(other.exec("COMMIT"), SQLITE_OK);
  EXPECT_EQ(store.ingest(std::vector{event("a", "2025-03-01T00:00:00Z")}, utc), 1);
}

TEST_F(UsageStoreTest, TheStatementsInTheBinaryAreTheFilesBesideTheStore) {
  const std::filesystem::path store =
      std::filesystem::path(BRIMLOG_SOURCE_DIR) / "BrimlogCore" / "store";
  const auto fileText = [&](const char* name) {
    std::string text = testing::readFile(store / name);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  };
  EXPECT_EQ(sql::kSchema, fileText("schema.sql"));
  EXPECT_EQ(sql::kDailyUpsert, fileText("daily_upsert.sql"));
  EXPECT_EQ(sql::kSessionUpsert, fileText("session_upsert.sql"));
  EXPECT_EQ(sql::kSummaryUsage, fileText("summary_usage.sql"));
  EXPECT_EQ(sql::kSummarySessions, fileText("summary_sessions.sql"));
  EXPECT_TRUE(sql::kSchema.starts_with("CREATE TABLE IF NOT EXISTS seen("));
  EXPECT_TRUE(sql::kSchema.ends_with("json TEXT NOT NULL);"));
}

}  // namespace
}  // namespace brimlog
