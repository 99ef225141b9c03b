#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "StoreIngestSink.hpp"
#include "ToolFolders.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/UsageStore.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::RawDatabase;

Date at(const char* text) { return *parseISO8601(text); }

// One line of a Claude Code transcript: an assistant reply block with its usage.
std::string claudeLine(const std::string& id, int64_t output, const std::string& time,
                       int64_t input = 10, int64_t cacheRead = 100) {
  return fmt::format(
      R"({{"type":"assistant","sessionId":"cs","timestamp":"{}","message":{{"id":"{}",)"
      R"("model":"claude-sonnet-4-5","usage":{{"input_tokens":{},"output_tokens":{},)"
      R"("cache_read_input_tokens":{}}}}}}})"
      "\n",
      time, id, input, output, cacheRead);
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

std::string tokenCount(int64_t total, int64_t lastInput, int64_t lastCached, int64_t lastOutput,
                       const std::string& time = "2026-11-20T10:01:00Z") {
  return fmt::format(
      R"({{"timestamp":"{}","type":"event_msg","payload":{{"type":"token_count","info":{{)"
      R"("total_token_usage":{{"input_tokens":0,"cached_input_tokens":0,"output_tokens":0,)"
      R"("reasoning_output_tokens":0,"total_tokens":{}}},)"
      R"("last_token_usage":{{"input_tokens":{},"cached_input_tokens":{},"output_tokens":{},)"
      R"("reasoning_output_tokens":1,"total_tokens":0}}}},)"
      R"("rate_limits":{{"primary":{{"used_percent":40,"window_minutes":300}}}}}}}})"
      "\n",
      time, total, lastInput, lastCached, lastOutput);
}

std::string grokTurn(int turn, const char* endedAt, const std::string& model = "grok-4") {
  std::string ended = endedAt ? fmt::format(R"("endedAt":"{}",)", endedAt) : "";
  return fmt::format(
      R"({{"turnNumber":{},{}"modelUsage":{{"{}":{{"inputTokens":50,"cachedReadTokens":20,)"
      R"("outputTokens":7,"costUsdTicks":1000000000}}}}}})",
      turn, ended, model);
}

std::string grokDocument(const std::vector<std::string>& turns) {
  std::string joined;
  for (const std::string& turn : turns) joined += (joined.empty() ? "" : ",") + turn;
  return R"({"sessionId":"g1","turns":[)" + joined + "]}";
}

class UsageIngestorTest : public testing::TempDirTest {
 protected:
  fs::path home() const { return dir() / "home"; }
  fs::path dbPath() const { return dir() / "usage.db"; }
  fs::path claudeFile(const std::string& name = "p/s1.jsonl") const {
    return fs::path(".claude/projects") / name;
  }

  IngestResult pass(Date now, IngestOptions options = {}) {
    UsageStore store{dbPath()};
    StoreIngestSink sink{store, Calendar::utc()};
    const ToolFolders tools = ToolFolders::resolve(home(), std::nullopt, std::nullopt);
    UsageIngestor ingestor{sink, tools.logFolders(), std::move(options)};
    return ingestor.run(now);
  }

  // provider|model|uncached|cacheRead|output|reasoning summed over all days.
  std::vector<std::string> totals() {
    RawDatabase raw{dbPath()};
    return raw.rows(
        "SELECT provider, model, SUM(uncached), SUM(cache_read), SUM(output), SUM(reasoning) "
        "FROM daily GROUP BY provider, model ORDER BY provider, model");
  }

  std::vector<std::string> keys() {
    RawDatabase raw{dbPath()};
    return raw.rows("SELECT key FROM seen ORDER BY key");
  }

  void writeHome(const fs::path& relative, const std::string& contents) {
    write(fs::path("home") / relative, contents);
  }
  void appendHome(const fs::path& relative, const std::string& contents) {
    append(fs::path("home") / relative, contents);
  }

  const Date now_ = at("2026-11-20T12:00:00Z");
};

TEST_F(UsageIngestorTest, CountsTheLastLineOfEachReplyAndWaitsForTheReplyStillBeingWritten) {
  // One reply over three lines with growing output, tool results in between, then a second
  // reply that may still be streaming when the pass runs.
  writeHome(claudeFile(), claudeLine("m1", 3, "2026-11-20T11:50:00Z") + toolLine() +
                              claudeLine("m1", 3, "2026-11-20T11:50:01Z") + toolLine() +
                              claudeLine("m1", 623, "2026-11-20T11:50:02Z") +
                              claudeLine("m2", 5, "2026-11-20T11:55:00Z"));
  IngestResult first = pass(now_);
  EXPECT_EQ(first.filesScanned, 1u);
  EXPECT_EQ(first.filesRead, 1u);
  EXPECT_EQ(first.linesRead, 6);
  EXPECT_EQ(first.newEvents[ProviderID::claude], 1);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|10|100|623|0"));

  // The second reply grows; it is counted when a third one starts, with its final count.
  appendHome(claudeFile(), claudeLine("m2", 40, "2026-11-20T11:55:01Z") +
                               claudeLine("m3", 1, "2026-11-20T11:58:00Z"));
  IngestResult second = pass(now_);
  EXPECT_EQ(second.linesRead, 2);
  EXPECT_EQ(second.totalNewEvents(), 1);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|20|200|663|0"));

  // Nothing changed: the file is not read, and the waiting reply stays waiting...
  IngestResult idle = pass(now_);
  EXPECT_EQ(idle.filesRead, 0u);
  EXPECT_EQ(idle.bytesRead, 0);
  EXPECT_EQ(idle.totalNewEvents(), 0);
  // ...until it is fifteen minutes old, when it is counted from the cursor alone.
  IngestResult later = pass(at("2026-11-20T12:14:00Z"));
  EXPECT_EQ(later.filesRead, 0u);
  EXPECT_EQ(later.totalNewEvents(), 1);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|30|300|664|0"));
  EXPECT_EQ(pass(at("2026-11-20T13:00:00Z")).totalNewEvents(), 0);
}

TEST_F(UsageIngestorTest, ReadsAHalfWrittenLineOnceItIsComplete) {
  const std::string line = claudeLine("m1", 9, "2026-11-20T10:00:00Z");
  writeHome(claudeFile(), line.substr(0, 40));
  EXPECT_EQ(pass(now_).linesRead, 0);
  appendHome(claudeFile(), line.substr(40));
  IngestResult done = pass(now_);
  EXPECT_EQ(done.linesRead, 1);
  EXPECT_EQ(done.totalNewEvents(), 1);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|10|100|9|0"));
}

TEST_F(UsageIngestorTest, RereadsReplacedAndTruncatedFilesWithoutCountingTwice) {
  const std::string a = claudeLine("a", 1, "2026-11-20T09:00:00Z");
  const std::string b = claudeLine("b", 2, "2026-11-20T09:01:00Z");
  const std::string c = claudeLine("c", 4, "2026-11-20T09:02:00Z");
  writeHome(claudeFile(), a + b);
  EXPECT_EQ(pass(now_).totalNewEvents(), 2);

  // Replaced by a new file (new inode) holding the old replies and a new one.
  const fs::path path = home() / claudeFile();
  write("replacement.jsonl", a + b + c);
  fs::rename(dir() / "replacement.jsonl", path);
  IngestResult replaced = pass(now_);
  EXPECT_EQ(replaced.linesRead, 3);
  EXPECT_EQ(replaced.totalNewEvents(), 1);

  // Truncated and rewritten shorter: read from the start again.
  writeHome(claudeFile(), claudeLine("d", 8, "2026-11-20T09:03:00Z"));
  IngestResult truncated = pass(now_);
  EXPECT_EQ(truncated.linesRead, 1);
  EXPECT_EQ(truncated.totalNewEvents(), 1);
  EXPECT_THAT(totals(), ElementsAre("claude|claude-sonnet-4-5|40|400|15|0"));
}

TEST_F(UsageIngestorTest, ALogRewrittenInPlaceIsReadAgainFromItsStart) {
  std::string first, second;
  for (int i = 0; i < 5; ++i) first += claudeLine(fmt::format("a{}", i), 1, "2026-11-20T09:00:00Z");
  for (int i = 0; i < 12; ++i) {
    second += claudeLine(fmt::format("b{}", i), 2, "2026-11-20T10:00:00Z") + toolLine();
  }
  writeHome(claudeFile(), first);
  EXPECT_EQ(pass(now_).totalNewEvents(), 5);

  // Copied over in place: the same inode, and longer than what was read.
  const fs::path path = home() / claudeFile();
  struct stat before {
  }, after{};
  ASSERT_EQ(::stat(path.c_str(), &before), 0);
  std::ofstream(path, std::ios::binary | std::ios::trunc) << second;
  ASSERT_EQ(::stat(path.c_str(), &after), 0);
  ASSERT_EQ(after.st_ino, before.st_ino);
  EXPECT_EQ(pass(now_).totalNewEvents(), 12);
  EXPECT_EQ(keys().size(), 17u);
  EXPECT_EQ(pass(now_).filesRead, 0u);
}

TEST_F(UsageIngestorTest, ALogWhoseNameIsNotUTF8IsReadOnce) {
  writeHome(claudeFile("p/s\xff\xfe.jsonl"), claudeLine("m1", 3, "2026-11-20T09:00:00Z"));
  EXPECT_EQ(pass(now_).totalNewEvents(), 1);
  const IngestResult again = pass(now_);
  EXPECT_EQ(again.filesRead, 0u);
  EXPECT_EQ(again.bytesRead, 0);
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT COUNT(*) FROM cursors"), ElementsAre("1"));
}

TEST_F(UsageIngestorTest, ALongUnfinishedLineIsNotScannedAgain) {
  // A reply whose line is still being written: a megabyte of text and no line end yet.
  const std::string line = claudeLine("long", 7, "2026-11-20T09:00:00Z");
  const std::string head = line.substr(0, line.size() - 3) + std::string(1 << 20, ' ');
  writeHome(claudeFile(), claudeLine("m0", 1, "2026-11-20T08:00:00Z") + head);
  EXPECT_EQ(pass(now_).totalNewEvents(), 1);
  auto scanned = [&] {
    UsageStore store{dbPath()};
    return store.cursor((home() / claudeFile()).string())->integerEntry("scanned");
  };
  EXPECT_EQ(scanned(), static_cast<int64_t>(fs::file_size(home() / claudeFile())));

  appendHome(claudeFile(), std::string(1000, ' '));
  EXPECT_EQ(pass(now_).totalNewEvents(), 0);
  EXPECT_EQ(scanned(), static_cast<int64_t>(fs::file_size(home() / claudeFile())));

  appendHome(claudeFile(), line.substr(line.size() - 3));
  EXPECT_EQ(pass(now_).totalNewEvents(), 1);
  EXPECT_EQ(scanned(), std::nullopt);
  EXPECT_THAT(keys(), ElementsAre("long", "m0"));
}

TEST_F(UsageIngestorTest, CodexCountsRisingTotalsAndKeepsItsContextBetweenReads) {
  const fs::path file = ".codex/sessions/2026/11/20/rollout-1.jsonl";
  writeHome(file, codexMeta("s1", "gpt-5.3-codex") + tokenCount(100, 100, 30, 5));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::codex], 1);

  // The next read starts mid-file: session and model come from the stored context. A repeated
  // total counts nothing; a new session in the same file counts from zero.
  appendHome(file, tokenCount(100, 100, 30, 5) + tokenCount(250, 150, 100, 8) +
                       codexMeta("s2", "gpt-5.5") + tokenCount(90, 90, 0, 2));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::codex], 2);
  EXPECT_THAT(keys(), ElementsAre("s1#100", "s1#250", "s2#90"));
  EXPECT_THAT(totals(), ElementsAre("codex|gpt-5.3-codex|120|130|13|2", "codex|gpt-5.5|90|0|2|1"));

  // The limits read from the logs are stored, being newer than anything stored.
  UsageStore store{dbPath()};
  std::optional<ProviderLimits> limits = store.limits(ProviderID::codex);
  ASSERT_TRUE(limits);
  ASSERT_EQ(limits->windows.size(), 1u);
  EXPECT_DOUBLE_EQ(limits->windows[0].usedFraction, 0.4);
}

