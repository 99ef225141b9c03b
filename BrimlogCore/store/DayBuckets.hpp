#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "store/Ledger.hpp"

namespace brimlog {

/// Sums slots into the local days of one calendar: the one rule by which every day, week and month
/// figure is made, whether the slots come from the slot rows or from the per-day quarter rows.
/// Slots outside [from, to) are left out. Fed slots in ascending order, it looks a day up in the
/// zone once per day, not once per slot.
class DayBuckets {
 public:
  DayBuckets(const Calendar& calendar, Date from, Date to);

  void addUsage(int64_t slot, ProviderID tool, std::string_view model, const TokenCounts& tokens,
                std::optional<double> reportedUSD);
  /// `session` had a reply in `slot`.
  void addActive(int64_t slot, ProviderID tool, int64_t session);

  /// The days, with the kept day totals of days on which no slot of their tool lies.
  LedgerDays finish(std::span<const KeptDay> keptDays);

 private:
  struct Sum {
    TokenCounts tokens;
    std::optional<double> reportedUSD;
    bool kept = false;
  };

  uint32_t dayOf(int64_t slot);

  const Calendar& calendar_;
  Date from_;
  Date to_;
  int64_t firstSlot_;
  int64_t endSlot_;
  // The day of the last slot looked up, and its bounds in slots.
  uint32_t day_ = 0;
  int64_t dayFirst_ = 1;
  int64_t dayEnd_ = 0;
  std::map<std::string, uint32_t> dayNumbers_;
  std::vector<std::string> dayKeys_;
  std::unordered_map<std::string, uint32_t> modelNumbers_;
  std::vector<std::string> models_;
  uint32_t model_ = 0;                                // the number of the last model added
  std::unordered_map<uint64_t, Sum> usage_;           // (day, tool, model) packed
  std::vector<std::pair<uint64_t, int64_t>> active_;  // ((day, tool) packed, session)
};

}  // namespace brimlog
