#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/UsageEvent.hpp"

namespace brimlog {

/// Turns one OpenCode (or Kilo) assistant message into a usage event: first the message's own
/// data, then each of its parts, of which only the "step-finish" parts carry usage.
///
/// The message's own `tokens` hold its last step alone (each step overwrites them) while its
/// `cost` is the sum of its steps, so a message's tokens and cost are the sums over its
/// step-finish parts; a message with no such part (older or unfinished ones) falls back to its own.
///
/// The same reply can be stored several times: a forked session copies every message with a new
/// id but the same provider, model and creation time (Kilo zeroes the copy's cost), and a message
/// moved from the old JSON files into the database keeps its id and everything else. The event's
/// key is therefore made of the tool's raw value, the provider, the model and the creation time in
/// milliseconds ("opencode:anthropic/claude-sonnet-4-5@1771228800123"), never of the message id:
/// every copy is one reply. Two different replies of one model created in the same millisecond
/// would be taken as one; the tool creates a session's messages one after another.
///
///     OpenCodeMessageParser parser;
///     if (parser.message(data)) {
///       for (std::string_view part : parts) parser.part(part);
///       std::optional<UsageEvent> event = parser.event(ProviderID::opencode, sessionID, project);
///     }
///
/// Never throws: a message or part that is not valid JSON, or not of the kinds above, is ignored.
class OpenCodeMessageParser {
 public:
  /// The usage of a reply's steps, summed.
  struct Steps {
    TokenCounts tokens;
    double costUSD = 0;
    int count = 0;

    Steps& operator+=(const Steps& other);
  };

  /// One part's usage when it is a step-finish part; nothing for any other part.
  static std::optional<Steps> step(std::string_view data);

  /// Starts a new message from its data (the database's `data` column or an old JSON file):
  /// whether it is an assistant message. Whatever the parser held before is dropped.
  bool message(std::string_view data);

  /// Adds one part of the current message; whether it was a step-finish part with usage.
  bool part(std::string_view data);

  /// Adds steps read apart from the message (`step` of each of its parts).
  void addSteps(const Steps& steps) { steps_ += steps; }

  /// The reply as an event, or nothing when it has recorded no usage yet (a reply still waiting
  /// for its first step, or one that failed before the model answered). `sessionID` and
  /// `project` are used when the message data names none (the database keeps them in columns).
  std::optional<UsageEvent> event(ProviderID tool, std::string_view sessionID,
                                  std::string_view project) const;

  /// What the message data named: its id and session (old JSON files only) and working folder.
  const std::string& messageID() const { return id_; }
  const std::string& sessionID() const { return sessionID_; }
  const std::string& workingFolder() const { return cwd_; }

 private:
  std::string id_, sessionID_, providerID_, modelID_, cwd_;
  std::optional<int64_t> createdMs_;
  TokenCounts ownTokens_;
  double ownCost_ = 0;
  Steps steps_;
};

}  // namespace brimlog
