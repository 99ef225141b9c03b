#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>

#include "ingest/ToolLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "ingest/opencode/OpenCodeStoreWriter.hpp"
#include "platform/Calendar.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/FilePermissions.hpp"
#include "support/KilledPasses.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// One model call as the tool stores it, and the output a provider billed for it (written out by
// hand: reasoning is inside `output` when `total` is the sum of the four counts, else on top).
struct Step {
  int64_t input, output, reasoning, read, write, total;
  double cost;
  int64_t billedOutput;
};

// A reply: one assistant message and its steps. `viaMessage` stores the counts on the message
// alone (a build before step parts).
struct Reply {
  std::string id, session, providerID, model;
  int64_t createdMs;
  std::vector<Step> steps;
  bool viaMessage = false;
};

constexpr int64_t kBase = 1'795'600'800'000;  // 2026-11-20T09:20:00Z

std::string tokensJson(const Step& s) {
  return fmt::format(
      R"({{"total":{},"input":{},"output":{},"reasoning":{},"cache":{{"read":{},"write":{}}}}})",
      s.total, s.input, s.output, s.reasoning, s.read, s.write);
}

// The message's data: its own tokens are its last step's, its cost (unless given) the sum of its
// steps'.
std::string messageJson(const Reply& r, std::optional<double> cost, bool withIDs) {
  const std::string ids =
      withIDs ? fmt::format(R"("id":"{}","sessionID":"{}",)", r.id, r.session) : "";
  // Older builds' messages (those with no step parts here) name no working folder.
  const std::string path =
      r.viaMessage ? "" : fmt::format(R"("path":{{"cwd":"/w/{}"}},)", r.session);
  return fmt::format(
      R"({{{}"role":"assistant","providerID":"{}","modelID":"{}",{}"time":{{"created":{}}},)"
      R"("cost":{},"tokens":{}}})",
      ids, r.providerID, r.model, path, r.createdMs,
      cost.value_or(std::accumulate(r.steps.begin(), r.steps.end(), 0.0,
                                    [](double sum, const Step& s) { return sum + s.cost; })),
      tokensJson(r.steps.back()));
}

std::string stepJson(const Step& s) {
  return fmt::format(R"({{"type":"step-finish","reason":"stop","cost":{},"tokens":{}}})", s.cost,
                     tokensJson(s));
}

// `copyID`/`copySession`: a fork's copy, with `cost` the copy's (Kilo zeroes it).
void store(testing::OpenCodeStoreWriter& db, const Reply& r, int64_t updated,
           std::optional<double> cost = std::nullopt, const std::string& copyID = "",
           const std::string& copySession = "") {
  const std::string id = copyID.empty() ? r.id : copyID;
  const std::string session = copySession.empty() ? r.session : copySession;
  db.message(id, session, updated, messageJson(r, cost, false));
  if (r.viaMessage) return;
  db.part(id + "_text", id, session, R"({"type":"text","text":"done"})");
  for (size_t i = 0; i < r.steps.size(); ++i) {
    db.part(fmt::format("{}_step{}", id, i), id, session, stepJson(r.steps[i]));
  }
}

const Step kStep1{100, 20, 0, 1000, 200, 1320, 0.01, 20};
const Step kStep2{50, 30, 0, 1200, 0, 1280, 0.02, 30};
// Newer builds: output without reasoning, the total with it.
const Step kReasoningApart{300, 100, 40, 0, 0, 440, 0.03, 140};
// Older builds: reasoning inside the output, the total without it.
const Step kReasoningInside{300, 100, 40, 0, 0, 400, 0.03, 100};

// A reply of `model` created `seconds` after kBase.
Reply reply(const char* id, const char* session, const char* provider, const char* model,
            int seconds, std::vector<Step> steps, bool viaMessage = false) {
  return {id, session, provider, model, kBase + seconds * 1000, std::move(steps), viaMessage};
}
const Reply kSonnet =
    reply("msg_a1", "ses_a", "anthropic", "claude-sonnet-4-5", 0, {kStep1, kStep2});
