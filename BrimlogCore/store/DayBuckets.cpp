#include "store/DayBuckets.hpp"

#include <algorithm>
#include <set>
#include <tuple>

namespace brimlog {
namespace {

uint64_t pack(uint64_t day, uint64_t tool, uint64_t model = 0) {
  return day << 40 | tool << 32 | model;
}

}  // namespace

DayBuckets::DayBuckets(const Calendar& calendar, Date from, Date to)
    : calendar_(calendar),
      from_(from),
      to_(to),
      firstSlot_(slotOf(from)),
      endSlot_(to > from ? slotOf(to - Seconds{1e-3}) + 1 : firstSlot_) {}

uint32_t DayBuckets::dayOf(int64_t slot) {
  if (slot < dayFirst_ || slot >= dayEnd_) {
    const Date start = slotStart(slot);
    std::string key = calendar_.dayKey(start);
    const auto [found, added] =
        dayNumbers_.try_emplace(key, static_cast<uint32_t>(dayKeys_.size()));
    if (added) dayKeys_.push_back(std::move(key));
    day_ = found->second;
    const Date dayStart = calendar_.startOfDay(start);
    dayFirst_ = slotOf(dayStart);
    dayEnd_ = dayFirst_ + 1;
    if (const auto next = calendar_.addingDays(1, dayStart)) dayEnd_ = slotOf(*next);
    if (slot < dayFirst_ || slot >= dayEnd_) dayFirst_ = slot, dayEnd_ = slot + 1;  // odd bounds
  }
  return day_;
}

void DayBuckets::addUsage(int64_t slot, ProviderID tool, std::string_view model,
                          const TokenCounts& tokens, std::optional<double> reportedUSD) {
  if (slot < firstSlot_ || slot >= endSlot_) return;
  // Slots of one model mostly come together: the last model's number is kept at hand.
  if (models_.empty() || models_[model_] != model) {
    auto found = modelNumbers_.find(std::string(model));
    if (found == modelNumbers_.end()) {
      found =
          modelNumbers_.emplace(std::string(model), static_cast<uint32_t>(models_.size())).first;
      models_.emplace_back(model);
    }
    model_ = found->second;
  }
  Sum& sum = usage_[pack(dayOf(slot), ProviderID::Value(tool), model_)];
  sum.tokens += tokens;
  if (reportedUSD) sum.reportedUSD = sum.reportedUSD.value_or(0) + *reportedUSD;
}

void DayBuckets::addActive(int64_t slot, ProviderID tool, int64_t session) {
  if (slot < firstSlot_ || slot >= endSlot_) return;
  active_.emplace_back(pack(dayOf(slot), ProviderID::Value(tool)), session);
}

LedgerDays DayBuckets::finish(std::span<const KeptDay> keptDays) {
  std::sort(active_.begin(), active_.end());
  active_.erase(std::unique(active_.begin(), active_.end()), active_.end());

  // The rest is per day, not per slot: ordered maps keyed by text are cheap here.
  std::map<std::tuple<std::string, ProviderID::Value, std::string>, Sum> byDay;
  for (const auto& [key, sum] : usage_) {
    byDay[{dayKeys_[key >> 40], static_cast<ProviderID::Value>((key >> 32) & 0xff),
           models_[key & 0xffffffff]}] = sum;
  }
  std::map<std::pair<std::string, ProviderID::Value>, int64_t> perDay;
  std::set<std::pair<ProviderID::Value, int64_t>> inSpan;
  for (const auto& [key, session] : active_) {
    const auto tool = static_cast<ProviderID::Value>((key >> 32) & 0xff);
    ++perDay[{dayKeys_[key >> 40], tool}];
    inSpan.insert({tool, session});
  }
  std::map<ProviderID::Value, int64_t> totals;
  for (const auto& [tool, session] : inSpan) ++totals[tool];

  // Kept totals stand for days of the span whose logs are gone: on a day where the slots of the
  // same tool hold anything, the slots are the truth.
  if (!keptDays.empty() && from_ < to_) {
    const std::string firstDay = calendar_.dayKey(from_);
    const std::string lastDay = calendar_.dayKey(to_ - Seconds{1});
    std::set<std::pair<std::string, ProviderID::Value>> covered;
    for (const auto& [key, count] : perDay) covered.insert(key);
    for (const KeptDay& kept : keptDays) {
      const auto tool = ProviderID::Value(kept.provider);
      if (kept.day < firstDay || kept.day > lastDay || covered.count({kept.day, tool})) continue;
      Sum& sum = byDay[{kept.day, tool, kept.model}];
      sum.tokens += kept.tokens;
      if (kept.reportedUSD) sum.reportedUSD = sum.reportedUSD.value_or(0) + *kept.reportedUSD;
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
