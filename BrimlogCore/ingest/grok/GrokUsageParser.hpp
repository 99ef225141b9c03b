#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "model/UsageEvent.hpp"

namespace brimlog {

/// Turns one Grok Build session document (a whole JSON file, rewritten as the session goes on)
/// into usage events: one per finished turn and model, with the cost the tool computed itself.
///
/// The document is read whole on every pass; `afterTurn` says which turns earlier passes already
/// took, and `lastTurn` how far the session is now complete, to be stored and passed back next
/// time. `lastTurn` never moves past an unfinished turn, so finished turns after it are handed
/// back again on the next pass; their `dedupKey` ("session#turn#model") lets the store count them
/// once.
///
///     auto r = GrokUsageParser::events(document, stored.value_or(INT64_MIN));
///     store.ingest(r.events);  // then store r.lastTurn for this file
///
/// Stateless; callable from any thread. Never throws: an unreadable document yields no events and
/// `lastTurn` = `afterTurn`; malformed turns and model entries are skipped one by one.
struct GrokUsageParser {
  struct Result {
    /// By turn number (document order among equal numbers), then by model name.
    std::vector<UsageEvent> events;
    /// The highest turn number up to which every turn is finished; `afterTurn` when none moved it.
    int64_t lastTurn = 0;

    bool operator==(const Result&) const = default;
  };

  /// The events of the turns numbered above `afterTurn`. Pass any number below the first turn
  /// for a file never read.
  static Result events(std::string_view document, int64_t afterTurn);
};

}  // namespace brimlog
