#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "ingest/ClaudeLogParser.hpp"
#include "ingest/JSONLTail.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

// An assistant reply with its usage spliced in.
std::string reply(const std::string& usage, const std::string& extra = "",
                  const std::string& timestamp = "2025-06-01T12:34:56.789Z") {
  return R"({"type":"assistant","timestamp":")" + timestamp +
         R"(","sessionId":"s1","message":{"id":"msg_1","model":"m1","usage":)" + usage + "}" +
         extra + "}";
}

TEST(ClaudeLogParserTest, AnAssistantReplyBecomesAnEvent) {
  const auto event = ClaudeLogParser::event(reply(R"({"input_tokens":10,"output_tokens":5})"));
  ASSERT_TRUE(event);
  EXPECT_EQ(*event, (UsageEvent{ProviderID::claude, "m1", "s1", "msg_1",
                                dateFromUnixSeconds(1748781296.789), TokenCounts{10, 0, 0, 0, 5, 0},
                                std::nullopt}));
}

TEST(ClaudeLogParserTest, CacheWritesPreferTheSplitByLifetime) {
  const auto split = ClaudeLogParser::event(
      reply(R"({"input_tokens":1,"cache_creation_input_tokens":100,"cache_read_input_tokens":7,)"
            R"("cache_creation":{"ephemeral_1h_input_tokens":100},"output_tokens":2,)"
            R"("output_tokens_details":{"thinking_tokens":9}})"));
  ASSERT_TRUE(split);
  EXPECT_EQ(split->tokens, (TokenCounts{1, 7, 0, 100, 2, 9}));

  const auto flat = ClaudeLogParser::event(
      reply(R"({"input_tokens":1,"cache_creation_input_tokens":100,"output_tokens":2})"));
  ASSERT_TRUE(flat);
  EXPECT_EQ(flat->tokens, (TokenCounts{1, 0, 100, 0, 2, 0}));

  // A cache_creation that is not an object falls back to the flat total.
  const auto odd =
      ClaudeLogParser::event(reply(R"({"cache_creation_input_tokens":100,"cache_creation":[1]})"));
  ASSERT_TRUE(odd);
  EXPECT_EQ(odd->tokens.cacheWrite5m, 100);
}

