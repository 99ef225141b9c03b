#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "model/LimitForecast.hpp"
#include "model/LimitReading.hpp"
#include "platform/Date.hpp"
#include "store/SQLiteDatabase.hpp"

namespace brimlog {

/// Which readings to read back: every tool and window unless named, between two moments.
struct ReadingFilter {
  std::optional<ProviderID> provider{};
  std::optional<std::string> window{};
  Date since = Date{Seconds{-1e12}};
  Date until = Date{Seconds{1e12}};
};

/// The `limit_readings` table: every reading of every limit window, one row per provider,
/// window and moment (dates as seconds since 2001), kept as long as the usage.
///
/// A reading that says what the one before it said (the same share and reset) is not stored:
/// a window nobody uses costs one row per period, not one per fetch. "Before" is in time, not
/// in the order readings arrive, since the logs of a tool are read in any order. A reading of a
/// moment already stored is dropped.
///
/// The owner (`UsageStore`) serialises every call and runs it inside its transactions.
class LimitHistory {
 public:
  /// Stores the readings that add something; returns how many were stored.
  static int64_t add(SQLiteDatabase& db, std::span<const LimitReading> readings);
  /// The readings of `filter`, by provider, window and time.
  static std::vector<LimitReading> read(SQLiteDatabase& db, const ReadingFilter& filter);
  /// One window's shares used and when they were read, from `since` to `until`, in time order:
  /// what a forecast needs of a period, without the rest of each row.
  static std::vector<LimitForecast::Point> points(SQLiteDatabase& db, ProviderID provider,
                                                  const std::string& window, Date since,
                                                  Date until);
  /// Deletes the readings taken before `date`.
  static void prune(SQLiteDatabase& db, Date date);
};

}  // namespace brimlog
