// A Qwen Code home built from how the tool writes its chats, with every trap it sets, read by real
// passes into a real database: the totals and the cost must be those the test counts itself,
// in one pass and across passes killed at random while the tool goes on writing.

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "ingest/ToolLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/KilledPasses.hpp"
#include "support/RawDatabase.hpp"
#include "support/TempDir.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// How a provider reports one call's reasoning in the usage metadata the tool copies.
enum class Style {
  inside,   // an OpenAI-compatible provider: reasoning is part of the completion count
  beside,   // Gemini: reasoning apart from the candidates
  toolUse,  // Gemini with tool-use prompt tokens, a part of the plain input, apart from the prompt
};

// One model call as billed, and how the tool recorded it.
struct Call {
  std::string uuid;
  std::string model;
  int64_t input;  // plain input
  int64_t cacheRead;
  int64_t output;  // reasoning included
  int64_t reasoning;
  Style style;
};

const std::map<std::string, Call>& calls() {
  static const std::map<std::string, Call> all = [] {
    std::map<std::string, Call> each;
    for (const Call& c : {
             Call{"a1", "qwen3-coder-plus", 2232, 12288, 96, 0, Style::inside},
             Call{"a2", "qwen3-coder-plus", 546, 14464, 310, 120, Style::beside},
             Call{"a3", "qwen3-coder-plus", 800, 15000, 1200, 400, Style::inside},
             Call{"a4", "qwen3-coder-flash", 5000, 0, 700, 0, Style::inside},
             Call{"a5", "qwen3-coder-flash", 3100, 900, 40, 0, Style::beside},
             Call{"a6", "qwen3-coder-plus", 7000, 2000, 650, 250, Style::toolUse},
             Call{"a7", "qwen3-coder-plus", 90, 16000, 55, 20, Style::inside},
             Call{"a8", "qwen3-coder-plus", 1500, 17000, 300, 0, Style::beside},
             Call{"a9", "qwen3-coder-flash", 160, 4000, 900, 600, Style::toolUse},
         }) {
      each.emplace(c.uuid, c);
    }
    return each;
  }();
  return all;
}

// The line recording a call, as the tool writes it: the prompt count includes the cache reads;
// tool-use prompts (here 100 of the plain input) are counted apart from it.
std::string callLine(const std::string& uuid, const std::string& session,
                     const std::string& extra = "") {
  const Call& c = calls().at(uuid);
  const int64_t toolUse = c.style == Style::toolUse ? 100 : 0;
  const int64_t prompt = c.input - toolUse + c.cacheRead;
  const int64_t candidates = c.style == Style::inside ? c.output : c.output - c.reasoning;
  const int64_t total =
      prompt + candidates + toolUse + (c.style == Style::inside ? 0 : c.reasoning);
  return fmt::format(
      R"({{"uuid":"{}","parentUuid":"p","sessionId":"{}","timestamp":"2026-11-20T10:{:02}:00.250Z",)"
      R"("type":"assistant","cwd":"/home/me/proj","version":"0.14.5","model":"{}",)"
      R"("message":{{"role":"model","parts":[{{"text":"Fixed \"it\" \u2014 done."}}]}},)"
      R"("usageMetadata":{{"promptTokenCount":{},"candidatesTokenCount":{},)"
      R"("cachedContentTokenCount":{},"thoughtsTokenCount":{},"totalTokenCount":{}{}}},)"
      R"("contextWindowSize":1000000{}}})"
      "\n",
      uuid, session, uuid[1] - '0', c.model, prompt, candidates, c.cacheRead, c.reasoning, total,
      toolUse ? fmt::format(R"(,"toolUsePromptTokenCount":{})", toolUse) : "", extra);
}

// A branch's copy of a call: the same record under the new session, marked with its origin.
std::string branchCopy(const std::string& uuid, const std::string& from, const std::string& to) {
  return callLine(
      uuid, to,
      fmt::format(R"(,"forkedFrom":{{"sessionId":"{}","messageUuid":"{}"}})", from, uuid));
}