TEST_F(UsageIngestorTest, CodexFilesWithUsageRecordsCountThoseAlone) {
  const std::string record =
      R"({"timestamp":"2026-11-20T10:02:00Z","type":"token_usage_record","payload":{)"
      R"("response_id":"r1","usage":{"input_tokens":100,"cached_input_tokens":30,)"
      R"("output_tokens":20,"reasoning_output_tokens":5}}})"
      "\n";
  writeHome(".codex/archived_sessions/rollout-2.jsonl",
            codexMeta("s1", "m1") + tokenCount(100, 100, 30, 5) + record);
  IngestResult result = pass(now_);
  EXPECT_EQ(result.newEvents[ProviderID::codex], 1);
  EXPECT_THAT(keys(), ElementsAre("r1"));
  EXPECT_THAT(totals(), ElementsAre("codex|m1|70|30|20|5"));
}

TEST_F(UsageIngestorTest, GrokTurnsFinishedOutOfOrderAreCountedOnceEach) {
  const fs::path file = ".grok/sessions/g1.json";
  writeHome(file, grokDocument({grokTurn(3, "2026-11-20T10:03:00Z"),
                                grokTurn(1, "2026-11-20T10:01:00Z"), grokTurn(2, nullptr)}));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::grok], 2);
  EXPECT_THAT(keys(), ElementsAre("g1#1#grok-4", "g1#3#grok-4"));

  IngestResult unchanged = pass(now_);
  EXPECT_EQ(unchanged.filesRead, 0u);

  writeHome(file,
            grokDocument({grokTurn(3, "2026-11-20T10:03:00Z"), grokTurn(1, "2026-11-20T10:01:00Z"),
                          grokTurn(2, "2026-11-20T10:05:00Z")}));
  EXPECT_EQ(pass(now_).newEvents[ProviderID::grok], 1);
  EXPECT_THAT(totals(), ElementsAre("grok|grok-4|90|60|21|0"));
  RawDatabase raw{dbPath()};
  EXPECT_THAT(raw.rows("SELECT reported_usd FROM daily"), ElementsAre("0.3"));
}

