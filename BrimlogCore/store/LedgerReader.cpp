#include "store/LedgerReader.hpp"

#include "store/DayBuckets.hpp"
#include "store/DayQuarters.hpp"

namespace brimlog {

// The kept day totals of the days around a span. Kept days carry no project; their zone is
// unknown, so the days around the span in any zone are read, and the caller's calendar decides.
std::vector<KeptDay> LedgerReader::keptDaysNear(const LedgerFilter& filter) {
  std::vector<KeptDay> kept;
  if (filter.project) return kept;
  const auto near = keptDayKeysNear(filter);
  db_.query(
      "SELECT provider, model, day, uncached, cache_read, w5m, w1h, output, reasoning, "
      "reported_usd, sessions FROM kept_days WHERE day >= ?1 AND day <= ?2 "
      "AND (?3 IS NULL OR provider = ?3) ORDER BY day, provider, model",
      {near.first, near.second,
       filter.provider ? Bind{filter.provider->rawValue()} : Bind{nullptr}},
      [&](const Row& row) {
        const auto provider = ProviderID::fromRawValue(row.text(0));
        if (!provider) return;
        kept.push_back(KeptDay{*provider, std::string(row.text(1)), std::string(row.text(2)),
                               TokenCounts{row.integer(3), row.integer(4), row.integer(5),
                                           row.integer(6), row.integer(7), row.integer(8)},
                               row.isNull(9) ? std::nullopt : std::optional<double>(row.real(9)),
                               row.integer(10)});
      });
  return kept;
}

LedgerDays LedgerReader::days(const LedgerFilter& filter, const Calendar& calendar) {
  // The per-day quarter rows know no project: a project's days come from its slot rows.
  if (filter.project) return LedgerDays::of(rows(filter), calendar);
  DayBuckets buckets{calendar, filter.from, filter.to};
  std::vector<KeptDay> kept;
  if (!(filter.from < filter.to)) return buckets.finish(kept);
  const SlotSpan span = SlotSpan::of(filter);
  const int64_t firstDay = dayOfSlot(span.first);
  const int64_t lastDay = dayOfSlot(span.last);
  const Bind tool = filter.provider ? Bind{filter.provider->rawValue()} : Bind{nullptr};
  {
    db_.query(
        "SELECT day, provider, model, quarters FROM day_usage WHERE day >= ?1 AND day <= ?2 "
        "AND (?3 IS NULL OR provider = ?3)",
        {firstDay, lastDay, tool}, [&](const Row& row) {
          const auto provider = ProviderID::fromRawValue(row.text(1));
          if (!provider) return;
          const int64_t start = row.integer(0) * kSlotsPerDay;
          const DayQuarters day = DayQuarters::decode(row.blob(3));
          for (const auto& [quarter, usage] : day.quarters) {
            buckets.addUsage(start + quarter, *provider, row.text(2), usage.tokens,
                             usage.reportedUSD);
          }
        });
    db_.query(
        "SELECT a.day, s.provider, a.session, a.quarters FROM day_sessions a "
        "JOIN sessions s ON s.id = a.session WHERE a.day >= ?1 AND a.day <= ?2 "
        "AND (?3 IS NULL OR s.provider = ?3)",
        {firstDay, lastDay, tool}, [&](const Row& row) {
          const auto provider = ProviderID::fromRawValue(row.text(1));
          if (!provider) return;
          ActiveQuarters active;
          active.merge(row.blob(3));
          const int64_t start = row.integer(0) * kSlotsPerDay;
          for (int quarter = 0; quarter < kSlotsPerDay; ++quarter) {
            if (active.has(quarter)) buckets.addActive(start + quarter, *provider, row.integer(2));
          }
        });
    kept = keptDaysNear(filter);
  }
  return buckets.finish(kept);
}

LedgerRows LedgerReader::rows(const LedgerFilter& filter) {
  LedgerRows rows;
  rows.from = filter.from;
  rows.to = filter.to;
  const auto [first, last] = SlotSpan::of(filter);
  if (last < first) return rows;
  const Bind tool = filter.provider ? Bind{filter.provider->rawValue()} : Bind{nullptr};
  const Bind project = filter.project ? Bind{*filter.project} : Bind{nullptr};
  {
    // A session's slots lie between its first and last reply: the sessions that overlap the
    // span are all those the span's slots can name.
    db_.query(
        "SELECT id, provider, session_id, project, first_reply, last_reply FROM sessions "
        "WHERE last_reply >= ?1 AND first_reply < ?2 AND (?3 IS NULL OR provider = ?3) "
        "AND (?4 IS NULL OR project = ?4) ORDER BY id",
        {referenceSeconds(slotStart(first)), referenceSeconds(slotStart(last + 1)), tool, project},
        [&](const Row& row) {
          const auto provider = ProviderID::fromRawValue(row.text(1));
          if (!provider) return;
          rows.sessions.push_back(LedgerSession{
              row.integer(0), *provider, std::string(row.text(2)), std::string(row.text(3)),
              dateFromReferenceSeconds(row.real(4)), dateFromReferenceSeconds(row.real(5))});
        });
    db_.query(
        "SELECT slot, session, model, uncached, cache_read, w5m, w1h, output, reasoning, "
        "reported_usd FROM usage WHERE slot >= ?1 AND slot <= ?2 ORDER BY slot",
        {first, last}, [&](const Row& row) {
          const int64_t session = row.integer(1);
          if (!rows.session(session)) return;  // another tool's, or another project's
          rows.slots.push_back(
              LedgerSlot{row.integer(0), session, std::string(row.text(2)),
                         TokenCounts{row.integer(3), row.integer(4), row.integer(5), row.integer(6),
                                     row.integer(7), row.integer(8)},
                         row.isNull(9) ? std::nullopt : std::optional<double>(row.real(9))});
        });
    rows.keptDays = keptDaysNear(filter);
  }
  return rows;
}

}  // namespace brimlog