std::string record(const std::string& type, const std::string& session, const std::string& rest) {
  return fmt::format(
      R"({{"uuid":"{}-{}","parentUuid":null,"sessionId":"{}","timestamp":"2026-11-20T09:00:00Z",)"
      R"("type":"{}",{}}})"
      "\n",
      type, session, session, type, rest);
}

// The records around the calls, none of which may add usage: the user's turn, a tool's result,
// the UI telemetry replaying a call's counts, a compression checkpoint, an assistant record of no
// call, and one of a call that used nothing.
std::string chatter(const std::string& session) {
  return record("user", session,
                R"("message":{"role":"user","parts":[{"text":"fix the build"}]})") +
         record("tool_result", session,
                R"("message":{"role":"user","parts":[{"functionResponse":{"id":"c1",)"
                R"("name":"run_shell_command","response":{"output":"error: …"}}}]}})") +
         record("system", session,
                R"("subtype":"ui_telemetry","systemPayload":{"uiEvent":{"event.name":)"
                R"("qwen-code.api_response","input_token_count":14520,"output_token_count":96,)"
                R"("usageMetadata":{"promptTokenCount":14520,"candidatesTokenCount":96}}})") +
         record("system", session,
                R"("subtype":"chat_compression","usageMetadata":{"promptTokenCount":900})") +
         record("assistant", session,
                R"("subtype":"realtime_message","model":"qwen3-coder-plus","message":{}})") +
         record("assistant", session,
                R"("model":"qwen3-coder-plus","usageMetadata":{"promptTokenCount":0,)"
                R"("candidatesTokenCount":0,"totalTokenCount":0})");
}

constexpr const char* kS1 = "9b1f0c3e-55aa-4d0e-b7f2-0c1d2e3f4a5b";
constexpr const char* kS2 = "2c6d1e8a-0f4b-4a7e-9d3c-5b8e7f6a1d20";

class QwenHomeTest : public testing::TempDirTest {
 protected:
  fs::path home() const { return dir() / "home"; }
  fs::path run() const { return dir() / "run"; }  // where QWEN_RUNTIME_DIR points
  fs::path chats() const { return home() / ".qwen/projects/-home-me-proj/chats"; }
  fs::path movedChats() const { return run() / "projects/-home-me-other/chats"; }

  void put(const fs::path& path, const std::string& text) {
    write(fs::relative(path, dir()), text);
  }
  void add(const fs::path& path, const std::string& text) {
    append(fs::relative(path, dir()), text);
  }

  // The home as it is before the first pass.
  void firstWrites() {
    const std::string a3 = callLine("a3", kS1);
    // The call being written when the pass runs: its line has no end yet.
    put(chats() / fmt::format("{}.jsonl", kS1),
        chatter(kS1) + callLine("a1", kS1) + callLine("a2", kS1) + a3.substr(0, a3.size() - 1));
    // Sidecars beside the session: its runtime state, and a ledger of JSON lines that must not be
    // read as a log (its line would count as a call).
    put(chats() / fmt::format("{}.runtime.json", kS1), R"({"pid":4242})");
    std::string ledger = callLine("a1", kS1);
    ledger.insert(ledger.find("a1"), "ledger-");
    put(chats() / fmt::format("{}.ledger.jsonl", kS1), ledger);
    put(chats() / "archive/7e0f9a51-3b2c-4d8e-a6f1-0c9b8d7e6f5a.jsonl",
        chatter("s3") + callLine("a4", "s3"));
    // Where older versions kept the chats.
    put(home() /
            ".qwen/tmp/5d41402abc4b2a76b9719d911017c592/chats/"
            "0d7c1f2e-8a9b-4c3d-b2e1-f0a9b8c7d6e5.jsonl",
        chatter("s4") + callLine("a5", "s4"));
    // A session under the moved runtime base.
    put(movedChats() / "1a2b3c4d-5e6f-4a8b-9c0d-1e2f3a4b5c6d.jsonl",
        chatter("s5") + callLine("a6", "s5"));
  }

