#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "ingest/ToolLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/KilledPasses.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::RawDatabase;

// One model reply as the test writes it, with the figures the API reported.
struct Reply {
  std::string session;
  std::string id;
  std::string model;
  int64_t input, cached, output, thoughts, tool;
  std::string time;
};

const std::string kA = "aaaa1111-0000-4000-8000-000000000001";    // main session, project alpha
const std::string kSub = "5ub00000-0000-4000-8000-000000000002";  // its subagent
const std::string kB = "bbbb2222-0000-4000-8000-000000000003";    // older document, then resumed
const std::string kC = "cccc3333-0000-4000-8000-000000000004";    // project known by its folder

const Reply a1{kA, "a1", "gemini-2.5-pro", 20000, 15000, 300, 400, 0, "2026-11-20T09:00:05.100Z"};
const Reply a2{kA, "a2", "gemini-2.5-pro", 22000, 18000, 500, 100, 250, "2026-11-20T09:01:00Z"};
const Reply a3{kA, "a3", "gemini-2.5-flash", 5000, 0, 80, 0, 0, "2026-11-20T10:00:00Z"};
const Reply s1{kSub, "s1", "gemini-2.5-flash", 3000, 1000, 60, 10, 0, "2026-11-20T09:00:30Z"};
const Reply s2{kSub, "s2", "gemini-2.5-flash", 3500, 3000, 40, 0, 5, "2026-11-20T09:00:40Z"};
const Reply b1{kB, "b1", "gemini-3-pro-preview", 9120, 0, 455, 231, 0, "2026-11-10T16:02:30Z"};
const Reply b2{kB, "b2", "gemini-3-pro-preview", 9900, 9000, 100, 0, 0, "2026-11-10T16:05:00Z"};
const Reply b3{kB, "b3", "gemini-2.5-pro", 12000, 9800, 210, 50, 0, "2026-11-19T08:00:00Z"};
const Reply c1{kC, "c1", "gemini-2.5-pro", 1000, 0, 10, 0, 0, "2026-11-15T12:00:00Z"};

std::string tokens(const Reply& r) {
  return fmt::format(R"("tokens":{{"input":{},"output":{},"cached":{},"thoughts":{},"tool":{},)"
                     R"("total":{}}})",
                     r.input, r.output, r.cached, r.thoughts, r.tool,
                     r.input + r.output + r.thoughts + r.tool);
}

// A reply's record; before its counts are known, `tokens` is missing.
std::string message(const Reply& r, bool counted = true, std::string_view more = "") {
  return fmt::format(
      R"({{"id":"{}","timestamp":"{}","type":"gemini","content":"",{}"model":"{}"{}}})", r.id,
      r.time, counted ? tokens(r) + "," : "", r.model, more);
}

std::string user(std::string_view id) {
  return fmt::format(R"({{"id":"{}","type":"user","content":"go on"}})", id);
}

std::string meta(const std::string& session, std::string_view extra = "") {
  return fmt::format(
      R"({{"sessionId":"{}","projectHash":"9e1c","startTime":"2026-11-10T16:00:00Z",)"
      R"("lastUpdated":"2026-11-20T09:00:00Z"{}}})",
      session, extra);
}

std::string lines(std::initializer_list<std::string> each) {
  std::string text;
  for (const std::string& line : each) text += line + "\n";
  return text;
}

// The older form: one pretty-printed document, rewritten whole.
std::string document(const std::string& session, const std::vector<Reply>& replies) {
  std::string messages = "    " + user("ub");
  for (const Reply& r : replies) messages += ",\n    " + message(r);
  messages +=
      ",\n    "
      R"({"id":"i1","timestamp":"2026-11-10T16:09:00Z","type":"info","content":"x"})";
  return fmt::format(
      "{{\n  \"sessionId\": \"{}\",\n  \"projectHash\": \"5f0e\",\n"
      "  \"startTime\": \"2026-11-10T16:00:00Z\",\n  \"messages\": [\n{}\n  ]\n}}\n",
      session, messages);
}