TEST(ClaudeLogParserTest, TokenFieldsAreTruncatedNumbersAndNothingElse) {
  const auto event = ClaudeLogParser::event(reply(
      R"({"input_tokens":12.9,"cache_read_input_tokens":"500","output_tokens":true,)"
      R"("cache_creation_input_tokens":-3.7,"output_tokens_details":{"thinking_tokens":null}})"));
  ASSERT_TRUE(event);
  EXPECT_EQ(event->tokens, (TokenCounts{12, 0, -3, 0, 1, 0}));

  const auto huge = ClaudeLogParser::event(
      reply(R"({"input_tokens":1e300,"output_tokens":18446744073709551615})"));
  ASSERT_TRUE(huge);
  EXPECT_EQ(huge->tokens.uncachedInput, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(huge->tokens.output, std::numeric_limits<int64_t>::max());
}

TEST(ClaudeLogParserTest, KeysSessionsAndModelsHaveTheirFallbacks) {
  const std::string withoutId =
      R"({"type":"assistant","timestamp":"2025-06-01T12:34:56Z","requestId":"r9",)"
      R"("message":{"usage":{"output_tokens":1}}})";
  const auto byRequest = ClaudeLogParser::event(withoutId);
  ASSERT_TRUE(byRequest);
  EXPECT_EQ(byRequest->dedupKey, "r9");
  EXPECT_EQ(byRequest->model, "unknown");
  EXPECT_EQ(byRequest->sessionID, "");
  EXPECT_EQ(byRequest->timestamp, dateFromUnixSeconds(1748781296));

  const auto idNotString = ClaudeLogParser::event(
      R"({"type":"assistant","timestamp":"2025-06-01T12:34:56Z","requestId":"r9",)"
      R"("sessionId":7,"message":{"id":5,"model":3,"usage":{"output_tokens":1}}})");
  ASSERT_TRUE(idNotString);
  EXPECT_EQ(idNotString->dedupKey, "r9");
  EXPECT_EQ(idNotString->model, "unknown");
  EXPECT_EQ(idNotString->sessionID, "");

  EXPECT_FALSE(ClaudeLogParser::event(
      R"({"type":"assistant","timestamp":"2025-06-01T12:34:56Z","message":{"usage":{"output_tokens":1}}})"));
}

TEST(ClaudeLogParserTest, LinesThatAreNotUsableRepliesYieldNothing) {
  const std::string usage = R"({"input_tokens":10,"output_tokens":5})";
  const std::string good = reply(usage);
  ASSERT_TRUE(ClaudeLogParser::event(good));
  for (
      const std::string& line : {
          std::string(
              R"({"type":"user","timestamp":"2025-06-01T12:34:56.789Z","message":{"id":"msg_1","usage":{"output_tokens":5}}})"),
          std::string(
              R"({"type":"Assistant","timestamp":"2025-06-01T12:34:56.789Z","message":{"id":"msg_1","usage":{"output_tokens":5}}})"),
          std::string(
              R"({"type":"assistant","timestamp":"2025-06-01T12:34:56.789Z","message":{"id":"msg_1"}})"),
          std::string(
              R"({"type":"assistant","timestamp":"2025-06-01T12:34:56.789Z","message":"text"})"),
          reply(usage, "", "2025-06-01T12:34:56"),                       // no zone designator
          reply(usage, "", "2025-06-01"),                                // not a date-time
          reply(R"({"output_tokens_details":{"thinking_tokens":50}})"),  // reasoning alone
          reply(R"({"input_tokens":0,"output_tokens":0})"),
          reply(R"({"input_tokens":5,"output_tokens":-5})"),  // nothing processed in sum
          good + " x",                                        // trailing garbage
          good.substr(0, good.size() - 1),                    // cut short
          std::string("[") + good + "]",                      // not an object
          std::string(""),
          std::string("   "),
      }) {
    EXPECT_FALSE(ClaudeLogParser::event(line)) << line;
  }
  std::string synthetic = good;
  synthetic.replace(synthetic.find("\"m1\""), 4, "\"<synthetic>\"");
  EXPECT_FALSE(ClaudeLogParser::event(synthetic));
}

class ClaudeLogParserFileTest : public testing::TempDirTest {};

// Truncated emoji in tool output leave a lone surrogate escape or a stray byte in a reply's line;
// the line is parsed again with those replaced, and the reply counts.
TEST_F(ClaudeLogParserFileTest, RepliesWithBrokenTextStillCount) {
  struct Row {
    const char* name;
    std::string session;  // spliced into the line as it stands in the file
    std::string decoded;
  };
  const std::vector<Row> rows = {
      {"lone high surrogate", R"(s\ud83d)", "s\xEF\xBF\xBD"},
      {"lone low surrogate", R"(\ude00s)", "\xEF\xBF\xBDs"},
      {"a proper pair stays", R"(\ud83d\ude00)", "\xF0\x9F\x98\x80"},
      {"Latin-1 byte", "caf\xe9", "caf\xEF\xBF\xBD"},
      {"surrogate encoded as UTF-8", "\xed\xa0\xbd!", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!"},
      {"escaped backslash before u", R"(\\ud83d)", R"(\ud83d)"},
  };
  std::string file;
  for (const Row& row : rows) {
    std::string line = reply(R"({"output_tokens":1})");
    line.replace(line.find("\"s1\""), 4, "\"" + row.session + "\"");
    file += line + "\n";
  }
  const auto read = JSONLTail::read(write("t.jsonl", file), std::nullopt, 1 << 20);
  ASSERT_EQ(read.lines.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    const auto quick = ClaudeLogParser::event(read.lines[i]);
    ASSERT_TRUE(quick);
    EXPECT_EQ(quick->sessionID, rows[i].decoded);
    EXPECT_EQ(quick, ClaudeLogParser::event(read.lines[i].bytes));
  }
}

TEST(ClaudeLogParserTest, EscapedTextIsDecodedBeforeComparing) {
  // "assistant" spelled with an escape is still the assistant type.
  std::string line = reply(R"({"output_tokens":1})");
  line.replace(line.find("assistant"), 9, R"(assis\u0074ant)");
  const auto event = ClaudeLogParser::event(line);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->tokens.output, 1);
}

// Lines read from a file take a quick look at their type first; the outcome must be the one the
// full parse of the same bytes gives, whatever the keys and their spelling.
TEST_F(ClaudeLogParserFileTest, TheQuickTypeCheckAgreesWithTheFullParse) {
  const std::string usage = R"("message":{"id":"m","usage":{"output_tokens":3}})";
  const std::string stamp = R"("timestamp":"2025-06-01T12:34:56Z")";
  const std::vector<std::string> lines = {
      "{\"type\":\"assistant\"," + stamp + "," + usage + "}",
      "{\"type\":\"user\"," + stamp + "," + usage + "}",
      "{\"typ\\u0065\":\"assistant\",\"type\":\"user\"," + stamp + "," + usage + "}",
      "{\"type\":\"user\",\"typ\\u0065\":\"assistant\"," + stamp + "," + usage + "}",
      "{\"type\":\"assis\\u0074ant\"," + stamp + "," + usage + "}",
      "{\"type\":\"assistant\",\"type\":\"user\"," + stamp + "," + usage + "}",
      "{\"type\":\"user\",\"type\":\"assistant\"," + stamp + "," + usage + "}",
      "{\"kind\":1," + stamp + "," + usage + ",\"type\":\"assistant\"}",
      "{\"type\":7," + stamp + "," + usage + "}",
      "{\"type\":\"user\"," + stamp + "," + usage + "} trailing",
      "{\"type\":\"assistant\"," + stamp + "," + usage + "} trailing",
      "[\"type\",\"assistant\"]",
      "{\"type\":\"user\",\"bad\":\"\xff\"}",
  };
  std::string file;
  for (const auto& line : lines) file += line + "\n";
  const auto read = JSONLTail::read(write("t.jsonl", file), std::nullopt, 1 << 20);
  ASSERT_EQ(read.lines.size(), lines.size());
  int events = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto quick = ClaudeLogParser::event(read.lines[i]);
    EXPECT_EQ(quick, ClaudeLogParser::event(std::string_view(lines[i]))) << lines[i];
    events += quick.has_value();
  }
  EXPECT_EQ(events, 5);
}

