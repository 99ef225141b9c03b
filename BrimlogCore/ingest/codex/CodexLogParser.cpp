#include "ingest/codex/CodexLogParser.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "ingest/LogJson.hpp"
#include "platform/AsciiCase.hpp"

namespace brimlog {
namespace {

using Context = std::map<std::string, std::string>;
using logjson::object;

// The line types that can change the context or yield something; every other line is skipped.
bool mayMatter(std::string_view type) {
  return type == "session_meta" || type == "turn_context" || type == "token_usage_record" ||
         type == "event_msg";
}

// The context map has no lookup by string_view; its keys are short enough that the temporary
// string stays in its inline buffer, so neither lookup nor update allocates once a key exists.
void remember(Context& context, std::string_view key, std::string_view value) {
  auto [entry, inserted] = context.try_emplace(std::string(key));
  entry->second.assign(value);
}

const std::string* recalled(const Context& context, std::string_view key) {
  const auto entry = context.find(std::string(key));
  return entry == context.end() ? nullptr : &entry->second;
}

std::optional<Date> timestampOf(object root) {
  const auto text = logjson::string(root, "timestamp");
  if (!text) return std::nullopt;
  return parseISO8601(*text);
}

TokenCounts usageCounts(object usage, std::string_view cacheWriteKey) {
  const int64_t cached = logjson::tokenCount(usage, "cached_input_tokens");
  TokenCounts tokens;
  tokens.uncachedInput = logjson::uncachedInput(logjson::tokenCount(usage, "input_tokens"), cached);
  tokens.cacheRead = cached;
  if (!cacheWriteKey.empty()) tokens.cacheWrite5m = logjson::tokenCount(usage, cacheWriteKey);
  tokens.output = logjson::tokenCount(usage, "output_tokens");
  tokens.reasoning = logjson::tokenCount(usage, "reasoning_output_tokens");
  return tokens;
}

std::optional<UsageEvent> usageEvent(object root, object payload, const Context& context) {
  const auto key = logjson::string(payload, "response_id");
  if (!key) return std::nullopt;
  const auto usage = logjson::objectField(payload, "usage");
  if (!usage) return std::nullopt;
  const auto timestamp = timestampOf(root);
  if (!timestamp) return std::nullopt;

  // The record names no model: it is the one the last turn context announced.
  const std::string* model = recalled(context, "model");
  std::string sessionID;
  if (const std::string* session = recalled(context, "session")) {
    sessionID = *session;
  } else if (const auto own = logjson::string(payload, "session_id")) {
    sessionID = *own;
  }
  const std::string* cwd = recalled(context, "cwd");
  return UsageEvent{ProviderID::codex,
                    model ? *model : std::string("unknown"),
                    std::move(sessionID),
                    std::string(*key),
                    *timestamp,
                    usageCounts(*usage, "cache_write_input_tokens"),
                    std::nullopt,
                    cwd ? *cwd : std::string()};
}

std::optional<LimitWindow> limitWindow(object rateLimits, std::string_view key, std::string id,
                                       std::string label, Date asOf) {
  const auto window = logjson::objectField(rateLimits, key);
  if (!window) return std::nullopt;
  const auto usedPercent = logjson::number(*window, "used_percent");
  if (!usedPercent) return std::nullopt;
  std::optional<double> duration;
  if (const auto minutes = logjson::number(*window, "window_minutes")) duration = *minutes * 60;
  std::optional<Date> resetsAt;
  if (const auto seconds = logjson::number(*window, "resets_at")) {
    resetsAt = dateFromUnixSeconds(*seconds);
  }
  // The constructor clamps the share to 0...1.
  return LimitWindow{std::move(id), std::move(label), *usedPercent / 100,
                     duration,      resetsAt,         LimitSource::local(asOf)};
}

std::optional<ProviderLimits> limitsSnapshot(object payload, std::optional<Date> asOf) {
  const auto rateLimits = logjson::objectField(payload, "rate_limits");
  if (!rateLimits || !asOf) return std::nullopt;

  ProviderLimits limits;
  if (auto session = limitWindow(*rateLimits, "primary", "session", "Session", *asOf)) {
    limits.windows.push_back(std::move(*session));
  }
  if (auto weekly = limitWindow(*rateLimits, "secondary", "weekly", "Weekly", *asOf)) {
    limits.windows.push_back(std::move(*weekly));
  }
  if (const auto credits = logjson::objectField(*rateLimits, "credits")) {
    const bool unlimited = logjson::isTrue(*credits, "unlimited");
    if (unlimited || logjson::isTrue(*credits, "has_credits")) {
      limits.credits = Credits{"Credits", logjson::number(*credits, "balance"), std::nullopt,
                               std::nullopt, unlimited};
    }
  }
  if (limits.windows.empty() && !limits.credits) return std::nullopt;

  // "plus" reads as "Plus"; only an ASCII first letter changes case.
  if (const auto planType = logjson::string(*rateLimits, "plan_type");
      planType && !planType->empty()) {
    limits.plan = asciiCapitalized(*planType);
  }
  limits.status = ProviderStatus::ok;
  limits.fetchedAt = *asOf;
  return limits;
}

std::optional<TokenCountUsage> tokenCountUsage(object payload, std::optional<Date> timestamp) {
  const auto info = logjson::objectField(payload, "info");
  if (!info) return std::nullopt;
  const auto total = logjson::objectField(*info, "total_token_usage");
  if (!total || !logjson::number(*total, "total_tokens")) return std::nullopt;
  const auto last = logjson::objectField(*info, "last_token_usage");
  if (!last) return std::nullopt;
  return TokenCountUsage{usageCounts(*last, {}), logjson::tokenCount(*total, "total_tokens"),
                         timestamp};
}

// The one place that judges a parsed line; `details` is filled only when the caller asks.
std::optional<CodexLine> judge(std::optional<object> root, Context& context,
                               CodexLineDetails* details) {
  if (!root) return std::nullopt;
  const auto type = logjson::string(*root, "type");
  if (!type) return std::nullopt;
  if (details && *type == "token_usage_record") details->usageRecord = true;
  const auto payload = logjson::objectField(*root, "payload");
  if (!payload) return std::nullopt;

  if (*type == "session_meta") {
    if (const auto id = logjson::string(*payload, "id")) remember(context, "session", *id);
    if (const auto cwd = logjson::string(*payload, "cwd")) remember(context, "cwd", *cwd);
    return std::nullopt;
  }
  if (*type == "turn_context") {
    if (const auto model = logjson::string(*payload, "model")) remember(context, "model", *model);
    if (const auto cwd = logjson::string(*payload, "cwd")) remember(context, "cwd", *cwd);
    return std::nullopt;
  }
  if (*type == "token_usage_record") {
    if (auto event = usageEvent(*root, *payload, context)) return CodexLine{std::move(*event)};
    return std::nullopt;
  }
  if (*type == "event_msg" && logjson::string(*payload, "type") == "token_count") {
    const auto timestamp = timestampOf(*root);
    if (details) details->tokenCount = tokenCountUsage(*payload, timestamp);
    if (auto limits = limitsSnapshot(*payload, timestamp)) return CodexLine{std::move(*limits)};
  }
  return std::nullopt;
}

}  // namespace

CodexLogParser::CodexLogParser(std::map<std::string, std::string> context)
    : context_(std::move(context)) {}

std::map<std::string, std::string> CodexLogParser::takeContext() {
  return std::exchange(context_, {});
}

std::optional<CodexLine> CodexLogParser::consume(std::string_view line) {
  return judge(logjson::parseObject(line), context_, nullptr);
}

std::optional<CodexLine> CodexLogParser::consume(PaddedLine line) {
  // Most lines are response items (prompts, tool output, reasoning): settle those on their type
  // alone, without building their tree.
  if (const auto type = logjson::leadingType(line); type && !mayMatter(*type)) return std::nullopt;
  return judge(logjson::parseObject(line), context_, nullptr);
}

std::optional<CodexLine> CodexLogParser::consume(PaddedLine line, CodexLineDetails& details) {
  details = CodexLineDetails{};
  if (const auto type = logjson::leadingType(line); type && !mayMatter(*type)) return std::nullopt;
  return judge(logjson::parseObject(line), context_, &details);
}

}  // namespace brimlog
