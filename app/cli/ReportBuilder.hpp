#pragma once

#include <string>

#include "output/ReportContent.hpp"
#include "platform/Calendar.hpp"
#include "store/LedgerSource.hpp"

namespace brimlog {

class PriceTable;
class SharedLedger;
struct SharedFilter;

/// The figures of a `brimlog report`, read from a ledger, this machine's or the shared one:
/// every view is computed the same way whichever it reads.
struct ReportBuilder {
  /// Fills the figures of `content`'s view (not the machines view) for its days, tool and
  /// project from `source`.
  static void fill(ReportContent& content, LedgerSource& source, const Calendar& calendar,
                   const PriceTable& prices);

  /// The machines view: a row per machine of `shared` that `filter` lets through, with its
  /// usage over `content`'s days, read from `target` (the shared ledger's own connection
  /// string) filtered to that machine.
  static void fillMachines(ReportContent& content, SharedLedger& shared, const std::string& target,
                           const SharedFilter& filter, const Calendar& calendar,
                           const PriceTable& prices);
};

}  // namespace brimlog