TEST_F(UsageIngestorTest, APassThatFailsPartWayLosesAndRepeatsNothing) {
  auto transcript = [](const char* prefix, int replies) {
    std::string lines;
    for (int i = 0; i < replies; ++i) {
      lines += claudeLine(fmt::format("{}{:02}", prefix, i), i + 1, "2026-11-20T09:00:00Z");
    }
    return lines;
  };
  writeHome(claudeFile("p/a.jsonl"), transcript("a", 40));
  writeHome(claudeFile("p/b.jsonl"), transcript("b", 20));
  writeHome(".codex/sessions/r.jsonl", codexMeta("s1", "m") + tokenCount(10, 10, 0, 1));

  // Small chunks and one commit per chunk; after the second commit another connection takes the
  // write lock, so the next commit fails at once.
  IngestOptions options;
  options.chunkBytes = 2048;
  options.batchEvents = 1;
  options.workers = 1;
  std::unique_ptr<RawDatabase> blocker;
  options.progress = [&](const IngestProgress& progress) {
    if (progress.commits == 2 && !blocker) {
      blocker = std::make_unique<RawDatabase>(dbPath());
      EXPECT_EQ(blocker->exec("BEGIN IMMEDIATE"), SQLITE_OK);
    }
  };
  EXPECT_THROW(pass(now_, options), UsageStoreError);
  ASSERT_TRUE(blocker);
  blocker->exec("ROLLBACK");
  blocker.reset();
  EXPECT_FALSE(keys().empty());

  pass(now_);
  // Every reply once: 40 + 20, output 1..40 and 1..20, and the Codex reply.
  EXPECT_EQ(keys().size(), 61u);
  EXPECT_THAT(totals(),
              ElementsAre("claude|claude-sonnet-4-5|600|6000|1030|0", "codex|m|10|0|1|1"));
}

