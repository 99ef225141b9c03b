#pragma once

#include <optional>
#include <string>

#include "model/ProviderID.hpp"
#include "platform/Calendar.hpp"
#include "store/Ledger.hpp"

namespace brimlog {

class PriceTable;
struct UsageSummary;
struct SummaryWindow;

/// Where a report's figures come from: this machine's ledger (`UsageStore`), or a shared ledger
/// that several machines send theirs to. Both answer with the same rows, so every report is
/// computed the same way whichever ledger it reads.
class LedgerSource {
 public:
  virtual ~LedgerSource() = default;

  /// The slot rows of a span, with their sessions and the kept day totals near it.
  virtual LedgerRows ledger(const LedgerFilter& filter) = 0;
  /// The same span's figures per local day of `calendar` (what `LedgerDays::of` makes of
  /// `ledger(filter)`, read more cheaply where the source can).
  virtual LedgerDays days(const LedgerFilter& filter, const Calendar& calendar) = 0;
};

/// The days of `window` read from `source`, only the usage of `tool` and of `project` where they
/// are given, priced with `prices`.
UsageSummary summaryOf(LedgerSource& source, const SummaryWindow& window, const Calendar& calendar,
                       const PriceTable& prices, std::optional<ProviderID> tool = std::nullopt,
                       std::optional<std::string> project = std::nullopt);

}  // namespace brimlog
