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
  return {provider, std::move(model), std::move(session), std::move(key), at(timestamp),
          tokens,   reported};
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
// file (as good as none) and a database of ours written before it carried the id are taken.
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
      {"a newer schema", std::string(sql::kSchema) + "PRAGMA user_version = 2;",
       " was written by a newer Brimlog (schema 2); this one reads up to schema 1"},
      {"ours before the id", std::string(sql::kSchema) + "PRAGMA user_version = 1;", nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(dbPath());
    ASSERT_EQ(RawDatabase(dbPath()).exec(row.setup), SQLITE_OK);
    const std::string before = testing::readFile(dbPath());
    if (!row.refusal) {
      { UsageStore store{dbPath()}; }
      RawDatabase raw{dbPath()};
      EXPECT_THAT(raw.rows("PRAGMA application_id"),
                  ElementsAre(std::to_string(UsageStore::applicationId)));
      EXPECT_THAT(raw.rows("PRAGMA user_version"), ElementsAre("1"));
      EXPECT_THAT(raw.rows("PRAGMA journal_mode"), ElementsAre("wal"));
      EXPECT_THAT(raw.rows("PRAGMA page_size"), ElementsAre(row.pageSize));
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
}

// A second writer waits for the first; past the wait, the error names the file, what was being
// done, SQLite's reason and what to do, and the store writes once the lock is gone.
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
  const auto ingestB = [&] {
    return impatient.ingest(std::vector{event("b", "2025-03-01T10:00:00Z")}, utc);
  };
  const auto error = failure(ingestB);
  ASSERT_TRUE(error) << "wrote past the lock";
  EXPECT_EQ(*error, UsageStoreError::sqlite(SQLITE_BUSY, "database is locked"));
  EXPECT_EQ(std::string(error->what()),
            dbPath().string() +
                ": cannot save the new replies: database is locked. Another program is "
                "writing to it (a second brimlog sync?); try again when it is done.");
  blocker->exec("ROLLBACK");
  EXPECT_EQ(ingestB(), 1);
}

// A batch sums its events before writing them. The rows must be what one event at a time leaves:
// each key counted once, within a batch and across batches; each counter in its own column;
// reported costs NULL until one is reported and then added in order; a session's earliest day.
TEST_F(UsageStoreTest, ABatchCountsEachKeyOnceAndLeavesTheRowsOfItsEventsOneByOne) {
  const std::vector<UsageEvent> events = {
      event("1", "2025-03-02T10:00:00Z", {1, 2, 3, 4, 5, 6}, std::nullopt, "s1", "m1"),
      event("5", "2025-03-01T12:00:00Z", {2, 0, 0, 0, 0, 0}, std::nullopt, "s2", "m2",
            ProviderID::grok),
      event("2", "2025-03-01T10:00:00Z", {1, 1, 1, 1, 1, 1}, 0.1, "s2", "m2", ProviderID::grok),
      event("3", "2025-03-02T11:00:00Z", {7, 0, 0, 0, 7, 0}, std::nullopt, "s1", "m1"),
      event("4", "2025-03-01T11:00:00Z", {1, 1, 1, 1, 1, 1}, 0.2, "s2", "m2", ProviderID::grok),
      // A known key stays known for another tool, model and day.
      event("1", "2025-03-03T10:00:00Z", {9, 9, 9, 9, 9, 9}, 1.0, "s9", "m9", ProviderID::codex),
      event("6", "2025-03-01T09:00:00Z", {3, 0, 0, 0, 3, 0}, 0.3, "s1", "m1"),
      event("7", "2025-02-28T09:00:00Z", {0, 0, 0, 0, 0, 0}, std::nullopt, "s1", "m3"),
      event("8", "2025-03-04T09:00:00Z", {1, 0, 0, 0, 0, 0}, std::nullopt, "s1", "m1"),
  };
  UsageStore batched{dir() / "batched.db"};
  UsageStore single{dir() / "single.db"};
  EXPECT_EQ(batched.ingest(events, utc), 8);
  EXPECT_EQ(batched.ingest(events, utc), 0);
  for (const UsageEvent& e : events) single.ingest(std::vector{e}, utc);
  RawDatabase a{dir() / "batched.db"};
  RawDatabase b{dir() / "single.db"};
  for (const char* query :
       {"SELECT rowid, * FROM daily ORDER BY rowid", "SELECT rowid, * FROM sessions ORDER BY rowid",
        "SELECT rowid, * FROM seen ORDER BY rowid"}) {
    EXPECT_EQ(a.rows(query), b.rows(query)) << query;
  }
  EXPECT_THAT(
      a.rows("SELECT * FROM daily ORDER BY rowid"),
      ElementsAre("claude|m1|2025-03-02|8|2|3|4|12|6|NULL", "grok|m2|2025-03-01|4|2|2|2|2|2|0.3",
                  "claude|m1|2025-03-01|3|0|0|0|3|0|0.3", "claude|m3|2025-02-28|0|0|0|0|0|0|NULL",
                  "claude|m1|2025-03-04|1|0|0|0|0|0|NULL"));
  EXPECT_THAT(a.rows("SELECT session_id, day FROM sessions ORDER BY rowid"),
              ElementsAre("s1|2025-02-28", "s2|2025-03-01"));
  EXPECT_THAT(a.rows("SELECT key, day FROM seen WHERE key = '1'"), ElementsAre("1|2025-03-02"));
}