TEST(ClaudeLogParserTest, ManyThreadsParseAtOnce) {
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &mismatches] {
      for (int i = 0; i < 2000; ++i) {
        const int n = t * 10000 + i;
        const auto event = ClaudeLogParser::event(
            reply(R"({"input_tokens":)" + std::to_string(n) + R"(,"output_tokens":1})"));
        if (!event || event->tokens.uncachedInput != n) ++mismatches;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(mismatches.load(), 0);
}

// The real transcripts: one event per assistant line with usage, and the figures of one whole
// session checked against its lines read by eye.
TEST(ClaudeLogParserTest, RealTranscriptsParseLineByLine) {
  BRIMLOG_REQUIRE_REAL_FIXTURES(fixtures);
  // Assistant lines with usage per file, counted independently of this parser.
  const std::map<std::string, size_t> expected = {
      {"ccviewer__1af7fc5e-8455-4414-9ccd-011d40f70b2a.jsonl", 15},
      {"ccviewer__5c0375b4-57a5-4f26-b12d-d022ee4e51b7.jsonl", 28},
      {"ccviewer__fe5e1c67-53e7-4862-81ae-d0e013e3270b.jsonl", 262},
      {"codemie__4c2ddfdc-b619-4525-8d03-1950fb1b0257.jsonl", 10},
      {"codemie__agent-36541525.jsonl", 1},
      {"codemie__agent-50243ee8.jsonl", 1},
      {"codemie__session-196820da.jsonl", 133},
      {"codemie__session-3fe1b6bc.jsonl", 172},
      {"codemie__session-9eda1058.jsonl", 12},
      {"spotter__ae4a77f8-aedd-4bc1-888f-c94edc91af04.jsonl", 311},
      {"spotter__agent-a2898e3.jsonl", 40},
      {"spotter__agent-acompact-e1f845.jsonl", 1},
      {"spotter__agent-afc096d.jsonl", 66},
      {"spotter__short.jsonl", 5},
      {"spotter__tool_heavy.jsonl", 9},
  };
  for (const auto& [name, count] : expected) {
    std::vector<UsageEvent> events;
    std::optional<FileCursor> cursor;
    JSONLTail::Result read;
    do {  // small chunks, so lines straddle many chunk boundaries
      read = JSONLTail::read(fixtures / "claude" / name, cursor, 64 << 10);
      for (PaddedLine line : read.lines) {
        auto event = ClaudeLogParser::event(line);
        EXPECT_EQ(event, ClaudeLogParser::event(line.bytes)) << name;
        if (event) events.push_back(std::move(*event));
      }
      cursor = read.cursor;
    } while (!read.atEOF);
    EXPECT_EQ(events.size(), count) << name;
  }

  // A Bedrock Converse subagent: only input and output, an unusual model id.
  const auto converse =
      JSONLTail::read(fixtures / "claude" / "codemie__agent-50243ee8.jsonl", std::nullopt, 1 << 20);
  std::optional<UsageEvent> single;
  for (PaddedLine line : converse.lines) {
    if (auto event = ClaudeLogParser::event(line)) single = event;
  }
  ASSERT_TRUE(single);
  EXPECT_EQ(single->model, "converse/jp.anthropic.claude-haiku-4-5-20251001-v1:0");
  EXPECT_EQ(single->tokens, (TokenCounts{16878, 0, 0, 0, 237, 0}));
}

}  // namespace
}  // namespace brimlog
