#include "ingest/grok/GrokUsageParser.hpp"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "ingest/LogJson.hpp"
#include "platform/Date.hpp"

namespace brimlog {
namespace {

using logjson::element;
using logjson::object;

struct NumberedTurn {
  int64_t number;
  object turn;
};

UsageEvent usageEvent(std::string_view sessionID, int64_t turnNumber, std::string_view model,
                      object usage, Date endedAt) {
  const int64_t cached = logjson::tokenCount(usage, "cachedReadTokens");
  TokenCounts tokens;
  tokens.uncachedInput = logjson::uncachedInput(logjson::tokenCount(usage, "inputTokens"), cached);
  tokens.cacheRead = cached;
  tokens.cacheWrite5m = logjson::tokenCount(usage, "cacheCreationTokens");
  tokens.output = logjson::tokenCount(usage, "outputTokens");
  tokens.reasoning = logjson::tokenCount(usage, "reasoningTokens");

  std::optional<double> cost;
  // One tick is 10^-10 US dollars.
  if (const auto ticks = logjson::number(usage, "costUsdTicks")) cost = *ticks * 1e-10;

  std::string key;
  key.reserve(sessionID.size() + model.size() + 22);
  key.append(sessionID).append("#").append(std::to_string(turnNumber)).append("#").append(model);
  return UsageEvent{ProviderID::grok,
                    std::string(model),
                    std::string(sessionID),
                    std::move(key),
                    endedAt,
                    tokens,
                    cost,
                    {}};
}

// Appends one event per model of a finished turn, models in ascending name order.
void appendEvents(std::vector<UsageEvent>& events, std::string_view sessionID, int64_t turnNumber,
                  object modelUsage, Date endedAt) {
  std::vector<std::pair<std::string_view, element>> models;
  models.reserve(modelUsage.size());
  for (const auto field : modelUsage) models.emplace_back(field.key, field.value);
  std::stable_sort(models.begin(), models.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  // A name written twice counts once, with its first value (the one a lookup by name finds).
  models.erase(std::unique(models.begin(), models.end(),
                           [](const auto& a, const auto& b) { return a.first == b.first; }),
               models.end());
  for (const auto& [model, value] : models) {
    object usage;
    if (value.get_object().get(usage) != simdjson::SUCCESS) continue;
    events.push_back(usageEvent(sessionID, turnNumber, model, usage, endedAt));
  }
}

}  // namespace

GrokUsageParser::Result GrokUsageParser::events(std::string_view document, int64_t afterTurn) {
  Result result{{}, afterTurn};

  // A parser of its own: session documents are far larger than log lines, and the buffers grown
  // for one are released when the call ends. The parser copies the bytes into padded memory.
  simdjson::dom::parser parser;
  object root;
  if (parser.parse(document.data(), document.size(), true).get_object().get(root) !=
      simdjson::SUCCESS) {
    return result;
  }
  const auto sessionID = logjson::string(root, "sessionId");
  if (!sessionID) return result;
  simdjson::dom::array turns;
  if (root.at_key("turns").get_array().get(turns) != simdjson::SUCCESS) return result;

  std::vector<NumberedTurn> pending;
  for (const element value : turns) {
    object turn;
    // One turn that is not an object makes the list unusable as a whole.
    if (value.get_object().get(turn) != simdjson::SUCCESS) return result;
    if (turn.size() == 0 || !logjson::number(turn, "turnNumber")) continue;
    const int64_t number = logjson::tokenCount(turn, "turnNumber");
    if (number > afterTurn) pending.push_back({number, turn});
  }
  if (pending.empty()) return result;
  std::stable_sort(
      pending.begin(), pending.end(),
      [](const NumberedTurn& a, const NumberedTurn& b) { return a.number < b.number; });

  // Completion stops at the first unfinished turn, even when later ones have finished: those are
  // handed back again next time rather than lost.
  bool unfinishedSeen = false;
  for (const auto& [number, turn] : pending) {
    const auto endedAt = logjson::string(turn, "endedAt");
    if (endedAt && !endedAt->empty() && !unfinishedSeen) {
      result.lastTurn = std::max(result.lastTurn, number);
    } else {
      unfinishedSeen = true;
    }

    const auto modelUsage = logjson::objectField(turn, "modelUsage");
    if (!modelUsage || !endedAt) continue;
    const auto timestamp = parseISO8601(*endedAt);
    if (!timestamp) continue;
    appendEvents(result.events, *sessionID, number, *modelUsage, *timestamp);
  }
  if (const auto cwd = logjson::string(root, "cwd")) {
    for (UsageEvent& event : result.events) event.project = *cwd;
  }
  return result;
}

}  // namespace brimlog
