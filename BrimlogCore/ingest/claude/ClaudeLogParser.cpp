#include "ingest/claude/ClaudeLogParser.hpp"

#include "ingest/LogJson.hpp"
#include "platform/Date.hpp"

namespace brimlog {
namespace {

std::optional<UsageEvent> eventFrom(std::optional<logjson::object> root) {
  using namespace logjson;
  if (!root) return std::nullopt;

  const auto type = string(*root, "type");
  if (type != "assistant") return std::nullopt;
  const auto message = objectField(*root, "message");
  if (!message) return std::nullopt;
  const auto usage = objectField(*message, "usage");
  if (!usage) return std::nullopt;

  auto key = string(*message, "id");
  if (!key) key = string(*root, "requestId");
  if (!key) return std::nullopt;

  const auto timestampText = string(*root, "timestamp");
  if (!timestampText) return std::nullopt;
  const auto timestamp = parseISO8601(*timestampText);
  if (!timestamp) return std::nullopt;

  const std::string_view model = string(*message, "model").value_or("unknown");
  if (model == "<synthetic>") return std::nullopt;

  TokenCounts tokens;
  tokens.uncachedInput = tokenCount(*usage, "input_tokens");
  tokens.cacheRead = tokenCount(*usage, "cache_read_input_tokens");
  if (const auto cacheCreation = objectField(*usage, "cache_creation")) {
    // The split by lifetime wins; the flat total would count the one-hour writes as 5-minute.
    tokens.cacheWrite5m = tokenCount(*cacheCreation, "ephemeral_5m_input_tokens");
    tokens.cacheWrite1h = tokenCount(*cacheCreation, "ephemeral_1h_input_tokens");
  } else {
    tokens.cacheWrite5m = tokenCount(*usage, "cache_creation_input_tokens");
  }
  tokens.output = tokenCount(*usage, "output_tokens");
  if (const auto details = objectField(*usage, "output_tokens_details")) {
    tokens.reasoning = tokenCount(*details, "thinking_tokens");
  }
  if (tokens.processed() <= 0) return std::nullopt;

  return UsageEvent{ProviderID::claude,
                    std::string(model),
                    std::string(string(*root, "sessionId").value_or("")),
                    std::string(*key),
                    *timestamp,
                    tokens,
                    std::nullopt,
                    std::string(string(*root, "cwd").value_or(""))};
}

}  // namespace

std::optional<UsageEvent> ClaudeLogParser::event(std::string_view line) {
  return eventFrom(logjson::parseObject(line));
}

std::optional<UsageEvent> ClaudeLogParser::event(PaddedLine line) {
  // Most lines are the user's side (tool output, file contents): settle those on their type
  // alone, without building their tree.
  if (const auto type = logjson::leadingType(line); type && *type != "assistant") {
    return std::nullopt;
  }
  return eventFrom(logjson::parseObject(line));
}

}  // namespace brimlog
