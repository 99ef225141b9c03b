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
      const size_t row = indexOf(dailyIndex_, daily_.size(), provider, event.model, day);
      if (row == daily_.size()) daily_.push_back({event.provider, event.model, day, TokenCounts{}});
      daily_[row].tokens += event.tokens;
    }
    const size_t session = indexOf(sessionIndex_, sessions_.size(), provider, event.sessionID, {});
    if (session == sessions_.size()) {
      sessions_.push_back({event.provider, event.sessionID, day});
    } else if (day < sessions_[session].day) {
      sessions_[session].day = day;
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

  // The row of (provider, name, day) in `index`, or `next` after adding it there. The lookup key
  // is built in one reused buffer: most events land in a row that is already there.
  size_t indexOf(std::unordered_map<std::string, size_t>& index, size_t next,
                 std::string_view provider, std::string_view name, std::string_view day) {
    key_.assign(provider);
    key_ += '\x1f';
    key_ += name;
    key_ += '\x1f';
    key_ += day;
    if (const auto found = index.find(key_); found != index.end()) return found->second;
    index.emplace(key_, next);
    return next;
  }

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
  std::string key_;
};

}  // namespace brimlog
