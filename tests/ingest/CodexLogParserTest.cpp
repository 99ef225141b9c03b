#include <gtest/gtest.h>

#include <vector>

#include "ingest/CodexLogParser.hpp"
#include "ingest/JSONLTail.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Context = std::map<std::string, std::string>;

const Date kStamp = dateFromUnixSeconds(1748781296.789);  // 2025-06-01T12:34:56.789Z

std::string usageRecord(const std::string& usage, const std::string& extra = "",
                        const std::string& timestamp = R"("2025-06-01T12:34:56.789Z")") {
  return R"({"timestamp":)" + timestamp +
         R"(,"type":"token_usage_record","payload":{"response_id":"r1","usage":)" + usage + extra +
         "}}";
}

std::string tokenCountLine(const std::string& rateLimits, const std::string& info = "null",
                           const std::string& timestamp = R"("2025-06-01T12:34:56.789Z")") {
  return R"({"timestamp":)" + timestamp +
         R"(,"type":"event_msg","payload":{"type":"token_count","info":)" + info +
         R"(,"rate_limits":)" + rateLimits + "}}";
}

std::optional<UsageEvent> usageOf(const std::optional<CodexLine>& line) {
  if (!line || !std::holds_alternative<UsageEvent>(*line)) return std::nullopt;
  return std::get<UsageEvent>(*line);
}

std::optional<ProviderLimits> limitsOf(const std::optional<CodexLine>& line) {
  if (!line || !std::holds_alternative<ProviderLimits>(*line)) return std::nullopt;
  return std::get<ProviderLimits>(*line);
}

// A line followed by padding, as the lines of a read lie in memory.
class Padded {
 public:
  explicit Padded(std::string_view text)
      : storage_(std::string(text) + std::string(LineBatch::kPadding, '"')), size_(text.size()) {}
  operator PaddedLine() const { return {{storage_.data(), size_}}; }  // NOLINT

 private:
  std::string storage_;
  size_t size_;
};

TEST(CodexLogParserTest, UsageRecordsTakeModelAndSessionFromEarlierLines) {
  CodexLogParser parser(Context{{"provider", "codex"}});
  EXPECT_FALSE(parser.consume(R"({"type":"session_meta","payload":{"id":"s1"}})"));
  EXPECT_FALSE(parser.consume(R"({"type":"turn_context","payload":{"model":"m1"}})"));
  const auto event = usageOf(parser.consume(
      usageRecord(R"({"input_tokens":100,"cached_input_tokens":30,"output_tokens":20,)"
                  R"("reasoning_output_tokens":5,"cache_write_input_tokens":7})",
                  R"(,"session_id":"own","model":"ignored")")));
  ASSERT_TRUE(event);
  EXPECT_EQ(*event, (UsageEvent{ProviderID::codex, "m1", "s1", "r1", kStamp,
                                TokenCounts{70, 30, 7, 0, 20, 5}, std::nullopt}));
  EXPECT_EQ(parser.context(), (Context{{"provider", "codex"}, {"session", "s1"}, {"model", "m1"}}));

  // Later context lines replace what they name; lines without a usable value change nothing.
  EXPECT_FALSE(parser.consume(R"({"type":"turn_context","payload":{"model":"m2"}})"));
  EXPECT_FALSE(parser.consume(R"({"type":"turn_context","payload":{"model":7}})"));
  EXPECT_FALSE(parser.consume(R"({"type":"session_meta","payload":{"id":null}})"));
  EXPECT_FALSE(parser.consume(R"({"type":"session_meta","id":"s9","payload":"s9"})"));
  EXPECT_FALSE(parser.consume(R"({"type":"session_meta","payload":{"id":"s2"}} x)"));
  EXPECT_EQ(usageOf(parser.consume(usageRecord("{}")))->model, "m2");
  EXPECT_EQ(parser.context().at("session"), "s1");

  // The context goes on in a parser built from it, as it does between two reads of a file.
  CodexLogParser next(parser.takeContext());
  EXPECT_TRUE(parser.context().empty());
  EXPECT_EQ(usageOf(next.consume(usageRecord("{}")))->sessionID, "s1");
}

