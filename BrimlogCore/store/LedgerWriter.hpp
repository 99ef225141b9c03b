#pragma once

#include <map>
#include <span>
#include <string_view>
#include <tuple>

#include "model/PerProvider.hpp"
#include "model/UsageEvent.hpp"
#include "store/DayQuarters.hpp"
#include "store/SQLiteDatabase.hpp"

namespace brimlog {

/// The write side of an ingest batch, run by `UsageStore::ingest` inside its transaction.
///
/// Each reply is remembered under its key with the counts it was counted with. A reply seen
/// again with larger counts (Claude Code writes a reply over several lines while it streams, the
/// last with the final counts) adds only the difference, to the slot, session and model it was
/// first counted in; counts already counted are never counted again. So a reply ends up counted
/// with the field-by-field largest counts any of its lines carried, exactly once, whatever order
/// the lines are read in and however often a pass is cut short and resumed.
class LedgerWriter {
 public:
  explicit LedgerWriter(SQLiteDatabase& db) : db_(db) {}

  /// Writes a batch; adds the replies seen for the first time to `added`, per provider.
  void write(std::span<const UsageEvent> events, PerProvider<int64_t>& added);

 private:
  // Adds the batch's growth to the per-day quarter rows that day, week and month figures read.
  void writeDays(
      const std::map<std::tuple<int64_t, std::string_view, std::string_view>, DayQuarters>& days,
      const std::map<std::pair<int64_t, int64_t>, ActiveQuarters>& active);

  SQLiteDatabase& db_;
};

}  // namespace brimlog
