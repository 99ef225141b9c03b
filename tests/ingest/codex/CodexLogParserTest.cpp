#include <fmt/format.h>
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "ingest/DataRow.hpp"
#include "ingest/codex/CodexLogParser.hpp"

namespace brimlog {
namespace {

using Context = std::map<std::string, std::string>;
using testing::DataRow;
using testing::PaddedCopy;

const Date kStamp = dateFromUnixSeconds(1748781296.789);  // 2025-06-01T12:34:56.789Z

std::string usageRecord(const std::string& usage, const std::string& extra = "") {
  return R"({"timestamp":"2025-06-01T12:34:56.789Z","type":"token_usage_record",)"
         R"("payload":{"response_id":"r1","usage":)" +
         usage + extra + "}}";
}

std::string tokenCountLine(const std::string& rateLimits) {
  return R"({"timestamp":"2025-06-01T12:34:56.789Z","type":"event_msg",)"
         R"("payload":{"type":"token_count","info":null,"rate_limits":)" +
         rateLimits + "}}";
}

// What a line gave, when it gave a `T`.
template <typename T>
std::optional<T> as(const std::optional<CodexLine>& line) {
  if (!line || !std::holds_alternative<T>(*line)) return std::nullopt;
  return std::get<T>(*line);
}

// What a line gave: "-" for nothing, "limits", or its event's key|model|session.
std::string gives(const std::optional<CodexLine>& line) {
  if (const auto event = as<UsageEvent>(line)) {
    return event->dedupKey + "|" + event->model + "|" + event->sessionID;
  }
  return as<ProviderLimits>(line) ? "limits" : "-";
}

// Details as text: the token count's last usage, total and time ("-" for none), then whether the
// line is a usage record.
std::string describe(const CodexLineDetails& details) {
  std::string tokenCount = "-";
  if (const auto& count = details.tokenCount) {
    const TokenCounts& last = count->last;
    tokenCount =
        fmt::format("{} {} {} {} {} {} total {} at {}", last.uncachedInput, last.cacheRead,
                    last.cacheWrite5m, last.cacheWrite1h, last.output, last.reasoning, count->total,
                    count->timestamp ? fmt::to_string(unixSeconds(*count->timestamp)) : "-");
  }
  return tokenCount + (details.usageRecord ? " / record" : " / -");
}

TEST(CodexLogParserTest, UsageRecordsTakeTheirCountsAndModelAndSessionFromEarlierLines) {
  CodexLogParser parser(Context{{"provider", "codex"}});
  EXPECT_FALSE(parser.consume(R"({"type":"session_meta","payload":{"id":"s1"}})"));
  EXPECT_FALSE(parser.consume(R"({"type":"turn_context","payload":{"model":"m1"}})"));
  const auto event = as<UsageEvent>(parser.consume(
      usageRecord(R"({"input_tokens":100,"cached_input_tokens":30,"output_tokens":20,)"
                  R"("reasoning_output_tokens":5,"cache_write_input_tokens":7})",
                  R"(,"session_id":"own","model":"ignored")")));
  EXPECT_EQ(event, (UsageEvent{ProviderID::codex, "m1", "s1", "r1", kStamp,
                               TokenCounts{70, 30, 7, 0, 20, 5}, std::nullopt, ""}));
  EXPECT_EQ(parser.context(), (Context{{"provider", "codex"}, {"session", "s1"}, {"model", "m1"}}));

  // A later context line replaces what it names; a stray byte elsewhere in it costs only itself,
  // the line being read with the byte replaced.
  std::string invalidUtf8 = R"({"type":"turn_context","payload":{"model":"m2"},"x":"?"})";
  invalidUtf8[invalidUtf8.size() - 3] = '\xff';
  EXPECT_FALSE(parser.consume(invalidUtf8));
  EXPECT_EQ(as<UsageEvent>(parser.consume(usageRecord("{}")))->model, "m2");
  EXPECT_EQ(parser.context().at("session"), "s1");

  // The context goes on in a parser built from it, as it does between two reads of a file.
  CodexLogParser next(parser.takeContext());
  EXPECT_TRUE(parser.context().empty());
  EXPECT_EQ(as<UsageEvent>(next.consume(usageRecord("{}")))->sessionID, "s1");

  // Which usage fields count as what: cached tokens are part of the input, whose uncached rest
  // stays in range instead of overflowing; token fields are truncated numbers and nothing else.
  for (const DataRow& row : testing::namedRows("ingest/codex-usage.tsv")) {
    SCOPED_TRACE(row.name);
    const auto counted = as<UsageEvent>(next.consume(usageRecord(row.fields.at(0))));
    ASSERT_TRUE(counted);
    EXPECT_EQ(counted->tokens, (TokenCounts{row.integer(1), row.integer(2), row.integer(3),
                                            row.integer(4), row.integer(5), row.integer(6)}));
  }
}

// The rate limits of a token_count event: shares clamped, a window without a numeric used_percent
// left out, credits only with an explicit true, the plan capitalised as the services' plans are.
TEST(CodexLogParserTest, TokenCountEventsCarryRateLimitWindows) {
  const auto window = [](const std::string& id, double used, std::optional<double> duration = {},
                         std::optional<Date> resetsAt = {}) {
    const std::string label = id == "session" ? "Session" : "Weekly";
    return LimitWindow{id, label, used, duration, resetsAt, LimitSource::local(kStamp)};
  };
  const auto limits = [](std::optional<std::string> plan, std::vector<LimitWindow> windows,
                         std::optional<Credits> credits = {}) {
    return ProviderLimits{plan, windows, credits, ProviderStatus::ok, kStamp};
  };
  const std::tuple<const char*, std::string, ProviderLimits> rows[] = {
      {"both windows, no credits",
       R"({"primary":{"used_percent":42.5,"window_minutes":300,"resets_at":1771864834},)"
       R"("secondary":{"used_percent":6,"window_minutes":"10080","resets_at":null},)"
       R"("credits":{"has_credits":false,"unlimited":false,"balance":null},"plan_type":"plus"})",
       limits("Plus", {window("session", 0.425, 18000.0, dateFromUnixSeconds(1771864834)),
                       window("weekly", 0.06)})},
      {"shares out of range, an empty plan",
       R"({"primary":{"used_percent":150},"secondary":{"used_percent":-5},"plan_type":""})",
       limits(std::nullopt, {window("session", 1.0), window("weekly", 0.0)})},
      {"a share that is text, a plan that is a number",
       R"({"primary":{"used_percent":"42","window_minutes":300},)"
       R"("secondary":{"used_percent":10},"plan_type":7})",
       limits(std::nullopt, {window("weekly", 0.1)})},
      {"a balance", R"({"credits":{"has_credits":true,"balance":12.5},"plan_type":"pro"})",
       limits("Pro", {}, Credits{"Credits", 12.5, std::nullopt, std::nullopt, false})},
      {"unlimited, a balance that is text",
       R"({"credits":{"has_credits":false,"unlimited":true,"balance":"12"},"plan_type":"team"})",
       limits("Team", {}, Credits{"Credits", std::nullopt, std::nullopt, std::nullopt, true})},
  };
  CodexLogParser parser;
  for (const auto& [name, rateLimits, expected] : rows) {
    EXPECT_EQ(as<ProviderLimits>(parser.consume(tokenCountLine(rateLimits))), expected) << name;
  }
}

TEST(CodexLogParserTest, EachLineGivesItsDetailsAndWhatTheFullParseGivesOrNothing) {
  // Unusable lines give nothing and keep the context.
  CodexLogParser keepingFull(Context{{"model", "m1"}}), keepingQuick(Context{{"model", "m1"}});
  for (const DataRow& row : testing::namedRows("ingest/codex-unusable.tsv")) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(keepingFull.consume(std::string_view(row.fields.at(0))));
    EXPECT_FALSE(keepingQuick.consume(PaddedCopy(row.fields.at(0))));
    EXPECT_EQ(keepingFull.context(), (Context{{"model", "m1"}}));
    EXPECT_EQ(keepingQuick.context(), (Context{{"model", "m1"}}));
  }

  // What each line reports besides its result, read from the same parse. Every call starts from
  // empty details, so a line without figures after one with them reports none.
  CodexLogParser parser;
  CodexLineDetails details;
  for (const DataRow& row : testing::namedRows("ingest/codex-details.tsv")) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(gives(parser.consume(PaddedCopy(row.fields.at(2)), details)), row.fields.at(0));
    EXPECT_EQ(describe(details), row.fields.at(1));
  }

  // What each line of a rollout gives, in order. Lines read from a file take a quick look at their
  // type first; the outcome, context included, must be the one the full parse of the same bytes
  // gives, whatever the keys and their spelling.
  CodexLogParser quick, full;
  for (const DataRow& row : testing::namedRows("ingest/codex-lines.tsv")) {
    SCOPED_TRACE(row.name);
    const std::string& line = row.fields.at(1);
    const auto result = quick.consume(PaddedCopy(line));
    EXPECT_EQ(gives(result), row.fields.at(0));
    EXPECT_EQ(result, full.consume(std::string_view(line)));
    EXPECT_EQ(quick.context(), full.context());
  }
  EXPECT_EQ(quick.context(), (Context{{"session", "s1"}, {"model", "m1"}}));
}

}  // namespace
}  // namespace brimlog
