#include "store/Ledger.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace brimlog {

const LedgerSession* LedgerRows::session(int64_t id) const {
  const auto found = std::lower_bound(
      sessions.begin(), sessions.end(), id,
      [](const LedgerSession& session, int64_t wanted) { return session.id < wanted; });
  return found != sessions.end() && found->id == id ? &*found : nullptr;
}

namespace {

// Slots come in ascending order, and a local day is a run of whole slots: the day of a slot is
// looked up in the zone once per day, not once per row.
class SlotDays {
 public:
  explicit SlotDays(const Calendar& calendar) : calendar_(calendar) {}

  const std::string& operator()(int64_t slot) {
    if (slot < first_ || slot >= end_) {
      const Date start = slotStart(slot);
      key_ = calendar_.dayKey(start);
      const Date dayStart = calendar_.startOfDay(start);
      first_ = slotOf(dayStart);
      end_ = first_ + 1;
      if (const auto next = calendar_.addingDays(1, dayStart)) end_ = slotOf(*next);
      if (slot < first_ || slot >= end_) first_ = end_ = slot;  // never trust an odd bound
      if (first_ == end_) end_ = slot + 1;
    }
    return key_;
  }

 private:
  const Calendar& calendar_;
  std::string key_;
  int64_t first_ = 1;
  int64_t end_ = 0;
};

struct Sum {
  TokenCounts tokens;
  std::optional<double> reportedUSD;
  bool kept = false;
};

}  // namespace

LedgerDays LedgerDays::of(const LedgerRows& rows, const Calendar& calendar) {
  // (day, tool, model) and (day, tool, session) in order, so the lists come out sorted.
  std::map<std::tuple<std::string, ProviderID::Value, std::string>, Sum> usage;
  std::set<std::tuple<std::string, ProviderID::Value, int64_t>> active;
  std::set<std::pair<ProviderID::Value, int64_t>> inSpan;
  std::set<std::pair<std::string, ProviderID::Value>> covered;
  SlotDays dayOf{calendar};
  for (const LedgerSlot& row : rows.slots) {
    const LedgerSession* session = rows.session(row.session);
    if (!session) continue;
    const std::string& day = dayOf(row.slot);
    const ProviderID::Value tool = ProviderID::Value(session->provider);
    Sum& sum = usage[{day, tool, row.model}];
    sum.tokens += row.tokens;
    if (row.reportedUSD) sum.reportedUSD = sum.reportedUSD.value_or(0) + *row.reportedUSD;
    active.insert({day, tool, row.session});
    inSpan.insert({tool, row.session});
    covered.insert({day, tool});
  }

  // Kept totals stand for days of the span whose logs are gone: on a day where the slots of the
  // same tool hold anything, the slots are the truth.
  std::map<std::pair<std::string, ProviderID::Value>, int64_t> keptSessions;
  std::map<ProviderID::Value, int64_t> keptSessionTotals;
  if (!rows.keptDays.empty() && rows.from < rows.to) {
    const std::string firstDay = calendar.dayKey(rows.from);
    const std::string lastDay = calendar.dayKey(rows.to - Seconds{1});
    for (const KeptDay& kept : rows.keptDays) {
      if (kept.day < firstDay || kept.day > lastDay) continue;
      if (covered.count({kept.day, ProviderID::Value(kept.provider)})) continue;
      Sum& sum = usage[{kept.day, ProviderID::Value(kept.provider), kept.model}];
      sum.tokens += kept.tokens;
      if (kept.reportedUSD) sum.reportedUSD = sum.reportedUSD.value_or(0) + *kept.reportedUSD;
      sum.kept = true;
      keptSessions[{kept.day, ProviderID::Value(kept.provider)}] += kept.sessions;
      keptSessionTotals[ProviderID::Value(kept.provider)] += kept.sessions;
    }
  }

  LedgerDays days;
  days.usage.reserve(usage.size());
  for (auto& [key, sum] : usage) {
    const auto& [day, tool, model] = key;
    days.usage.push_back(
        DayUsage{ProviderID(tool), model, day, sum.tokens, sum.reportedUSD, sum.kept});
  }
  std::map<std::pair<std::string, ProviderID::Value>, int64_t> perDay = std::move(keptSessions);
  for (const auto& [day, tool, session] : active) ++perDay[{day, tool}];
  for (const auto& [key, count] : perDay) {
    days.sessions.push_back(DaySessions{ProviderID(key.second), key.first, count});
  }
  std::map<ProviderID::Value, int64_t> totals = std::move(keptSessionTotals);
  for (const auto& [tool, session] : inSpan) ++totals[tool];
  for (const auto& [tool, count] : totals) {
    days.sessionTotals.push_back(DaySessions{ProviderID(tool), "", count});
  }
  return days;
}

}  // namespace brimlog