  // The tool goes on: the call being written is finished and another follows; the session is
  // branched, copying its calls under their uuids, and the branch makes a call of its own.
  void secondWrites() {
    add(chats() / fmt::format("{}.jsonl", kS1), fmt::format("\n{}", callLine("a7", kS1)));
    put(chats() / fmt::format("{}.jsonl", kS2),
        chatter(kS2) + branchCopy("a1", kS1, kS2) + branchCopy("a2", kS1, kS2) +
            branchCopy("a3", kS1, kS2) + callLine("a8", kS2));
  }

  // The moved session is archived (moved into the archive folder) and the branch goes on.
  void thirdWrites() {
    fs::create_directories(movedChats() / "archive");
    fs::rename(movedChats() / "1a2b3c4d-5e6f-4a8b-9c0d-1e2f3a4b5c6d.jsonl",
               movedChats() / "archive/1a2b3c4d-5e6f-4a8b-9c0d-1e2f3a4b5c6d.jsonl");
    add(chats() / fmt::format("{}.jsonl", kS2), callLine("a9", kS2));
  }

  IngestResult pass(IngestOptions options = {}) {
    UsageStore store{dir() / "usage.db", {.busyTimeout = 0.2}};
    StoreIngestSink sink{store};
    const ToolLocations tools =
        ToolLocations::resolve(home(), {{"QWEN_RUNTIME_DIR", run().string()}});
    return UsageIngestor{sink, tools.logFolders(), std::move(options)}.run(now_);
  }

  // The stored totals and cost against the test's own count of every call once.
  void expectEveryCallOnce() {
    const PriceTable prices{{
        {"qwen3-coder-plus", ModelPrice{1.0, 5.0, 0.1, 0, 0, std::nullopt, "test", "2026-11-01"}},
        {"qwen3-coder-flash", ModelPrice{0.3, 1.5, 0.03, 0, 0, std::nullopt, "test", "2026-11-01"}},
    }};
    TokenCounts expected;
    double cost = 0;
    for (const auto& [uuid, c] : calls()) {
      expected += TokenCounts{c.input, c.cacheRead, 0, 0, c.output, c.reasoning};
      const bool plus = c.model == "qwen3-coder-plus";
      cost += (c.input * (plus ? 1.0 : 0.3) + c.cacheRead * (plus ? 0.1 : 0.03) +
               c.output * (plus ? 5.0 : 1.5)) /
              1e6;
    }
    const UsageSummary summary =
        UsageStore{dir() / "usage.db"}.summary(30, now_, Calendar::utc(), prices);
    EXPECT_EQ(summary.tokens, expected);
    EXPECT_NEAR(summary.totalCostUSD, cost, 1e-9);
    EXPECT_FALSE(summary.hasUnknownPrices);
    EXPECT_EQ(testing::RawDatabase{dir() / "usage.db"}.rows("SELECT COUNT(*) FROM replies"),
              std::vector<std::string>{std::to_string(calls().size())});
  }

  const Date now_ = *parseISO8601("2026-11-20T12:00:00Z");
};

TEST_F(QwenHomeTest, OnePassCountsEveryCallOnce) {
  firstWrites();
  secondWrites();
  thirdWrites();
  const IngestResult first = pass();
  EXPECT_EQ(first.newEvents[ProviderID::qwen], static_cast<int64_t>(calls().size()));
  EXPECT_TRUE(first.skipped.empty());
  expectEveryCallOnce();
  // Nothing new: nothing is read again, the ledger beside the session included.
  EXPECT_EQ(pass().filesRead, 0u);
}

TEST_F(QwenHomeTest, PassesKilledAtRandomWhileTheToolWritesCountEveryCallOnce) {
  const auto killedPasses = [&](unsigned seed) {
    testing::killPassesAtRandom([&](IngestOptions o) { pass(std::move(o)); }, seed, 6, 12);
  };
  firstWrites();
  killedPasses(1);
  secondWrites();
  killedPasses(2);
  thirdWrites();
  killedPasses(3);
  pass();
  expectEveryCallOnce();
}

}  // namespace
}  // namespace brimlog
