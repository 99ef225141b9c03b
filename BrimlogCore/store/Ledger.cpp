#include "store/Ledger.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include "store/DayBuckets.hpp"

namespace brimlog {

const LedgerSession* LedgerRows::session(int64_t id) const {
  const auto found = std::lower_bound(
      sessions.begin(), sessions.end(), id,
      [](const LedgerSession& session, int64_t wanted) { return session.id < wanted; });
  return found != sessions.end() && found->id == id ? &*found : nullptr;
}

std::pair<std::string, std::string> keptDayKeysNear(const LedgerFilter& filter) {
  const Calendar utc = Calendar::utc();
  return {utc.dayKey(filter.from - Seconds{86400}), utc.dayKey(filter.to + Seconds{86400})};
}

LedgerDays LedgerDays::of(const LedgerRows& rows, const Calendar& calendar) {
  DayBuckets buckets{calendar, rows.from, rows.to};
  for (const LedgerSlot& row : rows.slots) {
    const LedgerSession* session = rows.session(row.session);
    if (!session) continue;
    buckets.addUsage(row.slot, session->provider, row.model, row.tokens, row.reportedUSD);
    buckets.addActive(row.slot, session->provider, row.session);
  }
  return buckets.finish(rows.keptDays);
}

}  // namespace brimlog