TEST(CodexLogParserTest, UsageRecordsHaveFallbacksAndClampedInput) {
  CodexLogParser fresh;
  const auto own = usageOf(fresh.consume(usageRecord("{}", R"(,"session_id":"own")")));
  ASSERT_TRUE(own);
  EXPECT_EQ(own->model, "unknown");
  EXPECT_EQ(own->sessionID, "own");
  EXPECT_EQ(own->tokens, TokenCounts::zero());  // a record with no tokens still counts

  EXPECT_EQ(usageOf(fresh.consume(usageRecord("{}", R"(,"session_id":5)")))->sessionID, "");

  const auto cachedAboveInput = usageOf(fresh.consume(
      usageRecord(R"({"input_tokens":10,"cached_input_tokens":40,"output_tokens":"9",)"
                  R"("reasoning_output_tokens":2.9})")));
  ASSERT_TRUE(cachedAboveInput);
  EXPECT_EQ(cachedAboveInput->tokens, (TokenCounts{0, 40, 0, 0, 0, 2}));

  // Extreme values stay in range instead of overflowing the difference.
  const auto extreme =
      usageOf(fresh.consume(usageRecord(R"({"input_tokens":1e300,"cached_input_tokens":-1e300})")));
  ASSERT_TRUE(extreme);
  EXPECT_EQ(extreme->tokens.uncachedInput, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(
      usageOf(fresh.consume(usageRecord(R"({"input_tokens":-1e300,"cached_input_tokens":1e300})")))
          ->tokens.uncachedInput,
      0);

  EXPECT_EQ(usageOf(fresh.consume(usageRecord("{}", "", R"("2025-06-01T12:34:56Z")")))->timestamp,
            dateFromUnixSeconds(1748781296));
}

TEST(CodexLogParserTest, UnusableLinesYieldNothingAndKeepTheContext) {
  CodexLogParser parser(Context{{"model", "m1"}});
  const std::string good = usageRecord(R"({"input_tokens":1})");
  ASSERT_TRUE(parser.consume(good));
  const std::string stamp = R"("timestamp":"2025-06-01T12:34:56Z")";
  const auto lineOf = [&stamp](const std::string& type, const std::string& payload) {
    return R"({"type":")" + type + "\"," + stamp + R"(,"payload":)" + payload + "}";
  };
  for (const std::string& line : std::vector<std::string>{
           usageRecord(R"({"input_tokens":1})", "", R"("2025-06-01T12:34:56")"),  // no zone
           usageRecord(R"({"input_tokens":1})", "", "1748781296"),
           usageRecord("[1]"),
           lineOf("token_usage_record", R"({"usage":{}})"),
           lineOf("token_usage_record", R"({"response_id":1,"usage":{}})"),
           lineOf("Token_usage_record", R"({"response_id":"r","usage":{}})"),
           R"({"type":"token_usage_record","payload":{"response_id":"r","usage":{}}})",
           lineOf("response_item", R"({"type":"message"})"),
           lineOf("event_msg",
                  R"({"type":"agent_message","rate_limits":{"credits":{"unlimited":true}}})"),
           good + " x",
           good.substr(0, good.size() - 1),
           "[" + good + "]",
           "",
           "   ",
       }) {
    EXPECT_FALSE(parser.consume(line)) << line;
    EXPECT_EQ(parser.context(), (Context{{"model", "m1"}})) << line;
  }
  std::string invalidUtf8 = R"({"type":"turn_context","payload":{"model":"m2"},"x":"?"})";
  invalidUtf8[invalidUtf8.size() - 3] = '\xff';
  // A stray byte costs only itself: the line is read with it replaced.
  EXPECT_FALSE(parser.consume(invalidUtf8));
  EXPECT_EQ(parser.context().at("model"), "m2");
}