const PriceTable kPrices{{
    {"gemini-2.5-pro", {1.25, 10, 0.125, 0, 0, std::nullopt, "test", "2026-11-01"}},
    {"gemini-2.5-flash", {0.3, 2.5, 0.03, 0, 0, std::nullopt, "test", "2026-11-01"}},
    {"gemini-3-pro-preview", {2, 12, 0.2, 0, 0, std::nullopt, "test", "2026-11-01"}},
}};

// The temporary folder is the home Gemini CLI writes in.
class GeminiIngestTest : public testing::TempDirTest {
 protected:
  fs::path dbPath() const { return dir() / "usage.db"; }

  IngestResult pass(IngestOptions options = {}) {
    UsageStore store{dbPath(), {.busyTimeout = 0.2}};
    StoreIngestSink sink{store};
    const ToolLocations tools = ToolLocations::resolve(dir(), {});
    return UsageIngestor{sink, tools.logFolders(), std::move(options)}.run(now_);
  }

  void killedPasses(unsigned seed) {
    testing::killPassesAtRandom([&](IngestOptions o) { pass(std::move(o)); }, seed, 8, 30);
  }

  // The summary's tokens and cost against the replies' own, counted by hand at the test's prices
  // (which differ per model).
  void expectCounted(const std::vector<Reply>& replies) {
    TokenCounts total;
    double costUSD = 0;
    for (const Reply& r : replies) {
      // The prompt includes its cached part; the tool-use prompt is apart; thinking is output.
      const TokenCounts t{r.input - r.cached + r.tool, r.cached,  0, 0,
                          r.output + r.thoughts,       r.thoughts};
      total += t;
      const ModelPrice& p = kPrices.models.at(r.model);
      costUSD += (static_cast<double>(t.uncachedInput) * p.input +
                  static_cast<double>(t.cacheRead) * p.cacheRead +
                  static_cast<double>(t.output) * p.output) /
                 1e6;
    }
    const UsageSummary summary = UsageStore{dbPath()}.summary(30, now_, Calendar::utc(), kPrices);
    EXPECT_EQ(summary.tokens, total);
    EXPECT_NEAR(summary.totalCostUSD, costUSD, 1e-9);
  }

