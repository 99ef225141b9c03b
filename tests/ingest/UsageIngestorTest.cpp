#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "ingest/DataRow.hpp"
#include "ingest/ToolLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/UsageStore.hpp"
#include "support/FilePermissions.hpp"
#include "support/KilledPasses.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
using testing::DataRow;
using ::testing::ElementsAre;
using testing::RawDatabase;

Date at(const char* text) { return *parseISO8601(text); }

// One line of a Claude Code transcript: an assistant reply block with its usage (10 uncached
// input tokens and 100 read from the cache).
std::string claudeLine(const std::string& id, int64_t output, const std::string& time) {
  return fmt::format(
      R"({{"type":"assistant","sessionId":"cs","timestamp":"{}","message":{{"id":"{}",)"
      R"("model":"claude-sonnet-4-5","usage":{{"input_tokens":10,"output_tokens":{},)"
      R"("cache_read_input_tokens":100}}}}}})"
      "\n",
      time, id, output);
}

std::string toolLine() {
  return R"({"type":"user","message":{"content":[{"type":"tool_result","content":"ok"}]}})"
         "\n";
}

std::string codexMeta(const std::string& session, const std::string& model) {
  return fmt::format(
      R"({{"timestamp":"2026-11-20T10:00:00Z","type":"session_meta","payload":{{"id":"{}"}}}})"
      "\n"
      R"({{"timestamp":"2026-11-20T10:00:01Z","type":"turn_context","payload":{{"model":"{}"}}}})"
      "\n",
      session, model);
}

std::string tokenCount(int64_t total, int64_t lastInput, int64_t lastCached, int64_t lastOutput) {
  return fmt::format(
      R"({{"timestamp":"2026-11-20T10:01:00Z","type":"event_msg","payload":{{"type":"token_count",)"
      R"("info":{{"total_token_usage":{{"total_tokens":{}}},"last_token_usage":{{"input_tokens":{},)"
      R"("cached_input_tokens":{},"output_tokens":{},"reasoning_output_tokens":1}}}},)"
      R"("rate_limits":{{"primary":{{"used_percent":40,"window_minutes":300}}}}}}}})"
      "\n",
      total, lastInput, lastCached, lastOutput);
}

// A Codex line with its rate limits alone, at 10:MM on the day of the others.
std::string limitsAt(const char* time, int percent) {
  return fmt::format(
      R"({{"timestamp":"2026-11-20T{}:00Z","type":"event_msg","payload":{{"type":"token_count",)"
      R"("info":null,"rate_limits":{{"primary":{{"used_percent":{},"window_minutes":300}}}}}}}})"
      "\n",
      time, percent);
}

// The temporary folder is the home the tools write in.
class UsageIngestorTest : public testing::TempDirTest {
 protected:
  fs::path dbPath() const { return dir() / "usage.db"; }
  fs::path claudeFile(const std::string& name = "p/s1.jsonl") const {
    return fs::path(".claude/projects") / name;
  }

  IngestResult pass(Date now, IngestOptions options = {}) {
    // A commit that meets another writer fails soon, not after the usual wait.
    UsageStore store{dbPath(), {.busyTimeout = 0.2}};
    StoreIngestSink sink{store};
    const ToolLocations tools = ToolLocations::resolve(dir(), {});
    return UsageIngestor{sink, tools.logFolders(), std::move(options)}.run(now);
  }

  // provider|model|uncached|cacheRead|output|reasoning summed over all days.
  std::vector<std::string> totals() {
    return RawDatabase{dbPath()}.rows(
        "SELECT provider, model, SUM(uncached), SUM(cache_read), SUM(output), SUM(reasoning) "
        "FROM usage JOIN sessions ON sessions.id = usage.session "
        "GROUP BY provider, model ORDER BY provider, model");
  }

  std::vector<std::string> keys() {
    return RawDatabase{dbPath()}.rows("SELECT key FROM replies ORDER BY key");
  }

  const Date now_ = at("2026-11-20T12:00:00Z");
};