TEST_F(UsageIngestorTest, ReportsFilesItCannotReadAndGoesOn) {
  writeHome(claudeFile("p/good.jsonl"), claudeLine("g", 1, "2026-11-20T09:00:00Z"));
  writeHome(claudeFile("p/gone.jsonl"), claudeLine("x", 1, "2026-11-20T09:00:00Z"));
  // A link inside the tree is not followed, so this file is not counted twice.
  fs::create_symlink(home() / claudeFile("p/good.jsonl"), home() / claudeFile("p/link.jsonl"));

  // The file vanishes between the walk and its read, as when the tool deletes a session.
  IngestOptions options;
  options.progress = [&](const IngestProgress& progress) {
    if (progress.filesDone == 0) fs::remove(home() / claudeFile("p/gone.jsonl"));
  };
  IngestResult result = pass(now_, options);
  EXPECT_EQ(result.filesScanned, 2u);
  ASSERT_EQ(result.skipped.size(), 1u);
  EXPECT_EQ(result.skipped[0].path, (home() / claudeFile("p/gone.jsonl")).string());
  EXPECT_THAT(result.skipped[0].reason, ::testing::HasSubstr("No such file"));
  EXPECT_THAT(keys(), ElementsAre("g"));
  EXPECT_EQ(result.toJson()["skipped"][0]["path"], result.skipped[0].path);

  if (::geteuid() != 0) {  // permissions do not stop root
    writeHome(claudeFile("p/locked.jsonl"), claudeLine("l", 1, "2026-11-20T09:00:00Z"));
    fs::permissions(home() / claudeFile("p/locked.jsonl"), fs::perms::none);
    IngestResult locked = pass(now_);
    ASSERT_EQ(locked.skipped.size(), 1u);
    EXPECT_THAT(locked.skipped[0].reason, ::testing::HasSubstr("denied"));
  }
}

