#include "ingest/qwen/QwenLogParser.hpp"

#include "ingest/LogJson.hpp"
#include "platform/Date.hpp"

namespace brimlog {
namespace {

// The six counters of one call's usage metadata.
TokenCounts tokensOf(logjson::object usage) {
  using logjson::tokenCount;
  const int64_t prompt = tokenCount(usage, "promptTokenCount");
  const int64_t cached = tokenCount(usage, "cachedContentTokenCount");
  const int64_t candidates = tokenCount(usage, "candidatesTokenCount");
  const int64_t thoughts = tokenCount(usage, "thoughtsTokenCount");
  // Tokens of tool-use prompts: billed as input, and not part of the prompt count.
  const int64_t toolUse = tokenCount(usage, "toolUsePromptTokenCount");
  const int64_t total = tokenCount(usage, "totalTokenCount");

  TokenCounts tokens;
  // The prompt count includes what was read from the cache: only the rest is plain input. (For
  // Anthropic models the tool also folds the tokens written to the cache into the prompt, without
  // a count of their own: they stay plain input here.)
  tokens.uncachedInput = saturatingAdd(logjson::uncachedInput(prompt, cached), toolUse);
  tokens.cacheRead = cached;
  // OpenAI-compatible providers (DashScope, OpenRouter, ...) count reasoning inside the
  // completion, and the tool copies both as they are: adding the thoughts would bill them twice.
  // Gemini counts them beside the candidates. The total tells which: it is prompt + candidates
  // when they are inside. A record without a total comes from a provider that reported none,
  // which only the OpenAI-compatible path writes; its reasoning is inside too.
  const int64_t withoutThoughts = saturatingAdd(saturatingAdd(prompt, candidates), toolUse);
  const bool thoughtsInside = total == 0 || total == withoutThoughts;
  tokens.output = thoughtsInside ? candidates : saturatingAdd(candidates, thoughts);
  tokens.reasoning = thoughts;
  return tokens;
}

std::optional<UsageEvent> eventFrom(std::optional<logjson::object> root) {
  using namespace logjson;
  if (!root) return std::nullopt;

  // Only the tool's record of a model call carries the call's usage. `system` records (the UI
  // telemetry replayed on resume among them) may repeat the same figures, and must not add them.
  if (string(*root, "type") != "assistant") return std::nullopt;
  const auto usage = objectField(*root, "usageMetadata");
  if (!usage) return std::nullopt;

  // A branched session holds verbatim copies of its parent's records under the same uuid: the
  // uuid, not the file, names the call.
  const auto uuid = string(*root, "uuid");
  if (!uuid || uuid->empty()) return std::nullopt;

  const auto timestampText = string(*root, "timestamp");
  if (!timestampText) return std::nullopt;
  const auto timestamp = parseISO8601(*timestampText);
  if (!timestamp) return std::nullopt;

  const TokenCounts tokens = tokensOf(*usage);
  if (tokens.processed() <= 0) return std::nullopt;

  std::string key;
  key.reserve(QwenLogParser::keyPrefix.size() + uuid->size());
  key.append(QwenLogParser::keyPrefix).append(*uuid);
  return UsageEvent{ProviderID::qwen,
                    std::string(string(*root, "model").value_or("unknown")),
                    std::string(string(*root, "sessionId").value_or("")),
                    std::move(key),
                    *timestamp,
                    tokens,
                    std::nullopt,
                    std::string(string(*root, "cwd").value_or(""))};
}

}  // namespace

std::optional<UsageEvent> QwenLogParser::event(std::string_view line) {
  return eventFrom(logjson::parseObject(line));
}

std::optional<UsageEvent> QwenLogParser::event(PaddedLine line) {
  // Most records are the user's side, tool results and system records, whose "type" comes
  // right after the record's ids and time: settle those on their type alone, without building
  // their tree.
  if (const auto type = logjson::leadingType(line); type && *type != "assistant") {
    return std::nullopt;
  }
  return eventFrom(logjson::parseObject(line));
}

}  // namespace brimlog