  // The session files as the tool leaves them before (stage 1) and after (stage 2) it goes on.
  void writeHome(int stage) {
    write(".gemini/settings.json", "{}");
    write(".gemini/projects.json", R"({"projects":{"/work/alpha":"alpha","/work/beta":"beta"}})");
    write(".gemini/tmp/alpha/.project_root", "/work/alpha");
    // Files of the project folder beside its chats that are not sessions, though they hold
    // what looks like replies: never counted.
    // Nor are chats folders, or sessions, anywhere but in a project folder.
    const Reply z{"zzzz", "z1", "gemini-2.5-pro", 7, 0, 7, 0, 0, "2026-11-20T09:00:00Z"};
    const std::string stranger = document("zzzz", {z});
    const std::string strangerLines = lines({meta("zzzz"), message(z)});
    write(".gemini/tmp/alpha/logs.json", stranger);
    write(".gemini/tmp/alpha/checkpoint-t.json", stranger);
    write(".gemini/tmp/alpha/tool-outputs/chats/x.json", stranger);
    write(".gemini/tmp/alpha/tool-outputs/chats/x.jsonl", strangerLines);
    write(".gemini/tmp/alpha/chats/" + sessionA + ".tmp-42", strangerLines);
    write(".gemini/tmp/chats/" + sessionA, strangerLines);
    write(".gemini/tmp/" + sessionA, strangerLines);

    // The main session: a reply written before its counts, with them, and with its tool's
    // result; a second reply the user then rewinds past.
    const std::string first =
        lines({meta(kA, R"(,"kind":"main")"), user("u1"), R"({"$set":{"lastUpdated":"x"}})",
               message(a1, false), message(a1),
               message(a1, true, R"(,"toolCalls":[{"id":"t","name":"read_file","result":[]}])"),
               user("u2"), message(a2), R"({"$rewindTo":"a2"})"});
    // The subagent's session lies in a folder named after its parent.
    const std::string sub = lines({meta(kSub, R"(,"kind":"subagent","directories":["/w/s"])"),
                                   user("v1"), message(s1, false), message(s1)});
    // The older document, and a session in a project folder only its workspace names.
    write(".gemini/tmp/beta/chats/" + sessionB + ".json", document(kB, {b1}));
    write(".gemini/tmp/gamma/chats/session-2026-11-15T12-00-cccc3333.jsonl",
          lines({meta(kC, R"(,"directories":["/work/gamma"])"), message(c1)}));
    if (stage == 1) {
      write(".gemini/tmp/alpha/chats/" + sessionA, first);
      write(".gemini/tmp/alpha/chats/" + kA + "/" + kSub + ".jsonl", sub);
      // An upgrade copies the project folder named by the hash of its path to its new name.
      write(".gemini/tmp/" + std::string(64, 'f') + "/chats/" + sessionA, first);
      return;
    }
    // The conversation goes on: a checkpoint writes every message again.
    append(".gemini/tmp/alpha/chats/" + sessionA,
           lines({user("u3"), message(a3),
                  R"({"$set":{"messages":[)" + user("u1") + "," + message(a1) + "," + user("u3") +
                      "," + message(a3) + "]}}"}));
    append(".gemini/tmp/alpha/chats/" + kA + "/" + kSub + ".jsonl", lines({message(s2)}));
    // The older document is rewritten in place, then resumed: copied into a JSON-lines file
    // that goes on from there.
    write(".gemini/tmp/beta/chats/" + sessionB + ".json", document(kB, {b1, b2}));
    write(".gemini/tmp/beta/chats/" + sessionB + ".jsonl",
          lines({meta(kB), user("ub"), message(b1), message(b2),
                 fmt::format(R"({{"$set":{{"sessionId":"{}"}}}})", kB), message(b3)}));
  }

  const std::string sessionA = "session-2026-11-20T09-00-aaaa1111.jsonl";
  const std::string sessionB = "session-2026-11-10T16-00-bbbb2222";
  const Date now_ = *parseISO8601("2026-11-20T12:00:00Z");
};

TEST_F(GeminiIngestTest, EveryReplyCountsOnceAcrossCopiesRewritesAndKilledPasses) {
  const std::vector<Reply> stage1 = {a1, a2, s1, b1, c1};
  const std::vector<Reply> stage2 = {a1, a2, a3, s1, s2, b1, b2, b3, c1};

  writeHome(1);
  EXPECT_EQ(pass().newEvents[ProviderID::gemini], static_cast<int64_t>(stage1.size()));
  expectCounted(stage1);
  // Each session has the folder its tool worked in: the project folder's marker, the registry
  // of project folders, or the session's first workspace folder.
  EXPECT_THAT(RawDatabase{dbPath()}.rows("SELECT session_id, project FROM sessions ORDER BY 1"),
              ElementsAre("5ub00000-0000-4000-8000-000000000002|/work/alpha",
                          "aaaa1111-0000-4000-8000-000000000001|/work/alpha",
                          "bbbb2222-0000-4000-8000-000000000003|/work/beta",
                          "cccc3333-0000-4000-8000-000000000004|/work/gamma"));
  EXPECT_EQ(pass().filesRead, 0u);

  // Again from nothing, through passes killed at random points while the tool goes on.
  for (const char* file : {"usage.db", "usage.db-wal", "usage.db-shm"}) fs::remove(dir() / file);
  killedPasses(11);
  writeHome(2);
  killedPasses(12);
  pass();
  expectCounted(stage2);
  EXPECT_EQ(pass().filesRead, 0u);

  // The tool deletes its old sessions: what was counted stays counted.
  fs::remove_all(dir() / ".gemini/tmp/alpha/chats");
  fs::remove_all(dir() / ".gemini/tmp/beta");
  pass();
  expectCounted(stage2);
}

}  // namespace
}  // namespace brimlog
