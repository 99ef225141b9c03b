#pragma once

#include <optional>
#include <string>

#include "model/ProviderID.hpp"
#include "model/TokenCounts.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// One model reply as read from a tool's own log: what the parsers produce and the usage store
/// counts. It has no JSON form; the store keeps per-slot sums of events and each reply's counts.
struct UsageEvent {
  ProviderID provider = ProviderID::claude;
  /// The model name as the tool logged it ("unknown" where the log names none).
  std::string model;
  /// The tool's conversation or session id; empty when the log line carries none.
  std::string sessionID;
  /// Identifies the underlying reply: the same reply logged twice yields the same key, and the
  /// store counts each key once.
  std::string dedupKey;
  /// When the reply was logged, from the log line itself.
  Date timestamp;
  TokenCounts tokens;
  /// A cost the tool itself reported, in US dollars; absent when the price table must price it.
  std::optional<double> reportedCostUSD;
  /// The folder the tool was working in, as its log names it; empty when it names none.
  std::string project;

  /// Takes in another line of the same reply (the same `dedupKey`): the reply's counts are the
  /// largest either carried, field by field, and so is its reported cost; where and when it was
  /// first seen stays.
  void absorb(const UsageEvent& later) {
    tokens = TokenCounts::largest(tokens, later.tokens);
    if (later.reportedCostUSD && (!reportedCostUSD || *later.reportedCostUSD > *reportedCostUSD)) {
      reportedCostUSD = later.reportedCostUSD;
    }
  }

  bool operator==(const UsageEvent&) const = default;
};

}  // namespace brimlog