TEST_F(UsageStoreTest, AFailingStatementRollsTheWholeBatchBack) {
  const FileCursor cursor{"/logs/a.jsonl", 7, 100, {{"provider", "claude"}}};
  UsageStore store{dbPath()};
  store.ingest(std::vector{event("before", "2025-03-01T10:00:00Z")}, utc);
  RawDatabase raw{dbPath()};
  ASSERT_EQ(raw.exec("CREATE TRIGGER refuse BEFORE INSERT ON daily WHEN NEW.model = 'explode' "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END"),
            SQLITE_OK);
  // A batch that got partly written would leave more rows in one of these tables.
  const auto counts = [&] {
    return raw.rows(
        "SELECT (SELECT COUNT(*) FROM seen), (SELECT COUNT(*) FROM daily), "
        "(SELECT COUNT(*) FROM sessions), (SELECT COUNT(*) FROM cursors)");
  };
  ASSERT_THAT(counts(), ElementsAre("1|1|1|0"));

  const std::vector<UsageEvent> batch = {
      event("new", "2025-03-02T10:00:00Z", {5, 5, 5, 5, 5, 5}, 1.0, "s2"),
      event("boom", "2025-03-02T11:00:00Z", {}, std::nullopt, "s3", "explode"),
  };
  EXPECT_EQ(failure([&] { store.ingest(batch, utc, std::vector{cursor}); }),
            UsageStoreError::sqlite(SQLITE_CONSTRAINT, "refused"));
  EXPECT_THAT(counts(), ElementsAre("1|1|1|0"));
  EXPECT_FALSE(store.cursor(cursor.path));

  // The same store goes on working, and the events are new on the next try.
  ASSERT_EQ(raw.exec("DROP TRIGGER refuse"), SQLITE_OK);
  EXPECT_EQ(store.ingest(batch, utc, std::vector{cursor}), 2);
  EXPECT_EQ(store.cursor(cursor.path), cursor);
}

TEST_F(UsageStoreTest, CursorsAreReplacedReadBackTogetherAndResetPerProvider) {
  UsageStore store{dbPath()};
  EXPECT_FALSE(store.cursor("/nowhere"));
  FileCursor codex{"/c1", 42, 1024, {{"provider", "codex"}, {"model", "gpt-5"}}};
  store.save(codex);
  codex.offset = 2048;
  store.save(codex);
  EXPECT_EQ(store.cursor(codex.path), codex);
  const FileCursor claude{"/k1", 3, 30, {{"provider", "claude"}}};
  const FileCursor none{"/n1", 4, 40, {}};
  const FileCursor upper{"/u1", 5, 50, {{"provider", "Codex"}}};
  store.ingest(std::vector<UsageEvent>{}, utc, std::vector{claude, none, upper});
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
  EXPECT_THAT(raw.rows("SELECT path FROM cursors ORDER BY path"),
              ElementsAre("/bad", "/k1", "/n1", "/u1"));
}

TEST_F(UsageStoreTest, LimitsRoundTripWithDatesAsSecondsSince2001) {
  UsageStore store{dbPath()};
  EXPECT_FALSE(store.limits(ProviderID::codex));
  ProviderLimits limits;
  limits.plan = "Plus";
  limits.fetchedAt = at("2025-03-01T10:00:00.25Z");
  store.setLimits(limits, ProviderID::codex);
  EXPECT_EQ(store.limits(ProviderID::codex), limits);
  EXPECT_FALSE(store.limits(ProviderID::claude));

  RawDatabase raw{dbPath()};
  EXPECT_EQ(json::parse(raw.rows("SELECT json FROM limits")[0])["fetchedAt"], 762516000.25);
  raw.exec("UPDATE limits SET json = '{\"windows\":[]}'");
  EXPECT_THROW(store.limits(ProviderID::codex), JsonDecodeError);
}

TEST_F(UsageStoreTest, PruningKeepsTheCutoffDayCursorsAndLimits) {
  UsageStore store{dbPath()};
  store.ingest(std::vector{event("old", "2025-03-09T23:59:59Z", {}, std::nullopt, "s-old"),
                           event("keep", "2025-03-10T00:00:00Z", {}, std::nullopt, "s-keep")},
               utc);
  store.save({"/c", 1, 1, {}});
  store.setLimits(ProviderLimits{}, ProviderID::grok);
  store.prune(at("2025-03-10T18:00:00Z"), utc);

  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT day FROM daily"), ElementsAre("2025-03-10"));
  EXPECT_THAT(raw.rows("SELECT session_id FROM sessions"), ElementsAre("s-keep"));
  EXPECT_THAT(raw.rows("SELECT key FROM seen"), ElementsAre("keep"));
  EXPECT_THAT(raw.rows("SELECT (SELECT COUNT(*) FROM cursors), (SELECT COUNT(*) FROM limits)"),
              ElementsAre("1|1"));
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

TEST_F(UsageStoreTest, FilesThatAreNotDatabasesFailWithSQLitesWords) {
  write("not.db", std::string(4096, 'x'));
  EXPECT_EQ(failure([&] { UsageStore{dir() / "not.db"}; }),
            UsageStoreError::sqlite(SQLITE_NOTADB, "file is not a database"));
  EXPECT_EQ(failure([&] { UsageStore{dir() / "missing" / "usage.db"}; }).value().code(),
            SQLITE_CANTOPEN);
}

}  // namespace
}  // namespace brimlog