TEST(CodexLogParserTest, TokenCountEventsCarryRateLimitWindows) {
  CodexLogParser parser;
  const auto limits = limitsOf(parser.consume(tokenCountLine(
      R"({"primary":{"used_percent":42.5,"window_minutes":300,"resets_at":1771864834},)"
      R"("secondary":{"used_percent":6,"window_minutes":"10080","resets_at":null},)"
      R"("credits":{"has_credits":false,"unlimited":false,"balance":null},"plan_type":"plus"})")));
  ASSERT_TRUE(limits);
  const LimitSource local = LimitSource::local(kStamp);
  EXPECT_EQ(*limits, (ProviderLimits{
                         "Plus",
                         {LimitWindow{"session", "Session", 0.425, 18000.0,
                                      dateFromUnixSeconds(1771864834), local},
                          LimitWindow{"weekly", "Weekly", 0.06, std::nullopt, std::nullopt, local}},
                         std::nullopt,
                         ProviderStatus::ok,
                         kStamp}));

  const auto clamped = limitsOf(parser.consume(tokenCountLine(
      R"({"primary":{"used_percent":150},"secondary":{"used_percent":-5},"plan_type":""})")));
  ASSERT_TRUE(clamped);
  ASSERT_EQ(clamped->windows.size(), 2u);
  EXPECT_EQ(clamped->windows[0].usedFraction, 1.0);
  EXPECT_EQ(clamped->windows[1].usedFraction, 0.0);
  EXPECT_EQ(clamped->plan, std::nullopt);

  // A window without a numeric used_percent is left out; the other stays.
  const auto onlyWeekly = limitsOf(
      parser.consume(tokenCountLine(R"({"primary":{"used_percent":"42","window_minutes":300},)"
                                    R"("secondary":{"used_percent":10},"plan_type":7})")));
  ASSERT_TRUE(onlyWeekly);
  ASSERT_EQ(onlyWeekly->windows.size(), 1u);
  EXPECT_EQ(onlyWeekly->windows[0].id, "weekly");
  EXPECT_EQ(onlyWeekly->plan, std::nullopt);

  const std::string primary = R"({"primary":{"used_percent":1}})";
  EXPECT_TRUE(parser.consume(tokenCountLine(primary, "null", R"("2025-06-01T12:34:56Z")")));
  for (const std::string& line : std::vector<std::string>{
           tokenCountLine(primary, "null", R"("2025-06-01 12:34:56Z")"),
           tokenCountLine(primary, "null", "null"),
           tokenCountLine("null"),
           tokenCountLine(R"({"primary":null,"secondary":null,"credits":null,"plan_type":null})"),
           tokenCountLine(R"({"primary":[],"credits":{"has_credits":false,"unlimited":false}})"),
           tokenCountLine(R"({"credits":{"has_credits":"true","unlimited":1,"balance":5}})"),
       }) {
    EXPECT_FALSE(parser.consume(line)) << line;
  }
  EXPECT_TRUE(parser.context().empty());
}

TEST(CodexLogParserTest, CreditsNeedAnExplicitTrue) {
  CodexLogParser parser;
  const auto balance = limitsOf(parser.consume(
      tokenCountLine(R"({"credits":{"has_credits":true,"balance":12.5},"plan_type":"pro"})")));
  ASSERT_TRUE(balance);
  EXPECT_TRUE(balance->windows.empty());
  EXPECT_EQ(balance->credits,
            (Credits{"Credits", 12.5, std::nullopt, std::nullopt, /*unlimited=*/false}));
  EXPECT_EQ(balance->plan, "Pro");

  const auto unlimited = limitsOf(parser.consume(
      tokenCountLine(R"({"credits":{"has_credits":false,"unlimited":true,"balance":"12"},)"
                     R"("plan_type":"éclair"})")));
  ASSERT_TRUE(unlimited);
  EXPECT_EQ(unlimited->credits,
            (Credits{"Credits", std::nullopt, std::nullopt, std::nullopt, /*unlimited=*/true}));
  EXPECT_EQ(unlimited->plan, "Éclair");  // the same first-letter rule as the services' plans
}

