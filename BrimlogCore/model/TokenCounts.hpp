#pragma once

#include <cstdint>

#include "platform/Json.hpp"

namespace brimlog {

/// The token counts of one model reply, or a sum of many, split by how the tokens are priced.
///
/// Sums saturate: a counter that would pass the 64-bit range stays at its largest (or smallest)
/// value instead of wrapping around, so a sum is never smaller than one of its positive parts.
/// Real counts stay many orders of magnitude below that.
struct TokenCounts {
  int64_t uncachedInput = 0;  // input billed at the plain input rate
  int64_t cacheRead = 0;      // input served from the prompt cache
  int64_t cacheWrite5m = 0;   // input written to the cache with a five-minute lifetime
  int64_t cacheWrite1h = 0;   // input written to the cache with a one-hour lifetime
  int64_t output = 0;         // generated tokens as the tool reports them
  int64_t reasoning = 0;      // thinking tokens reported in a field of their own

  static constexpr TokenCounts zero() { return {}; }

  /// Both cache-write lifetimes together.
  int64_t cacheWrite() const;

  /// Every token but reasoning: the one number used for all totals, shares and charts.
  int64_t processed() const;

  /// The field-by-field larger of two counts: what a reply seen twice, once while it was still
  /// growing, was finally counted with.
  static TokenCounts largest(const TokenCounts& a, const TokenCounts& b);

  TokenCounts operator+(const TokenCounts& other) const;
  TokenCounts& operator+=(const TokenCounts& other);
  bool operator==(const TokenCounts&) const = default;

  /// An object with all six keys; decoding requires every key and an integer under each.
  Json toJson() const;
  static TokenCounts fromJson(const Json& json);
};

/// a + b, held at the int64 limits instead of overflowing.
int64_t saturatingAdd(int64_t a, int64_t b);

}  // namespace brimlog
