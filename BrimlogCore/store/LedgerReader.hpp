#pragma once

#include <vector>

#include "platform/Calendar.hpp"
#include "store/Ledger.hpp"
#include "store/SQLiteDatabase.hpp"

namespace brimlog {

/// The read side of the ledger, run by `UsageStore` on its connection while it holds it: the
/// slot rows of a span for the per-session views, and a span's local days from the per-day
/// quarter rows for the day, week and month figures.
class LedgerReader {
 public:
  explicit LedgerReader(SQLiteDatabase& db) : db_(db) {}

  /// See `UsageStore::ledger`.
  LedgerRows rows(const LedgerFilter& filter);
  /// See `UsageStore::days`.
  LedgerDays days(const LedgerFilter& filter, const Calendar& calendar);

 private:
  // The kept day totals of the days around a span.
  std::vector<KeptDay> keptDaysNear(const LedgerFilter& filter);

  SQLiteDatabase& db_;
};

}  // namespace brimlog
