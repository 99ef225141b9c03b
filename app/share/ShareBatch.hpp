#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "model/LimitReading.hpp"
#include "store/Ledger.hpp"
#include "store/ShareMarks.hpp"

namespace brimlog {

class PgConnection;

/// One transaction of a share: whole UTC days of one machine's rows, each day's rows replacing
/// that machine's rows of the day in the shared ledger, and the days' marks stored with them. The
/// rows travel by COPY into temporary tables and are merged from there with a few statements, so
/// a batch costs a handful of round trips however many rows it holds.
///
///     ShareBatch batch{"laptop", "ana"};
///     batch.addUsageDay(mark, store.ledger(filterOfDay));
///     batch.send(db);
class ShareBatch {
 public:
  ShareBatch(std::string machine, std::string user);

  /// A UTC day of usage: the slot rows of `rows` (read for exactly that day), the sessions they
  /// belong to, and the kept day totals of that date. `held`: the shared ledger holds rows of
  /// the day from an earlier share, which these replace.
  void addUsageDay(const ShareMark& mark, const LedgerRows& rows, bool held);
  /// A UTC day of limit readings: every reading of that day.
  void addReadingDay(const ShareMark& mark, const std::vector<LimitReading>& readings, bool held);

  int64_t days() const;
  int64_t usageRows() const { return usageRows_; }
  /// The sessions of the batch's rows, each as its tool and id.
  const std::set<std::string>& sessionKeys() const { return sessionKeys_; }
  int64_t readings() const { return readings_; }
  int64_t readingDays() const { return static_cast<int64_t>(readingDays_.size()); }
  int64_t usageDays() const { return static_cast<int64_t>(usageDays_.size()); }

  /// Sends the batch in one transaction; throws `SharedLedgerError`, after rolling back.
  void send(PgConnection& db) const;

 private:
  void sendRows(PgConnection& db) const;

  std::string machine_;
  std::string user_;
  std::vector<int64_t> usageDays_, usageMarks_, heldUsageDays_;
  std::vector<int64_t> readingDays_, readingMarks_, heldReadingDays_;
  std::string usage_, sessions_, kept_, readingRows_;  // COPY text
  std::set<std::string> sessionKeys_;  // provider and session id, for each session once
  int64_t usageRows_ = 0;
  int64_t readings_ = 0;
};

}  // namespace brimlog
