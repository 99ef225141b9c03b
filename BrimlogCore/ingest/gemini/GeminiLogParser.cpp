#include "ingest/gemini/GeminiLogParser.hpp"

#include <string.h>

#include "ingest/LogJson.hpp"
#include "platform/Date.hpp"

namespace brimlog {
namespace {

using logjson::object;

// The reply a message record stands for, or nothing when it is not a model reply with counts.
std::optional<UsageEvent> reply(object message, const GeminiSession& session,
                                std::string_view project) {
  using namespace logjson;
  if (string(message, "type") != "gemini") return std::nullopt;
  // Without the session's id the reply could not be matched with its copies in other files.
  if (session.id.empty()) return std::nullopt;
  const auto id = string(message, "id");
  if (!id || id->empty()) return std::nullopt;
  // A reply is first written before its counts are known (`tokens` missing or null), and again
  // with them: only the written counts count.
  const auto usage = objectField(message, "tokens");
  if (!usage) return std::nullopt;
  const auto timestampText = string(message, "timestamp");
  if (!timestampText) return std::nullopt;
  const auto timestamp = parseISO8601(*timestampText);
  if (!timestamp) return std::nullopt;

  // `input` is the whole prompt, the part read from the cache (`cached`) included; the prompt of
  // the model's own tool use (`tool`) is counted apart from it and billed as input too. `output`
  // leaves out the thinking (`thoughts`), which is billed as output.
  const int64_t thoughts = tokenCount(*usage, "thoughts");
  TokenCounts tokens;
  tokens.uncachedInput = uncachedInput(tokenCount(*usage, "input"), tokenCount(*usage, "cached")) +
                         tokenCount(*usage, "tool");
  tokens.cacheRead = tokenCount(*usage, "cached");
  tokens.output = tokenCount(*usage, "output") + thoughts;
  tokens.reasoning = thoughts;
  if (tokens.processed() <= 0) return std::nullopt;

  std::string key;
  key.reserve(8 + session.id.size() + id->size());
  key.append("gemini:").append(session.id).append("/").append(*id);
  return UsageEvent{ProviderID::gemini,
                    std::string(string(message, "model").value_or("unknown")),
                    session.id,
                    std::move(key),
                    *timestamp,
                    tokens,
                    std::nullopt,
                    std::string(project.empty() ? std::string_view{session.directory} : project)};
}

void replies(simdjson::dom::array messages, const GeminiSession& session, std::string_view project,
             std::vector<UsageEvent>& events) {
  for (logjson::element each : messages) {
    object message;
    if (each.get_object().get(message) != simdjson::SUCCESS) continue;
    if (auto event = reply(message, session, project)) events.push_back(std::move(*event));
  }
}

// Takes the session's id and first workspace folder from a metadata object, where it has them.
void learn(object metadata, GeminiSession& session) {
  if (const auto id = logjson::string(metadata, "sessionId"); id && !id->empty()) {
    session.id = *id;
  }
  simdjson::dom::array directories;
  if (metadata["directories"].get_array().get(directories) != simdjson::SUCCESS) return;
  std::string_view first;
  if (directories.at(0).get_string().get(first) == simdjson::SUCCESS && !first.empty()) {
    session.directory = first;
  }
}

bool contains(std::string_view line, std::string_view name) {
  return ::memmem(line.data(), line.size(), name.data(), name.size()) != nullptr;
}

std::optional<simdjson::dom::array> messagesOf(object parent) {
  simdjson::dom::array messages;
  if (parent["messages"].get_array().get(messages) != simdjson::SUCCESS) return std::nullopt;
  return messages;
}

}  // namespace

void GeminiLogParser::consume(PaddedLine line, GeminiSession& session, std::string_view project,
                              std::vector<UsageEvent>& events) {
  // Most lines are the user's side, tool output and notices: settle those on their type alone.
  const auto type = logjson::leadingType(line);
  if (type && *type != "gemini") return;
  // A line yields something only through a key named here, and the tool writes keys without
  // escapes, so a line without any of them is passed over unparsed: a reply written before its
  // counts, a rewind, an update of the session's time. (Met inside a string, a name is
  // escaped; met as a nested key, it only costs the parse.)
  if (!contains(line, "\"tokens\"") &&
      (type || (!contains(line, "\"sessionId\"") && !contains(line, "\"directories\"")))) {
    return;
  }
  const auto root = logjson::parseObject(line);
  if (!root) return;
  // A rewind hides the replies after a point from the conversation, but they were made and
  // billed: it takes nothing back.
  if (logjson::field(*root, "$rewindTo")) return;
  if (const auto set = logjson::objectField(*root, "$set")) {
    learn(*set, session);
    // A checkpoint writes every message of the conversation again: the replies among them are
    // handed on under their keys, which the store has already counted.
    if (const auto messages = messagesOf(*set)) replies(*messages, session, project, events);
    return;
  }
  if (logjson::string(*root, "sessionId")) {
    learn(*root, session);
    if (const auto messages = messagesOf(*root)) replies(*messages, session, project, events);
    return;
  }
  if (auto event = reply(*root, session, project)) events.push_back(std::move(*event));
}

std::optional<std::vector<UsageEvent>> GeminiLogParser::document(std::string_view bytes,
                                                                 std::string_view project) {
  const auto root = logjson::parseObject(bytes);
  if (!root) return std::nullopt;
  const auto messages = messagesOf(*root);
  if (!messages) return std::nullopt;
  GeminiSession session;
  learn(*root, session);
  std::vector<UsageEvent> events;
  replies(*messages, session, project, events);
  return events;
}

}  // namespace brimlog
