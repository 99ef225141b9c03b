#include "store/LimitHistory.hpp"

#include <fmt/format.h>

#include <algorithm>

#include "store/Ledger.hpp"
#include "store/ShareMarks.hpp"

namespace brimlog {
namespace {

constexpr std::string_view kColumns =
    "provider, window_id, read_at, used, resets_at, duration, origin";

Bind optionalDate(const std::optional<Date>& date) {
  if (!date) return nullptr;
  return referenceSeconds(*date);
}

Bind optionalNumber(const std::optional<double>& value) {
  if (!value) return nullptr;
  return *value;
}

// The reading in a result row of `kColumns`; nothing for a provider or origin this program
// does not know (a newer program's rows).
std::optional<LimitReading> readingOf(const Row& row) {
  const auto provider = ProviderID::fromRawValue(row.text(0));
  const auto origin = LimitReading::originNamed(row.text(6));
  if (!provider || !origin) return std::nullopt;
  LimitReading reading;
  reading.provider = *provider;
  reading.window = row.text(1);
  reading.readAt = dateFromReferenceSeconds(row.real(2));
  reading.usedFraction = row.real(3);
  if (!row.isNull(4)) reading.resetsAt = dateFromReferenceSeconds(row.real(4));
  if (!row.isNull(5)) reading.duration = row.real(5);
  reading.origin = *origin;
  return reading;
}

}  // namespace

int64_t LimitHistory::add(SQLiteDatabase& db, std::span<const LimitReading> readings) {
  int64_t stored = 0;
  std::vector<int64_t> changed;
  const PreparedStatement before = db.prepared(
      "SELECT provider, window_id, read_at, used, resets_at, duration, origin FROM limit_readings "
      "WHERE provider = ?1 AND window_id = ?2 AND read_at <= ?3 ORDER BY read_at DESC LIMIT 1");
  const PreparedStatement insert = db.prepared(
      "INSERT OR IGNORE INTO limit_readings(provider, window_id, read_at, used, resets_at, "
      "duration, origin) VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)");
  for (const LimitReading& reading : readings) {
    const std::string_view provider = reading.provider.rawValue();
    const double readAt = referenceSeconds(reading.readAt);
    bool repeats = false;
    db.query(before, {provider, reading.window, readAt}, [&](const Row& row) {
      if (const auto previous = readingOf(row)) {
        repeats = LimitReading::sameFigures(*previous, reading);
      }
    });
    if (repeats) continue;
    if (db.run(insert, {provider, reading.window, readAt, reading.usedFraction,
                        optionalDate(reading.resetsAt), optionalNumber(reading.duration),
                        LimitReading::originName(reading.origin)}) == 1) {
      ++stored;
      changed.push_back(dayOfSlot(slotOf(reading.readAt)));
    }
  }
  std::sort(changed.begin(), changed.end());
  ShareMarks::mark(db, ShareKind::limits, changed);
  return stored;
}

std::vector<LimitReading> LimitHistory::read(SQLiteDatabase& db, const ReadingFilter& filter) {
  // The conditions are written out rather than made optional in SQL, so that a named window is
  // looked up by the key's prefix instead of a scan of every reading.
  const std::string provider(filter.provider ? filter.provider->rawValue() : "");
  const std::string window = filter.window.value_or("");
  const std::string sql = fmt::format(
      "SELECT {} FROM limit_readings WHERE {}{}read_at >= ?3 AND read_at <= ?4 "
      "ORDER BY provider, window_id, read_at",
      kColumns, filter.provider ? "provider = ?1 AND " : "?1 = ?1 AND ",
      filter.window ? "window_id = ?2 AND " : "?2 = ?2 AND ");
  std::vector<LimitReading> readings;
  db.query(sql, {provider, window, referenceSeconds(filter.since), referenceSeconds(filter.until)},
           [&](const Row& row) {
             if (auto reading = readingOf(row)) readings.push_back(std::move(*reading));
           });
  return readings;
}

std::vector<LimitForecast::Point> LimitHistory::points(SQLiteDatabase& db, ProviderID provider,
                                                       const std::string& window, Date since,
                                                       Date until) {
  std::vector<LimitForecast::Point> points;
  db.query(
      "SELECT read_at, used FROM limit_readings WHERE provider = ?1 AND window_id = ?2 AND "
      "read_at >= ?3 AND read_at <= ?4 ORDER BY read_at",
      {provider.rawValue(), window, referenceSeconds(since), referenceSeconds(until)},
      [&](const Row& row) {
        points.push_back({dateFromReferenceSeconds(row.real(0)), row.real(1)});
      });
  return points;
}

void LimitHistory::prune(SQLiteDatabase& db, Date date) {
  db.run("DELETE FROM limit_readings WHERE read_at < ?1", {referenceSeconds(date)});
}

}  // namespace brimlog