TEST_F(UsageIngestorTest, CountsEachReplyOnceAsItsLinesComeAndAgainFromARewrittenFile) {
  // One reply over three lines with growing output, tool results in between, then a second
  // reply that is still streaming when the pass runs: both count at once.
  write(claudeFile(), claudeLine("m1", 3, "2026-11-20T11:50:00Z") + toolLine() +
                          claudeLine("m1", 3, "2026-11-20T11:50:01Z") + toolLine() +
                          claudeLine("m1", 623, "2026-11-20T11:50:02Z") +
                          claudeLine("m2", 5, "2026-11-20T11:55:00Z"));
  const IngestResult first = pass(now_);
  EXPECT_EQ(std::tuple(first.filesScanned, first.filesRead, first.linesRead),
            std::tuple(1u, 1u, 6));
  EXPECT_EQ(first.newEvents[ProviderID::claude], 2);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|20|200|628|0"));

  // The second reply grows: only its growth is added, and it is not a new reply.
  append(claudeFile(), claudeLine("m2", 40, "2026-11-20T11:55:01Z") +
                           claudeLine("m3", 1, "2026-11-20T11:58:00Z"));
  const IngestResult second = pass(now_);
  EXPECT_EQ(std::tuple(second.linesRead, second.totalNewEvents()), std::tuple(2, 1));
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|30|300|664|0"));

  // Nothing changed: the file is not read again, at once or later.
  for (const Date when : {now_, at("2026-11-20T13:00:00Z")}) {
    const IngestResult idle = pass(when);
    EXPECT_EQ(std::tuple(idle.filesRead, idle.bytesRead), std::tuple(0u, 0));
  }
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|30|300|664|0"));

  // Copied over in place (the same inode), longer than what was read and starting with a reply
  // already counted: read again from its start, without counting that reply twice. (A file
  // truncated or replaced by another starts over in JSONLTail, JSONLTailTest's.)
  std::string longer = claudeLine("m1", 623, "2026-11-20T11:50:02Z");
  for (int i = 0; i < 12; ++i) {
    longer += claudeLine(fmt::format("e{}", i), 2, "2026-11-20T10:00:00Z") + toolLine();
  }
  write(claudeFile(), longer);
  EXPECT_EQ(pass(now_).totalNewEvents(), 12);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|150|1500|688|0"));
  EXPECT_EQ(pass(now_).filesRead, 0u);
}

TEST_F(UsageIngestorTest, ALongUnfinishedLineIsNotScannedAgain) {
  // A reply whose line is still being written: a megabyte of text and no line end yet.
  const std::string line = claudeLine("long", 7, "2026-11-20T09:00:00Z");
  const std::string head = line.substr(0, line.size() - 3) + std::string(1 << 20, ' ');
  write(claudeFile(), claudeLine("m0", 1, "2026-11-20T08:00:00Z") + head);
  EXPECT_EQ(pass(now_).totalNewEvents(), 1);
  auto scanned = [&] {
    UsageStore store{dbPath()};
    return store.cursor((dir() / claudeFile()).string())->integerEntry("scanned");
  };
  EXPECT_EQ(scanned(), static_cast<int64_t>(fs::file_size(dir() / claudeFile())));

  append(claudeFile(), std::string(1000, ' '));
  EXPECT_EQ(pass(now_).totalNewEvents(), 0);
  EXPECT_EQ(scanned(), static_cast<int64_t>(fs::file_size(dir() / claudeFile())));

  append(claudeFile(), line.substr(line.size() - 3));
  const IngestResult completed = pass(now_);
  EXPECT_EQ(std::tuple(completed.linesRead, completed.totalNewEvents()), std::tuple(1, 1));
  EXPECT_EQ(scanned(), std::nullopt);
  EXPECT_THAT(keys(), ElementsAre("long", "m0"));
}

// A file's rising totals count their growth and keep their session and model between reads; a
// file with usage records counts those alone.
TEST_F(UsageIngestorTest, CodexCountsRisingTotalsOrUsageRecordsAndKeepsItsContextBetweenReads) {
  const fs::path file = ".codex/sessions/2026/11/20/rollout-1.jsonl";
  write(file, codexMeta("s1", "gpt-5.3-codex") + tokenCount(100, 100, 30, 5));
  write(".codex/archived_sessions/rollout-2.jsonl",
        codexMeta("s3", "m1") + tokenCount(100, 100, 30, 5) +
            R"({"timestamp":"2026-11-20T10:02:00Z","type":"token_usage_record","payload":{)"
            R"("response_id":"r1","usage":{"input_tokens":100,"cached_input_tokens":30,)"
            R"("output_tokens":20,"reasoning_output_tokens":5}}})"
            "\n");
  EXPECT_EQ(pass(now_).newEvents[ProviderID::codex], 2);

  // The next read starts mid-file: session and model come from the stored context. A repeated
  // total counts nothing; a new session in the same file counts from zero.
  append(file, tokenCount(100, 100, 30, 5) + tokenCount(250, 150, 100, 8) +
                   codexMeta("s2", "gpt-5.5") + tokenCount(90, 90, 0, 2) + limitsAt("10:03", 55) +
                   limitsAt("10:04", 60));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::codex], 2);
  EXPECT_THAT(keys(), ElementsAre("r1", "s1#100", "s1#250", "s2#90"));
  EXPECT_THAT(totals(), ElementsAre("codex|gpt-5.3-codex|120|130|13|2", "codex|gpt-5.5|90|0|2|1",
                                    "codex|m1|70|30|20|5"));

  // The newest limits read from the logs are stored, being newer than anything stored, and each
  // change of them joins the history (five records at 40%, then 55% and 60% in one read).
  UsageStore store{dbPath()};
  const std::optional<ProviderLimits> limits = store.limits(ProviderID::codex);
  ASSERT_TRUE(limits);
  EXPECT_THAT(limits->windows, ElementsAre(::testing::Field(&LimitWindow::usedFraction, 0.6)));
  EXPECT_THAT(store.readings({}), ElementsAre(::testing::Field(&LimitReading::usedFraction, 0.4),
                                              ::testing::Field(&LimitReading::usedFraction, 0.55),
                                              ::testing::Field(&LimitReading::usedFraction, 0.6)));
}