const Reply kGpt = reply("msg_a2", "ses_a", "openai", "gpt-5", 1, {kReasoningApart});
const Reply kGptOld = reply("msg_a3", "ses_a", "openai", "gpt-5", 2, {kReasoningInside});
// No list price: priced from the tool's own cost.
const Reply kPickle =
    reply("msg_a4", "ses_a", "opencode", "big-pickle", 3, {{10, 5, 0, 0, 0, 15, 0.004, 5}});
const Reply kNoParts = reply("msg_a5", "ses_b", "anthropic", "claude-sonnet-4-5", 4,
                             {{7, 3, 0, 0, 0, 10, 0.001, 3}}, true);
// Only in the old JSON files.
const Reply kJsonOnly = reply("msg_j1", "ses_old", "anthropic", "claude-sonnet-4-5", 5,
                              {{20, 10, 0, 100, 0, 130, 0.002, 10}});
const Reply kKilo = reply("msg_k1", "ses_k", "anthropic", "claude-sonnet-4-5", 6,
                          {{40, 8, 0, 0, 50, 98, 0.002, 8}});
// Written one step at a time while the passes go on.
const Reply kGrowing =
    reply("msg_a6", "ses_a", "anthropic", "claude-sonnet-4-5", 7, {kStep1, kStep2, kStep1});

ModelPrice price(double input, double output, double read, double write) {
  return {input, output, read, write, write * 1.6, std::nullopt, "test", "2026-11-01"};
}
const PriceTable kPrices{
    {{"claude-sonnet-4-5", price(3, 15, 0.3, 3.75)}, {"gpt-5", price(1.25, 10, 0.125, 0)}}};

// The test's own count: every distinct reply's steps, priced by hand.
struct Count {
  TokenCounts tokens;
  double costUSD = 0;

  // Steps [from, to) of a reply.
  void add(const Reply& r, size_t from, size_t to) {
    for (size_t i = from; i < to; ++i) {
      const Step& s = r.steps[i];
      tokens += {s.input, s.read, s.write, 0, s.billedOutput, s.reasoning};
      const auto p = kPrices.models.find(r.model);
      costUSD += p == kPrices.models.end()
                     ? s.cost
                     : (s.input * p->second.input + s.read * p->second.cacheRead +
                        s.write * p->second.cacheWrite5m + s.billedOutput * p->second.output) /
                           1e6;
    }
  }
};

class OpenCodeHomeTest : public testing::TempDirTest {
 protected:
  fs::path data() const { return dir() / ".local/share/opencode"; }
  fs::path database() const { return data() / "opencode.db"; }
  fs::path kiloDatabase() const { return dir() / ".local/share/kilo/kilo.db"; }

  IngestResult pass(IngestOptions options = {}) {
    UsageStore store{dir() / "usage.db", {.busyTimeout = 0.2}};
    StoreIngestSink sink{store};
    const ToolLocations tools = ToolLocations::resolve(dir(), {});
    return UsageIngestor{sink, tools.logFolders(), std::move(options)}.run(now_);
  }

  void expectCount(const Count& count) {
    UsageStore store{dir() / "usage.db"};
    const UsageSummary summary = store.summary(30, now_, Calendar::utc(), kPrices);
    EXPECT_EQ(summary.tokens, count.tokens);
    EXPECT_NEAR(summary.totalCostUSD, count.costUSD, 1e-9);
    EXPECT_FALSE(summary.hasUnknownPrices);
  }

  // The old JSON files of a reply: its message and its parts.
  void storeAsJson(const Reply& r) {
    write(fmt::format(".local/share/opencode/storage/message/{}/{}.json", r.session, r.id),
          messageJson(r, std::nullopt, true));
    write(fmt::format(".local/share/opencode/storage/part/{}/prt_text.json", r.id),
          R"({"type":"text","text":"step-finish is what it said"})");
    for (size_t i = 0; i < r.steps.size(); ++i) {
      write(fmt::format(".local/share/opencode/storage/part/{}/prt_{}.json", r.id, i),
            stepJson(r.steps[i]));
    }
  }

