#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/ProviderID.hpp"
#include "model/TokenCounts.hpp"
#include "platform/Calendar.hpp"
#include "store/Ledger.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

/// The days a summary covers.
struct SummaryWindow {
  int days = 1;                   // at least one
  Date today;                     // start of the day of `now`
  std::vector<Date> dates;        // starts of the window's days, oldest first
  std::vector<std::string> keys;  // their day keys
  std::string firstKey;
  std::string lastKey;

  /// The last `days` local days (at least one) up to the day of `now`.
  static SummaryWindow make(int days, Date now, const Calendar& calendar);
  /// The local days from the day of `first` to the day of `last`, both included (just the day of
  /// `last` when `first` comes after it).
  static SummaryWindow between(Date first, Date last, const Calendar& calendar);
};

/// Condenses a window's days into a summary in one pass: each (tool, model, day) priced as one
/// bundle, costs and tokens added up per tool, day, (tool, day) and model.
UsageSummary buildSummary(const SummaryWindow& window, const LedgerDays& days,
                          const PriceTable& prices);

}  // namespace brimlog