TEST(CodexLogParserTest, DetailsReportTokenCountsAndUsageRecords) {
  CodexLogParser parser;
  CodexLineDetails details;
  const std::string info =
      R"({"total_token_usage":{"input_tokens":900,"cached_input_tokens":500,"output_tokens":80,)"
      R"("reasoning_output_tokens":30,"total_tokens":980},"last_token_usage":{"input_tokens":100,)"
      R"("cached_input_tokens":40,"output_tokens":20,"reasoning_output_tokens":5,)"
      R"("total_tokens":120},"model_context_window":258400})";
  const TokenCountUsage expected{TokenCounts{60, 40, 0, 0, 20, 5}, 980, kStamp};

  // The figures come whether or not the line also yields limits.
  const std::string withLimits = tokenCountLine(R"({"primary":{"used_percent":1}})", info);
  EXPECT_TRUE(limitsOf(parser.consume(Padded(withLimits), details)));
  EXPECT_EQ(details, (CodexLineDetails{expected, false}));
  EXPECT_FALSE(parser.consume(Padded(tokenCountLine("null", info)), details));
  EXPECT_EQ(details.tokenCount, expected);

  EXPECT_FALSE(parser.consume(Padded(tokenCountLine("null", info, "\"yesterday\"")), details));
  EXPECT_EQ(details.tokenCount, (TokenCountUsage{expected.last, 980, std::nullopt}));

  // Each call starts from empty details.
  const std::string last = R"("last_token_usage":{"input_tokens":1})";
  for (const std::string& missing : std::vector<std::string>{
           "null",
           "{" + last + R"(,"total_token_usage":{"total_tokens":"9"}})",
           "{" + last + R"(,"total_token_usage":{"total_tokens":null}})",
           "{" + last + R"(,"total_token_usage":9})",
           R"({"last_token_usage":null,"total_token_usage":{"total_tokens":9}})",
       }) {
    parser.consume(Padded(tokenCountLine("null", info)), details);
    ASSERT_TRUE(details.tokenCount);
    EXPECT_FALSE(parser.consume(Padded(tokenCountLine("null", missing)), details));
    EXPECT_EQ(details, CodexLineDetails{}) << missing;
  }
  const std::string otherEvent = R"({"timestamp":"2025-06-01T12:34:56Z","type":"event_msg",)"
                                 R"("payload":{"type":"agent_message","info":)" +
                                 info + "}}";
  EXPECT_FALSE(parser.consume(Padded(otherEvent), details));
  EXPECT_EQ(details, CodexLineDetails{});

  // A usage record is reported as such even when it yields no event.
  EXPECT_TRUE(parser.consume(Padded(usageRecord("{}")), details));
  EXPECT_EQ(details, (CodexLineDetails{std::nullopt, true}));
  EXPECT_FALSE(parser.consume(Padded(usageRecord("{}", "", "null")), details));
  EXPECT_TRUE(details.usageRecord);
  EXPECT_FALSE(parser.consume(Padded(R"({"type":"token_usage_record","payload":null})"), details));
  EXPECT_TRUE(details.usageRecord);
  EXPECT_FALSE(parser.consume(Padded(R"({"type":"token_usage_record","payload":{}} x)"), details));
  EXPECT_FALSE(details.usageRecord);
}

class CodexLogParserFileTest : public testing::TempDirTest {};

// Lines read from a file take a quick look at their type first; the outcome, context included,
// must be the one the full parse of the same bytes gives, whatever the keys and their spelling.
TEST_F(CodexLogParserFileTest, TheQuickTypeCheckAgreesWithTheFullParse) {
  const std::string payload = R"("payload":{"id":"s1","model":"m1","response_id":"r1","usage":{}})";
  const std::string stamp = R"("timestamp":"2025-06-01T12:34:56Z")";
  const std::vector<std::string> lines = {
      "{\"type\":\"session_meta\"," + payload + "}",
      "{\"type\":\"response_item\"," + payload + "}",
      "{\"typ\\u0065\":\"turn_context\",\"type\":\"response_item\"," + payload + "}",
      "{\"type\":\"response_item\",\"typ\\u0065\":\"turn_context\"," + payload + "}",
      "{\"type\":\"turn\\u005fcontext\"," + payload + "}",
      "{\"type\":\"turn_context\",\"type\":\"response_item\"," + payload + "}",
      "{\"type\":\"response_item\",\"type\":\"turn_context\"," + payload + "}",
      "{" + stamp + "," + payload + ",\"type\":\"token_usage_record\"}",
      "{\"type\":7," + payload + "}",
      "{\"type\":\"response_item\"," + payload + "} trailing",
      "{\"type\":\"session_meta\"," + payload + "} trailing",
      "{\"type\":\"token_usage_record\"," + stamp + "," + payload + "}",
      "[\"type\",\"session_meta\"]",
      "{\"type\":\"response_item\",\"bad\":\"\xff\"}",
      "{\"type\":\"event_msg\"," + stamp +
          R"(,"payload":{"type":"token_count","rate_limits":{"primary":{"used_percent":3}}}})",
  };
  std::string file;
  for (const auto& line : lines) file += line + "\n";
  const auto read = JSONLTail::read(write("rollout.jsonl", file), std::nullopt, 1 << 20);
  ASSERT_EQ(read.lines.size(), lines.size());
  CodexLogParser quick, full;
  int results = 0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const auto result = quick.consume(read.lines[i]);
    EXPECT_EQ(result, full.consume(std::string_view(lines[i]))) << lines[i];
    EXPECT_EQ(quick.context(), full.context()) << lines[i];
    results += result.has_value();
  }
  EXPECT_EQ(results, 3);
  EXPECT_EQ(quick.context(), (Context{{"session", "s1"}, {"model", "m1"}}));
}

