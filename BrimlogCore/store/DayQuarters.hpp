#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "model/TokenCounts.hpp"

namespace brimlog {

/// One UTC day of one tool's and model's usage, by quarter hour: the compact form in which the
/// ledger keeps what day, week and month figures are summed from, so that a report over a year
/// reads a row per day and model instead of a row per quarter hour and session. Written beside the
/// slot rows in the same transaction; the two always agree.
///
/// Stored as a blob of records, one per quarter with usage: the quarter (one byte), whether a cost
/// was reported (one byte), the six counters and the cost, each eight bytes little-endian.
struct DayQuarters {
  struct Usage {
    TokenCounts tokens;
    std::optional<double> reportedUSD;
  };
  std::map<uint8_t, Usage> quarters;  // quarter of the day (0 to 95) -> its usage

  void add(uint8_t quarter, const TokenCounts& tokens, std::optional<double> reportedUSD);

  std::string encode() const;
  /// What `encode` wrote; a damaged blob yields the records before the damage.
  static DayQuarters decode(std::string_view blob);
};

/// The quarters of one UTC day in which one session had a reply, as 96 bits.
struct ActiveQuarters {
  std::array<uint8_t, 12> bits{};

  void set(int quarter) { bits[quarter / 8] |= static_cast<uint8_t>(1u << (quarter % 8)); }
  bool has(int quarter) const { return (bits[quarter / 8] >> (quarter % 8)) & 1u; }
  void merge(std::string_view blob);
  std::string_view blob() const {
    return {reinterpret_cast<const char*>(bits.data()), bits.size()};
  }
};

}  // namespace brimlog