// Turns 3 and 1 have ended and turn 2 is running; then turn 2 ends too.
TEST_F(UsageIngestorTest, GrokTurnsFinishedOutOfOrderAreCountedOnceEach) {
  const fs::path file = ".grok/sessions/g1.json";
  write(file, testing::readFile(testing::dataPath("ingest/grok-session-turn2-running.json")));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::grok], 2);
  EXPECT_THAT(keys(), ElementsAre("g1#1#grok-4", "g1#3#grok-4"));

  EXPECT_EQ(pass(now_).filesRead, 0u);

  write(file, testing::readFile(testing::dataPath("ingest/grok-session-turn2-ended.json")));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::grok], 1);
  EXPECT_THAT(totals(), ElementsAre("grok|grok-4|90|60|21|0"));
  EXPECT_THAT(RawDatabase{dbPath()}.rows("SELECT reported_usd FROM usage"), ElementsAre("0.3"));
}

// Replies written over three lines each, the later ones carrying more output, read by passes
// killed (SIGKILL) at random points (small chunks, a commit per chunk), by one whose commit fails,
// then by one left to finish: each reply ends up with its final counts, once, whichever
// commits the cut passes made.
TEST_F(UsageIngestorTest, PassesKilledAtAnyPointStillEndWithEachReplysFinalCounts) {
  std::string lines;
  for (int i = 0; i < 150; ++i) {
    const std::string id = fmt::format("k{:03}", i);
    for (const int64_t output : {1, 2, i + 10}) {
      lines += claudeLine(id, output, "2026-11-20T09:00:00Z") + toolLine();
    }
  }
  const size_t half = lines.find("k075");
  write(claudeFile(), lines.substr(0, half));
  const auto killedPasses = [&] {
    testing::killPassesAtRandom([&](IngestOptions o) { pass(now_, std::move(o)); }, 3, 14, 40);
  };
  killedPasses();
  // The last reply of the first half may stand at its second line; the rest comes after.
  append(claudeFile(), lines.substr(half));
  // After two commits another connection takes the write lock, so a later commit fails as one
  // that meets another writer does: the pass fails with it, keeping the commits it made.
  const size_t before = keys().size();
  std::unique_ptr<RawDatabase> blocker;
  IngestOptions options{.workers = 1, .chunkBytes = 2048, .batchEvents = 1, .progress = {}};
  options.progress = [&](const IngestProgress& p) {
    if (p.commits < 2 || blocker) return;
    blocker = std::make_unique<RawDatabase>(dbPath());
    EXPECT_EQ(blocker->exec("PRAGMA busy_timeout = 10000; BEGIN IMMEDIATE"), SQLITE_OK);
  };
  EXPECT_THROW(pass(now_, options), UsageStoreError);
  blocker.reset();  // closing the connection rolls its transaction back
  EXPECT_GT(keys().size(), before);
  killedPasses();
  pass(now_);
  EXPECT_EQ(keys().size(), 150u);
  // 150 replies of 10 + 100 input tokens; outputs 10 to 159.
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|1500|15000|12675|0"));
}

