#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "store/SQLiteDatabase.hpp"

namespace brimlog {

/// The rows a shared ledger gets from this one, by kind: usage (slot rows with their sessions,
/// and kept day totals) and limit readings.
enum class ShareKind { usage, limits };

/// A UTC day (days since 1970-01-01) of one kind and the mark of its last change.
struct ShareMark {
  ShareKind kind = ShareKind::usage;
  int64_t day = 0;
  int64_t mark = 0;

  bool operator==(const ShareMark&) const = default;
};

/// Marks the days whose rows a write changed, in the writer's transaction, so that a shared
/// ledger can compare the marks it holds with these and ask for only the days that differ. A
/// mark is a stamp that grows with every change of its day; it is taken from the clock, so a
/// ledger rebuilt from nothing does not give a day a mark the shared ledger already holds for
/// other rows.
class ShareMarks {
 public:
  static std::string_view nameOf(ShareKind kind) {
    return kind == ShareKind::usage ? "usage" : "limits";
  }

  /// Marks `days` (repeats allowed) as changed now.
  static void mark(SQLiteDatabase& db, ShareKind kind, std::span<const int64_t> days);
  /// Every mark, by kind and day.
  static std::vector<ShareMark> all(SQLiteDatabase& db);
};

}  // namespace brimlog