// The real rollouts, read in small chunks with a parser rebuilt from the carried context at every
// chunk, as the host does between passes. Figures counted independently of this parser.
TEST(CodexLogParserTest, RealRolloutsParseLineByLine) {
  BRIMLOG_REQUIRE_REAL_FIXTURES(fixtures);
  struct Expected {
    size_t tokenCounts;  // token_count lines with usable figures
    int64_t finalTotal;  // the last total_token_usage.total_tokens
    size_t limits;       // token_count lines with a usable window or credits
    const char* model;   // the last turn context's model
  };
  const std::map<std::string, Expected> expected = {
      {"codemie__rollout-2026-01-02T18-39-45-019b7f94-51b4-7593-922e-ba12b5b73b52.jsonl",
       {5, 22774, 0, "gpt-5-1-codex-2025-11-13"}},
      {"codemie__rollout-2026-05-11T11-26-55-019e1625-789d-76c0-80ab-3724b5ddb799.jsonl",
       {66, 6064954, 0, "gpt-5.5"}},
      {"codemie__rollout-2026-05-11T13-28-45-019e1695-0522-7c83-8b39-0dd379793f80.jsonl",
       {0, 0, 0, nullptr}},
      {"localpush__rollout-2026-02-23T12-40-23-019c8a4c-ed82-79a1-aa28-7738fc5ab61a.jsonl",
       {161, 7240100, 162, "gpt-5.3-codex"}},
      {"localpush__rollout-2026-02-23T12-41-04-019c8a4d-8f45-7010-8b5d-7fad920aa6f9.jsonl",
       {55, 1766028, 56, "gpt-5.3-codex"}},
      {"localpush__rollout-2026-02-23T12-47-42-019c8a53-a0dd-7130-bcd7-95445d84846a.jsonl",
       {165, 6777923, 166, "gpt-5.3-codex"}},
      {"localpush__rollout-2026-02-23T12-54-34-019c8a59-e9dd-71f0-9ae3-4079fe9726a9.jsonl",
       {572, 33944484, 573, "gpt-5.3-codex"}},
      {"localpush__rollout-2026-02-23T13-19-38-019c8a70-dda7-7f33-98ea-f30553347322.jsonl",
       {1, 34900, 2, "gpt-5.3-codex"}},
      {"localpush__rollout-2026-02-23T20-34-25-019c8bfe-ec25-79e0-97d7-bda6a9c575ff.jsonl",
       {11, 299496, 12, "gpt-5.3-codex"}},
  };
  for (const auto& [name, want] : expected) {
    CodexLogParser full;
    Context carried;
    size_t tokenCounts = 0, limits = 0;
    int64_t finalTotal = 0, previousTotal = -1, summedWhenMoved = 0;
    std::optional<FileCursor> cursor;
    JSONLTail::Result read;
    do {
      read = JSONLTail::read(fixtures / "codex" / name, cursor, 32 << 10);
      CodexLogParser quick(std::move(carried));
      for (PaddedLine line : read.lines) {
        CodexLineDetails details;
        const auto result = quick.consume(line, details);
        ASSERT_EQ(result, full.consume(line.bytes)) << name << ": " << line.bytes.substr(0, 200);
        ASSERT_FALSE(usageOf(result)) << name;
        ASSERT_FALSE(details.usageRecord) << name;
        limits += limitsOf(result).has_value();
        if (details.tokenCount) {
          ++tokenCounts;
          ASSERT_TRUE(details.tokenCount->timestamp) << name;
          finalTotal = details.tokenCount->total;
          // Codex repeats an event unchanged; a call is new when the total moves.
          if (finalTotal != previousTotal) summedWhenMoved += details.tokenCount->last.processed();
          previousTotal = finalTotal;
        }
      }
      carried = quick.takeContext();
      cursor = read.cursor;
    } while (!read.atEOF);

    EXPECT_EQ(tokenCounts, want.tokenCounts) << name;
    EXPECT_EQ(finalTotal, want.finalTotal) << name;
    EXPECT_EQ(summedWhenMoved, want.finalTotal) << name;
    EXPECT_EQ(limits, want.limits) << name;
    EXPECT_EQ(carried, full.context()) << name;
    // The session id is the end of the file name.
    EXPECT_EQ(carried.at("session"), name.substr(name.size() - 42, 36)) << name;
    if (want.model) {
      EXPECT_EQ(carried.at("model"), want.model) << name;
    } else {
      EXPECT_FALSE(carried.count("model")) << name;
    }
  }
}

}  // namespace
}  // namespace brimlog