// A file whose name is no UTF-8 is still read once, by the cursor kept under its name.
TEST_F(UsageIngestorTest, ReportsFilesItCannotReadAndGoesOn) {
  write(claudeFile("p/g\xff\xfe.jsonl"), claudeLine("g", 1, "2026-11-20T09:00:00Z"));
  write(claudeFile("p/gone.jsonl"), claudeLine("x", 1, "2026-11-20T09:00:00Z"));
  // A link inside the tree is not followed, so this file is not counted twice.
  fs::create_symlink(dir() / claudeFile("p/g\xff\xfe.jsonl"), dir() / claudeFile("p/link.jsonl"));

  // The file vanishes between the walk and its read, as when the tool deletes a session.
  IngestOptions options;
  options.progress = [&](const IngestProgress& progress) {
    if (progress.filesDone == 0) fs::remove(dir() / claudeFile("p/gone.jsonl"));
  };
  const IngestResult result = pass(now_, options);
  EXPECT_EQ(result.filesScanned, 2u);
  ASSERT_EQ(result.skipped.size(), 1u);
  EXPECT_EQ(result.skipped[0].path, (dir() / claudeFile("p/gone.jsonl")).string());
  EXPECT_THAT(result.skipped[0].reason, ::testing::HasSubstr("No such file"));
  EXPECT_THAT(keys(), ElementsAre("g"));
  EXPECT_EQ(result.toJson()["skipped"][0]["path"], result.skipped[0].path);
  EXPECT_EQ(pass(now_).filesRead, 0u);

  // A file and a folder this user may not read: each is told, once, and the rest is counted.
  write(claudeFile("p/locked.jsonl"), claudeLine("l", 1, "2026-11-20T09:00:00Z"));
  write(claudeFile("q/r/hidden.jsonl"), claudeLine("h", 1, "2026-11-20T09:00:00Z"));
  write(claudeFile("q/seen.jsonl"), claudeLine("s", 1, "2026-11-20T09:00:00Z"));
  fs::permissions(dir() / claudeFile("p/locked.jsonl"), fs::perms::none);
  fs::permissions(dir() / claudeFile("q/r"), fs::perms::none);
  const testing::FilePermissionsEnforced enforced;
  if (!enforced.active()) GTEST_SKIP() << "file permissions cannot be enforced here";
  const IngestResult locked = pass(now_);
  fs::permissions(dir() / claudeFile("q/r"), fs::perms::owner_all);
  ASSERT_EQ(locked.skipped.size(), 2u);
  EXPECT_EQ(locked.skipped[0].path, (dir() / claudeFile("q/r")).string());
  EXPECT_EQ(locked.skipped[0].reason, "cannot open the folder: Permission denied");
  EXPECT_EQ(locked.skipped[1].path, (dir() / claudeFile("p/locked.jsonl")).string());
  EXPECT_THAT(locked.skipped[1].reason, ::testing::HasSubstr("denied"));
  EXPECT_THAT(keys(), ElementsAre("g", "s"));
}

// Per-file totals over the real logs, against figures worked out independently from the files:
// for Claude the sum over distinct message ids of the last line's counts, for Codex the final
// cumulative total_token_usage.
TEST_F(UsageIngestorTest, RealLogsGiveTheirTrueTotals) {
  BRIMLOG_REQUIRE_REAL_FIXTURES(fixtures);
  // One log alone in a fresh home, read in small chunks so that runs of one reply and Codex
  // contexts also cross read boundaries: uncached|output|cacheRead|cacheWrite|reasoning.
  auto sums = [&](const fs::path& log, const fs::path& folder) {
    for (const char* old : {".claude", ".codex", "usage.db"}) fs::remove_all(dir() / old);
    write(folder / log.filename(), testing::readFile(log));
    pass(now_, {.chunkBytes = 64 << 10, .progress = {}});
    RawDatabase raw{dbPath()};
    return raw.rows(
        "SELECT COALESCE(SUM(uncached),0), COALESCE(SUM(output),0), COALESCE(SUM(cache_read),0), "
        "COALESCE(SUM(w5m + w1h),0), COALESCE(SUM(reasoning),0) FROM usage");
  };
  for (const DataRow& row : testing::namedRows("ingest/real-claude.tsv")) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(sums(fixtures / "claude" / row.name, ".claude/projects/p"),
                ElementsAre(fmt::format("{}|{}|{}|{}|0", row.integer(0), row.integer(1),
                                        row.integer(2), row.integer(3))));
  }
  for (const DataRow& row : testing::namedRows("ingest/real-codex.tsv")) {
    SCOPED_TRACE(row.name);
    const int64_t input = row.integer(0), cached = row.integer(1);
    EXPECT_THAT(sums(fixtures / "codex" / row.name, ".codex/sessions"),
                ElementsAre(fmt::format("{}|{}|{}|0|{}", input - cached, row.integer(2), cached,
                                        row.integer(3))));
  }
}

}  // namespace
}  // namespace brimlog
