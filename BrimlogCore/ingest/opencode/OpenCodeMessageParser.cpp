#include "ingest/opencode/OpenCodeMessageParser.hpp"

#include <cstring>

#include "ingest/LogJson.hpp"
#include "platform/Date.hpp"

namespace brimlog {
namespace {

using logjson::object;

// One step's counts. `input` never holds cached tokens (the tool subtracts them itself), and a
// cache write is a five-minute write. Whether `output` already holds the reasoning tokens changed
// with the tool's version: newer builds report them apart and store a `total` that leaves them
// out of the four other counts, older ones left them inside `output` and stored no total. So
// reasoning is added to the output only when the stored total says the four counts miss it, and,
// with no total, only when it is larger than the output (it cannot be part of it then).
TokenCounts stepTokens(object tokens) {
  TokenCounts counts;
  counts.uncachedInput = logjson::tokenCount(tokens, "input");
  counts.output = logjson::tokenCount(tokens, "output");
  counts.reasoning = logjson::tokenCount(tokens, "reasoning");
  if (const auto cache = logjson::objectField(tokens, "cache")) {
    counts.cacheRead = logjson::tokenCount(*cache, "read");
    counts.cacheWrite5m = logjson::tokenCount(*cache, "write");
  }
  bool reasoningInside = counts.reasoning <= counts.output;
  if (logjson::number(tokens, "total")) {
    const int64_t total = logjson::tokenCount(tokens, "total");
    reasoningInside = total == saturatingAdd(saturatingAdd(counts.uncachedInput, counts.cacheRead),
                                             saturatingAdd(counts.cacheWrite5m, counts.output));
  }
  if (!reasoningInside) counts.output = saturatingAdd(counts.output, counts.reasoning);
  return counts;
}

}  // namespace

bool OpenCodeMessageParser::message(std::string_view data) {
  *this = {};
  const auto root = logjson::parseObject(data);
  if (!root || logjson::string(*root, "role") != "assistant") return false;
  id_ = logjson::string(*root, "id").value_or("");
  sessionID_ = logjson::string(*root, "sessionID").value_or("");
  providerID_ = logjson::string(*root, "providerID").value_or("");
  modelID_ = logjson::string(*root, "modelID").value_or("");
  if (const auto path = logjson::objectField(*root, "path")) {
    cwd_ = logjson::string(*path, "cwd").value_or("");
  }
  if (const auto time = logjson::objectField(*root, "time")) {
    if (logjson::number(*time, "created")) createdMs_ = logjson::tokenCount(*time, "created");
  }
  if (const auto tokens = logjson::objectField(*root, "tokens")) ownTokens_ = stepTokens(*tokens);
  ownCost_ = logjson::number(*root, "cost").value_or(0);
  return true;
}

OpenCodeMessageParser::Steps& OpenCodeMessageParser::Steps::operator+=(const Steps& other) {
  tokens += other.tokens;
  costUSD += other.costUSD;
  count += other.count;
  return *this;
}

std::optional<OpenCodeMessageParser::Steps> OpenCodeMessageParser::step(std::string_view data) {
  // Most parts are text and tool output, far larger than a step's record: they are told apart
  // without parsing them. (memmem, not find: find stops at every 's' of the text.)
  constexpr std::string_view kStep = "step-finish";
  if (!::memmem(data.data(), data.size(), kStep.data(), kStep.size())) return std::nullopt;
  const auto root = logjson::parseObject(data);
  if (!root || logjson::string(*root, "type") != "step-finish") return std::nullopt;
  const auto tokens = logjson::objectField(*root, "tokens");
  if (!tokens) return std::nullopt;
  return Steps{stepTokens(*tokens), logjson::number(*root, "cost").value_or(0), 1};
}

bool OpenCodeMessageParser::part(std::string_view data) {
  const auto found = step(data);
  if (found) steps_ += *found;
  return found.has_value();
}

std::optional<UsageEvent> OpenCodeMessageParser::event(ProviderID tool, std::string_view sessionID,
                                                       std::string_view project) const {
  // A message that never reached the model (an error before its first step) has nothing to
  // count, and one without a creation time cannot be told apart from its copies.
  if (!createdMs_) return std::nullopt;
  const TokenCounts tokens = steps_.count > 0 ? steps_.tokens : ownTokens_;
  const double cost = steps_.count > 0 ? steps_.costUSD : ownCost_;
  if (tokens == TokenCounts::zero() && cost <= 0) return std::nullopt;

  std::string key;
  key.reserve(tool.rawValue().size() + providerID_.size() + modelID_.size() + 24);
  key.append(tool.rawValue())
      .append(":")
      .append(providerID_)
      .append("/")
      .append(modelID_)
      .append("@")
      .append(std::to_string(*createdMs_));
  UsageEvent event;
  event.provider = tool;
  event.model = modelID_.empty() ? "unknown" : modelID_;
  event.sessionID = sessionID_.empty() ? std::string(sessionID) : sessionID_;
  event.dedupKey = std::move(key);
  event.timestamp = dateFromUnixSeconds(static_cast<double>(*createdMs_) / 1000.0);
  event.tokens = tokens;
  // The tool writes 0 both for a free model and for one it has no price of (and for
  // subscriptions), so a cost of 0 says nothing: it is left to the price table, which shows an
  // unpriced model as unknown rather than free.
  if (cost > 0) event.reportedCostUSD = cost;
  event.project = cwd_.empty() ? std::string(project) : cwd_;
  return event;
}

}  // namespace brimlog
