#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "model/UsageEvent.hpp"
#include "platform/Calendar.hpp"
#include "store/SQLiteDatabase.hpp"
#include "store/StoreSQL.hpp"

// The write side of an ingest batch, used by UsageStore::ingest inside its transaction.

namespace brimlog {

// Day keys of consecutive events mostly repeat: remember the last local day's bounds so that an
// event inside them needs no time-zone arithmetic.
class DayKeys {
 public:
  explicit DayKeys(const Calendar& calendar) : calendar_(calendar) {}

  const std::string& operator()(Date date) {
    if (!(date >= start_ && date < end_)) {
      key_ = calendar_.dayKey(date);
      start_ = calendar_.startOfDay(date);
      end_ = calendar_.addingDays(1, start_).value_or(start_);
      if (!(date >= start_ && date < end_)) end_ = start_;  // never cache an odd bound
    }
    return key_;
  }

 private:
  const Calendar& calendar_;
  std::string key_;
  Date start_{};
  Date end_{};
};

// The new events of a batch, summed per daily row and per session before they are written: one
// upsert per (provider, model, day) and per session instead of two per event. The rows end up
// exactly as if every event had been upserted on its own: integer sums do not depend on their
// order, a session keeps its earliest day either way, and rows are created in the order their
// first events came. Reported costs are floating-point sums, whose last bits depend on the order
// of addition, so an event that reports a cost is written on its own, in sequence, after
// everything summed before it.
class BatchTotals {
 public:
  explicit BatchTotals(SQLiteDatabase& db)
      : db_(db),
        upsertDaily_(db.prepared(sql::kDailyUpsert)),
        upsertSession_(db.prepared(sql::kSessionUpsert)) {}

  void add(const UsageEvent& event, const std::string& day) {
    const std::string_view provider = event.provider.rawValue();
    if (event.reportedCostUSD) {
      flush();
      writeDaily(provider, event.model, day, event.tokens, *event.reportedCostUSD);
    } else {
      std::string key = fmt::format("{}\x1f{}\x1f{}", provider, event.model, day);
      const auto [found, isNew] = dailyIndex_.try_emplace(std::move(key), daily_.size());
      if (isNew) daily_.push_back({event.provider, event.model, day, TokenCounts{}});
      daily_[found->second].tokens += event.tokens;
    }
    std::string sessionKey = fmt::format("{}\x1f{}", provider, event.sessionID);
    const auto [found, isNew] = sessionIndex_.try_emplace(std::move(sessionKey), sessions_.size());
    if (isNew) {
      sessions_.push_back({event.provider, event.sessionID, day});
    } else if (day < sessions_[found->second].day) {
      sessions_[found->second].day = day;
    }
  }

  // Writes everything summed so far, in the order of first appearance.
  void flush() {
    for (const Daily& row : daily_) {
      writeDaily(row.provider.rawValue(), row.model, row.day, row.tokens, std::nullopt);
    }
    for (const Session& session : sessions_) {
      db_.run(upsertSession_, {session.provider.rawValue(), session.id, session.day});
    }
    daily_.clear();
    dailyIndex_.clear();
    sessions_.clear();
    sessionIndex_.clear();
  }

 private:
  struct Daily {
    ProviderID provider;
    std::string model;
    std::string day;
    TokenCounts tokens;
  };
  struct Session {
    ProviderID provider;
    std::string id;
    std::string day;
  };

  void writeDaily(std::string_view provider, const std::string& model, const std::string& day,
                  const TokenCounts& t, std::optional<double> reported) {
    db_.run(upsertDaily_,
            {provider, model, day, t.uncachedInput, t.cacheRead, t.cacheWrite5m, t.cacheWrite1h,
             t.output, t.reasoning, reported ? Bind{*reported} : Bind{nullptr}});
  }

  SQLiteDatabase& db_;
  PreparedStatement upsertDaily_;
  PreparedStatement upsertSession_;
  std::vector<Daily> daily_;
  std::unordered_map<std::string, size_t> dailyIndex_;
  std::vector<Session> sessions_;
  std::unordered_map<std::string, size_t> sessionIndex_;
};

}  // namespace brimlog