  const Date now_ = dateFromUnixSeconds(1'795'608'000);  // 2026-11-20T11:20:00Z
};

// Passes, some killed at random commits, while the tool writes between them: each reply counts
// once with all its steps, as a single clean pass would count it.
TEST_F(OpenCodeHomeTest, CountsEveryReplyOnceWithItsStepsWhileTheToolWritesAndPassesAreKilled) {
  fs::create_directories(data());
  fs::create_directories(kiloDatabase().parent_path());
  testing::OpenCodeStoreWriter db{database()}, kilo{kiloDatabase()};
  // Every reply but the growing one's later steps, each copy and trap included, and the count of
  // what is written.
  db.session("ses_b", "/w/b-folder");
  for (const Reply& r : {kSonnet, kGpt, kGptOld, kPickle, kNoParts}) store(db, r, r.createdMs);
  db.message("msg_u1", "ses_a", kBase, R"({"role":"user","time":{"created":1795600800000}})");
  // A reply that has not finished its first step: nothing to count yet.
  store(db, reply("msg_a7", "ses_a", "anthropic", "claude-sonnet-4-5", 99, {Step{}}, true), kBase);
  // A forked session: every message copied with new ids.
  for (const Reply& r : {kSonnet, kGpt, kPickle}) {
    store(db, r, kBase + 60'000, std::nullopt, r.id + "_fork", "ses_fork");
  }
  // The newest builds' second table of messages, with tokens of its own, is not counted.
  db.run(
      "INSERT INTO session_message VALUES ('sm1', 'ses_a', 'assistant', 0, 0, "
      "'{\"tokens\":{\"input\":999999,\"output\":999999}}')");
  Reply growing = kGrowing;
  growing.steps.resize(1);
  store(db, growing, kBase + 70'000);

  // The old JSON files: one reply also in the database (the same id), one only there.
  storeAsJson(kSonnet);
  storeAsJson(kJsonOnly);

  store(kilo, kKilo, kKilo.createdMs);
  store(kilo, kKilo, kBase + 80'000, 0.0, "msg_k1_fork", "ses_k_fork");

  Count count;
  for (const Reply& r : {kSonnet, kGpt, kGptOld, kPickle, kNoParts, kJsonOnly, kKilo})
    count.add(r, 0, r.steps.size());
  count.add(kGrowing, 0, 1);
  ASSERT_TRUE(fs::exists(database().string() + "-wal"));
  // Many small replies, so that a kill can fall between them (in Kilo's file, leaving the WAL of
  // OpenCode's own small).
  for (int i = 0; i < 300; ++i) {
    const Reply r =
        reply(fmt::format("msg_n{:03}", i).c_str(), "ses_n", "anthropic", "claude-sonnet-4-5",
              200 + i, {{i, 2 * i, 0, 10, 0, 3 * i + 10, 0.001, 2 * i}});
    store(kilo, r, r.createdMs);
    count.add(r, 0, 1);
  }
  const auto killed = [&](unsigned seed) {
    testing::killPassesAtRandom([&](IngestOptions o) { pass(std::move(o)); }, seed, 6, 12);
  };
  killed(5);
  pass();
  expectCount(count);
  EXPECT_EQ(pass().filesRead, 0u);

  // The tool goes on: the growing reply's second step lands in the WAL only; the main file is
  // untouched and the change is still seen.
  const auto mainFile = [&] {
    return std::pair(fs::file_size(database()), fs::last_write_time(database()));
  };
  const auto before = mainFile();
  growing.steps.push_back(kGrowing.steps[1]);
  store(db, growing, kBase + 100'000);
  EXPECT_EQ(mainFile(), before);
  const IngestResult second = pass();
  EXPECT_EQ(std::tuple(second.filesRead, second.totalNewEvents()), std::tuple(1u, 0));
  count.add(kGrowing, 1, 2);
  expectCount(count);

  // A checkpoint moves everything into the main file: read again, nothing new.
  db.run("PRAGMA wal_checkpoint(TRUNCATE)");
  const IngestResult third = pass();
  EXPECT_EQ(std::tuple(third.filesRead, third.totalNewEvents()), std::tuple(1u, 0));
  expectCount(count);

  // A step saved with its message's `time_updated` an hour before every stamp read: the new part
  // row alone brings the message back, through killed passes too.
  store(db, kGrowing, kBase - 3'600'000);
  killed(6);
  pass();
  count.add(kGrowing, 2, 3);
  expectCount(count);

  // Every reply once (none for the unfinished one, the copies or the second table), each in its
  // tool and folder: the message's working folder, else its session's folder.
  testing::RawDatabase raw{dir() / "usage.db"};
  EXPECT_THAT(raw.rows("SELECT COUNT(*) FROM replies"), ::testing::ElementsAre("308"));
  EXPECT_THAT(raw.rows("SELECT DISTINCT provider, project FROM sessions ORDER BY 1, 2"),
              ::testing::ElementsAre("kilo|/w/ses_k", "kilo|/w/ses_n", "opencode|/w/b-folder",
                                     "opencode|/w/ses_a", "opencode|/w/ses_old"));
}

// A database in a folder that cannot be written, left by a tool that closed it (no -wal or -shm
// files, and none can be made), is read as it stands.
TEST_F(OpenCodeHomeTest, ReadsADatabaseInAFolderItCannotWrite) {
  fs::create_directories(data());
  {
    testing::OpenCodeStoreWriter db{database()};
    store(db, kSonnet, kBase);
  }
  ASSERT_FALSE(fs::exists(database().string() + "-wal"));
  fs::permissions(data(), fs::perms::owner_read | fs::perms::owner_exec);
  {
    testing::FilePermissionsEnforced enforced;
    if (enforced.active()) {
      const IngestResult result = pass();
      for (const SkippedFile& skipped : result.skipped) ADD_FAILURE() << skipped.reason;
      EXPECT_EQ(result.newEvents[ProviderID::opencode], 1);
    }
  }
  fs::permissions(data(), fs::perms::owner_all);
}

TEST_F(OpenCodeHomeTest, TheVariablesMoveTheDataAndTheDatabase) {
  const fs::path home = dir() / "home";
  const fs::path share = home / ".local/share";
  // Each row: the variables, the tool, its data folder and the folder of its databases.
  const std::tuple<ToolVariables, ProviderID, fs::path, fs::path> rows[] = {
      {{}, ProviderID::opencode, share / "opencode", share / "opencode"},
      {{{"XDG_DATA_HOME", "/x"}}, ProviderID::opencode, "/x/opencode", "/x/opencode"},
      {{{"XDG_DATA_HOME", "relative"}}, ProviderID::kilo, share / "kilo", share / "kilo"},
      {{{"OPENCODE_DB", "/db/my.db"}}, ProviderID::opencode, share / "opencode", "/db"},
      {{{"KILO_DB", "dbs/k.db"}, {"XDG_DATA_HOME", "/x"}},
       ProviderID::kilo,
       "/x/kilo",
       "/x/kilo/dbs"},
  };
  for (const auto& [variables, tool, data, databases] : rows) {
    const ToolPlaces places = ToolLocations::resolve(home, variables).places(tool);
    EXPECT_EQ(places.logFolders,
              (std::vector<LogFolder>{{databases, tool, {".db"}, 0},
                                      {data / "storage/message", tool, {".json"}, 1}}))
        << databases;
  }

  // Present once the data folder exists; with OPENCODE_DB, its database also counts.
  const ToolLocations tools =
      ToolLocations::resolve(home, {{"OPENCODE_DB", (dir() / "elsewhere.db").string()}});
  EXPECT_FALSE(tools.isPresent(ProviderID::opencode));
  write("elsewhere.db", "");
  EXPECT_TRUE(tools.isPresent(ProviderID::opencode));
  fs::create_directories(share / "kilo");
  EXPECT_TRUE(tools.isPresent(ProviderID::kilo));
}

}  // namespace
}  // namespace brimlog
