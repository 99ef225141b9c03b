#include "store/Ledger.hpp"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace brimlog {

const LedgerSession* LedgerRows::session(int64_t id) const {
  const auto found = std::lower_bound(
      sessions.begin(), sessions.end(), id,
      [](const LedgerSession& session, int64_t wanted) { return session.id < wanted; });
  return found != sessions.end() && found->id == id ? &*found : nullptr;
}

namespace {

// Slots come in ascending order, and a local day is a run of whole slots: the day of a slot is
// looked up in the zone once per day, not once per row. Days are numbered in the order met.
class SlotDays {
 public:
  explicit SlotDays(const Calendar& calendar) : calendar_(calendar) {}

  uint32_t operator()(int64_t slot) {
    if (slot < first_ || slot >= end_) {
      const Date start = slotStart(slot);
      const std::string key = calendar_.dayKey(start);
      const auto [found, added] = numbers_.try_emplace(key, static_cast<uint32_t>(keys_.size()));
      if (added) keys_.push_back(key);
      number_ = found->second;
      const Date dayStart = calendar_.startOfDay(start);
      first_ = slotOf(dayStart);
      end_ = first_ + 1;
      if (const auto next = calendar_.addingDays(1, dayStart)) end_ = slotOf(*next);
      if (slot < first_ || slot >= end_) first_ = slot, end_ = slot + 1;  // never an odd bound
    }
    return number_;
  }

  const std::string& key(uint32_t number) const { return keys_[number]; }

 private:
  const Calendar& calendar_;
  std::map<std::string, uint32_t> numbers_;
  std::vector<std::string> keys_;
  uint32_t number_ = 0;
  int64_t first_ = 1;
  int64_t end_ = 0;
};

struct Sum {
  TokenCounts tokens;
  std::optional<double> reportedUSD;
  bool kept = false;
};

void add(Sum& sum, const TokenCounts& tokens, std::optional<double> reportedUSD) {
  sum.tokens += tokens;
  if (reportedUSD) sum.reportedUSD = sum.reportedUSD.value_or(0) + *reportedUSD;
}

}  // namespace

LedgerDays LedgerDays::of(const LedgerRows& rows, const Calendar& calendar) {
  // One pass over the slots with small integer keys: day numbers, model numbers, session ids.
  SlotDays dayOf{calendar};
  std::unordered_map<std::string_view, uint32_t> modelNumbers;
  std::vector<std::string_view> models;
  std::unordered_map<uint64_t, Sum> usage;           // (day, tool, model) packed
  std::vector<std::pair<uint64_t, int64_t>> active;  // ((day, tool) packed, session)
  active.reserve(rows.slots.size());
  const auto pack = [](uint64_t day, uint64_t tool, uint64_t model = 0) {
    return day << 40 | tool << 32 | model;
  };
  for (const LedgerSlot& row : rows.slots) {
    const LedgerSession* session = rows.session(row.session);
    if (!session) continue;
    const uint32_t day = dayOf(row.slot);
    const auto [model, added] =
        modelNumbers.try_emplace(row.model, static_cast<uint32_t>(models.size()));
    if (added) models.push_back(row.model);
    const uint64_t tool = ProviderID::Value(session->provider);
    add(usage[pack(day, tool, model->second)], row.tokens, row.reportedUSD);
    active.emplace_back(pack(day, tool), row.session);
  }
  std::sort(active.begin(), active.end());
  active.erase(std::unique(active.begin(), active.end()), active.end());

  // The rest is per day, not per slot: ordered maps keyed by text are cheap here.
  std::map<std::tuple<std::string, ProviderID::Value, std::string>, Sum> byDay;
  for (const auto& [key, sum] : usage) {
    byDay[{dayOf.key(static_cast<uint32_t>(key >> 40)),
           static_cast<ProviderID::Value>((key >> 32) & 0xff),
           std::string(models[key & 0xffffffff])}] = sum;
  }
  std::map<std::pair<std::string, ProviderID::Value>, int64_t> perDay;
  std::set<std::pair<ProviderID::Value, int64_t>> inSpan;
  for (const auto& [key, session] : active) {
    const auto tool = static_cast<ProviderID::Value>((key >> 32) & 0xff);
    ++perDay[{dayOf.key(static_cast<uint32_t>(key >> 40)), tool}];
    inSpan.insert({tool, session});
  }
  std::map<ProviderID::Value, int64_t> totals;
  for (const auto& [tool, session] : inSpan) ++totals[tool];

  // Kept totals stand for days of the span whose logs are gone: on a day where the slots of the
  // same tool hold anything, the slots are the truth.
  if (!rows.keptDays.empty() && rows.from < rows.to) {
    const std::string firstDay = calendar.dayKey(rows.from);
    const std::string lastDay = calendar.dayKey(rows.to - Seconds{1});
    std::set<std::pair<std::string, ProviderID::Value>> covered;
    for (const auto& [key, count] : perDay) covered.insert(key);
    for (const KeptDay& kept : rows.keptDays) {
      const auto tool = ProviderID::Value(kept.provider);
      if (kept.day < firstDay || kept.day > lastDay || covered.count({kept.day, tool})) continue;
      Sum& sum = byDay[{kept.day, tool, kept.model}];
      add(sum, kept.tokens, kept.reportedUSD);
      sum.kept = true;
      perDay[{kept.day, tool}] += kept.sessions;
      totals[tool] += kept.sessions;
    }
  }

  LedgerDays days;
  days.usage.reserve(byDay.size());
  for (auto& [key, sum] : byDay) {
    const auto& [day, tool, model] = key;
    days.usage.push_back(
        DayUsage{ProviderID(tool), model, day, sum.tokens, sum.reportedUSD, sum.kept});
  }
  for (const auto& [key, count] : perDay) {
    days.sessions.push_back(DaySessions{ProviderID(key.second), key.first, count});
  }
  for (const auto& [tool, count] : totals) {
    days.sessionTotals.push_back(DaySessions{ProviderID(tool), "", count});
  }
  return days;
}

}  // namespace brimlog