// Per-file totals over the real logs, against figures worked out independently from the files:
// for Claude the sum over distinct message ids of the last line's counts, for Codex the final
// cumulative total_token_usage.
TEST_F(UsageIngestorTest, RealLogsGiveTheirTrueTotals) {
  BRIMLOG_REQUIRE_REAL_FIXTURES(fixtures);
  struct Expected {
    const char* file;
    int64_t uncached, output, cacheRead, cacheWrite;
  };
  const std::vector<Expected> claude = {
      {"ccviewer__1af7fc5e-8455-4414-9ccd-011d40f70b2a.jsonl", 93, 953, 103219, 12698},
      {"ccviewer__5c0375b4-57a5-4f26-b12d-d022ee4e51b7.jsonl", 129, 3629, 324259, 47747},
      {"ccviewer__fe5e1c67-53e7-4862-81ae-d0e013e3270b.jsonl", 818, 51933, 3647854, 137976},
      {"codemie__4c2ddfdc-b619-4525-8d03-1950fb1b0257.jsonl", 33, 806, 214627, 37172},
      {"codemie__agent-36541525.jsonl", 3, 3, 0, 16976},
      {"codemie__agent-50243ee8.jsonl", 16878, 237, 0, 0},
      {"codemie__session-196820da.jsonl", 6711, 65263, 2560506, 1473882},
      {"codemie__session-3fe1b6bc.jsonl", 15377, 34781, 5157884, 1707033},
      {"codemie__session-9eda1058.jsonl", 47, 4509, 22912, 147267},
      {"spotter__ae4a77f8-aedd-4bc1-888f-c94edc91af04.jsonl", 185, 33596, 12357637, 192786},
      {"spotter__agent-a2898e3.jsonl", 53, 136, 604156, 71257},
      {"spotter__agent-acompact-e1f845.jsonl", 3, 8, 164830, 8681},
      {"spotter__agent-afc096d.jsonl", 219, 28, 457858, 39438},
      {"spotter__short.jsonl", 3, 13, 11515, 13835},
      {"spotter__tool_heavy.jsonl", 54, 212, 88231, 17696},
  };
  struct ExpectedCodex {
    const char* file;
    int64_t input, cached, output, reasoning;
  };
  const std::vector<ExpectedCodex> codex = {
      {"codemie__rollout-2026-01-02T18-39-45-019b7f94-51b4-7593-922e-ba12b5b73b52.jsonl", 22474,
       14848, 300, 128},
      {"codemie__rollout-2026-05-11T11-26-55-019e1625-789d-76c0-80ab-3724b5ddb799.jsonl", 6055836,
       4929536, 9118, 1759},
      {"codemie__rollout-2026-05-11T13-28-45-019e1695-0522-7c83-8b39-0dd379793f80.jsonl", 0, 0, 0,
       0},
      {"localpush__rollout-2026-02-23T12-40-23-019c8a4c-ed82-79a1-aa28-7738fc5ab61a.jsonl", 7204025,
       6836352, 36075, 17896},
      {"localpush__rollout-2026-02-23T12-41-04-019c8a4d-8f45-7010-8b5d-7fad920aa6f9.jsonl", 1751428,
       1651968, 14600, 4293},
      {"localpush__rollout-2026-02-23T12-47-42-019c8a53-a0dd-7130-bcd7-95445d84846a.jsonl", 6740973,
       6337024, 36950, 17085},
      {"localpush__rollout-2026-02-23T12-54-34-019c8a59-e9dd-71f0-9ae3-4079fe9726a9.jsonl",
       33810485, 31621504, 133999, 42113},
      {"localpush__rollout-2026-02-23T13-19-38-019c8a70-dda7-7f33-98ea-f30553347322.jsonl", 34469,
       3456, 431, 264},
      {"localpush__rollout-2026-02-23T20-34-25-019c8bfe-ec25-79e0-97d7-bda6a9c575ff.jsonl", 298373,
       238848, 1123, 483},
  };

  auto sums = [&] {
    RawDatabase raw{dbPath()};
    return raw.rows(
        "SELECT COALESCE(SUM(uncached),0), COALESCE(SUM(output),0), COALESCE(SUM(cache_read),0), "
        "COALESCE(SUM(w5m + w1h),0), COALESCE(SUM(reasoning),0) FROM daily");
  };
  // Small chunks, so runs of one reply and Codex contexts also cross read boundaries.
  IngestOptions options;
  options.chunkBytes = 64 << 10;
  for (const Expected& expected : claude) {
    SCOPED_TRACE(expected.file);
    fs::remove_all(home());
    fs::remove(dbPath());
    fs::create_directories(home() / ".claude/projects/p");
    fs::copy_file(fixtures / "claude" / expected.file,
                  home() / ".claude/projects/p" / expected.file);
    pass(now_, options);
    EXPECT_THAT(sums(), ElementsAre(fmt::format("{}|{}|{}|{}|0", expected.uncached, expected.output,
                                                expected.cacheRead, expected.cacheWrite)));
  }
  for (const ExpectedCodex& expected : codex) {
    SCOPED_TRACE(expected.file);
    fs::remove_all(home());
    fs::remove(dbPath());
    fs::create_directories(home() / ".codex/sessions");
    fs::copy_file(fixtures / "codex" / expected.file, home() / ".codex/sessions" / expected.file);
    pass(now_, options);
    EXPECT_THAT(sums(),
                ElementsAre(fmt::format("{}|{}|{}|0|{}", expected.input - expected.cached,
                                        expected.output, expected.cached, expected.reasoning)));
  }
}

}  // namespace
}  // namespace brimlog
