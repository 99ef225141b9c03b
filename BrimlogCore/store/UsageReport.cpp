#include "store/UsageReport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

namespace brimlog {
namespace {

// The tokens and reported costs of one model that are priced together.
struct Bundle {
  TokenCounts tokens;
  std::optional<double> reportedUSD;

  void add(const LedgerSlot& slot) {
    tokens += slot.tokens;
    if (slot.reportedUSD) reportedUSD = reportedUSD.value_or(0) + *slot.reportedUSD;
  }
};

// A span's figures as its local days have them: every (tool, model, day) bundle priced on its
// own, the sessions active anywhere in it counted once. Nothing when it holds no data.
std::optional<UsageReport::Period> sumOfDays(const LedgerDays& days, const PriceTable& prices) {
  if (days.usage.empty() && days.sessionTotals.empty()) return std::nullopt;
  UsageReport::Period period;
  for (const DayUsage& usage : days.usage) {
    period.tokens = saturatingAdd(period.tokens, usage.tokens.processed());
    period.cost.add(prices.cost(usage.model, usage.tokens, usage.reportedUSD));
  }
  for (const DaySessions& tool : days.sessionTotals) period.sessions += tool.count;
  return period;
}

}  // namespace

void UsageReport::Cost::add(const PricedCost& priced) {
  if (!priced.usd) {
    unknown = true;
    return;
  }
  usd = usd.value_or(0) + *priced.usd;
  approximate = approximate || priced.approximate;
}

UsageReport::Cost& UsageReport::Cost::operator+=(const Cost& other) {
  if (other.usd) usd = usd.value_or(0) + *other.usd;
  approximate = approximate || other.approximate;
  unknown = unknown || other.unknown;
  return *this;
}

std::string UsageReport::periodOf(std::string_view dayKey, Period::Kind kind) {
  const std::optional<CalendarDay> day = CalendarDay::fromKey(dayKey);
  if (!day) return std::string(dayKey);
  if (kind == Period::month) return fmt::format("{:04d}-{:02d}", day->year, day->month);
  // Weeks start on Monday, whatever the zone: the week of a local day is a matter of dates.
  using namespace std::chrono;
  const sys_days date{year{day->year} / month{static_cast<unsigned>(day->month)} /
                      std::chrono::day{static_cast<unsigned>(day->day)}};
  const year_month_day monday{date - (weekday{date} - Monday)};
  return fmt::format("{:04d}-{:02d}-{:02d}", static_cast<int>(monday.year()),
                     static_cast<unsigned>(monday.month()), static_cast<unsigned>(monday.day()));
}

std::vector<UsageReport::Period> UsageReport::periods(Date from, Date to, Period::Kind kind,
                                                      const Calendar& calendar,
                                                      const PriceTable& prices,
                                                      const DaysOf& daysOf) {
  // Where each period of the span begins, found by walking its local days (a day across a
  // daylight-saving change is not 24 hours long).
  std::vector<std::pair<std::string, Date>> starts;
  for (Date day = calendar.startOfDay(from); day < to;) {
    std::string key = periodOf(calendar.dayKey(day), kind);
    if (starts.empty() || starts.back().first != key) {
      starts.emplace_back(std::move(key), std::max(day, from));
    }
    const std::optional<Date> next = calendar.addingDays(1, day);
    if (!next || calendar.startOfDay(*next) <= day) break;
    day = calendar.startOfDay(*next);
  }

  std::vector<Period> periods;
  for (size_t i = 0; i < starts.size(); ++i) {
    const Date end = i + 1 < starts.size() ? starts[i + 1].second : to;
    if (std::optional<Period> period = sumOfDays(daysOf(starts[i].second, end), prices)) {
      period->key = starts[i].first;
      periods.push_back(std::move(*period));
    }
  }
  return periods;
}

UsageReport::Period UsageReport::total(const LedgerDays& days, const PriceTable& prices) {
  return sumOfDays(days, prices).value_or(Period{});
}

std::vector<UsageReport::Session> UsageReport::sessions(const LedgerRows& rows,
                                                        const PriceTable& prices) {
  std::map<int64_t, std::map<std::string, Bundle>> bundles;  // by session, then model
  for (const LedgerSlot& slot : rows.slots) {
    if (rows.session(slot.session)) bundles[slot.session][slot.model].add(slot);
  }
  std::vector<Session> sessions;
  for (const auto& [id, models] : bundles) {
    const LedgerSession& session = *rows.session(id);
    Session row;
    row.provider = session.provider;
    row.sessionID = session.sessionID;
    row.project = session.project;
    row.firstReply = session.firstReply;
    row.lastReply = session.lastReply;
    for (const auto& [model, bundle] : models) {
      row.models.push_back(model);
      row.tokens = saturatingAdd(row.tokens, bundle.tokens.processed());
      row.cost.add(prices.cost(model, bundle.tokens, bundle.reportedUSD));
    }
    sessions.push_back(std::move(row));
  }
  std::sort(sessions.begin(), sessions.end(), [](const Session& a, const Session& b) {
    return std::tie(b.lastReply, b.firstReply, a.provider, a.sessionID) <
           std::tie(a.lastReply, a.firstReply, b.provider, b.sessionID);
  });
  return sessions;
}

std::vector<UsageReport::Project> UsageReport::projects(const std::vector<Session>& sessions) {
  std::map<std::string, Project> byName;
  std::map<std::string, std::set<ProviderID::Value>> tools;
  for (const Session& session : sessions) {
    Project& project = byName[session.project];
    if (project.sessions == 0 || session.lastReply > project.lastActive) {
      project.lastActive = session.lastReply;
    }
    ++project.sessions;
    project.tokens = saturatingAdd(project.tokens, session.tokens);
    project.cost += session.cost;
    tools[session.project].insert(session.provider);
  }
  std::vector<Project> projects;
  for (auto& [name, project] : byName) {
    project.project = name;
    for (const ProviderID::Value tool : tools[name]) project.tools.push_back(tool);
    projects.push_back(std::move(project));
  }
  std::stable_sort(projects.begin(), projects.end(), [](const Project& a, const Project& b) {
    if (a.cost.usd.has_value() != b.cost.usd.has_value()) return a.cost.usd.has_value();
    if (a.cost.usd && *a.cost.usd != *b.cost.usd) return *a.cost.usd > *b.cost.usd;
    return a.tokens > b.tokens;
  });
  return projects;
}

std::vector<UsageReport::Block> UsageReport::blocks(const LedgerRows& rows,
                                                    const PriceTable& prices, Date now) {
  struct Open {
    Block block;
    std::map<std::pair<ProviderID::Value, std::string>, Bundle> bundles;
    std::set<int64_t> sessions;
  };
  std::vector<Block> blocks;
  auto close = [&](Open& open) {
    Block& block = open.block;
    for (const auto& [key, bundle] : open.bundles) {
      block.tokens = saturatingAdd(block.tokens, bundle.tokens.processed());
      block.cost.add(prices.cost(key.second, bundle.tokens, bundle.reportedUSD));
      if (block.models.empty() || block.models.back() != key.second) {
        block.models.push_back(key.second);
      }
    }
    std::sort(block.models.begin(), block.models.end());
    block.models.erase(std::unique(block.models.begin(), block.models.end()), block.models.end());
    block.sessions = static_cast<int64_t>(open.sessions.size());
    if (block.start <= now && now < block.end) {
      // A block just begun has spent over at least one slot, so its rate is not inflated by a
      // tiny divisor.
      const double hours =
          std::max((now - block.start).count(), static_cast<double>(kSlotSeconds)) / 3600;
      Burn burn;
      burn.usdPerHour = block.cost.usd.value_or(0) / hours;
      burn.tokensPerHour = static_cast<double>(block.tokens) / hours;
      burn.projectedUSD =
          block.cost.usd.value_or(0) + burn.usdPerHour * (block.end - now).count() / 3600;
      block.burn = burn;
    }
    blocks.push_back(std::move(block));
  };

  std::optional<Open> open;
  for (const LedgerSlot& slot : rows.slots) {
    const LedgerSession* session = rows.session(slot.session);
    if (!session) continue;
    const Date start = slotStart(slot.slot);
    if (!open || start >= open->block.end) {
      if (open) close(*open);
      open.emplace();
      open->block.start = dateFromUnixSeconds(std::floor(unixSeconds(start) / 3600) * 3600);
      open->block.end = open->block.start + Seconds{kBlockSeconds};
    }
    open->bundles[{ProviderID::Value(session->provider), slot.model}].add(slot);
    open->sessions.insert(slot.session);
  }
  if (open) close(*open);
  return blocks;
}

}  // namespace brimlog
