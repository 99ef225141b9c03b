#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/ProviderID.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "store/Ledger.hpp"
#include "store/PriceTable.hpp"

namespace brimlog {

/// The reports computed from the ledger's rows of a span (`LedgerRows`): usage per week or month
/// of a calendar, per session, per project, and per five-hour block of activity. Pure functions
/// of the rows, the calendar, the prices and `now`; the store reads the rows, the caller shows
/// the result.
///
/// Money is priced bundle by bundle, as the usage summary prices a (tool, model, day) bundle:
/// weeks and months price the (tool, model, local day) bundles of their days and add them up, so
/// a week is the sum of its days to the cent. "Tokens" as one number is
/// `TokenCounts::processed()`, as everywhere.
///
///     auto weeks = UsageReport::periods(from, to, UsageReport::Period::week, calendar, prices,
///                                       [&](Date a, Date b) { return store.days({a, b}, calendar);
///                                       });
///     auto blocks = UsageReport::blocks(store.ledger({from, to}), prices, now);
struct UsageReport {
  /// The cost of some usage at list prices, with the marks a report shows.
  struct Cost {
    /// Absent when none of the usage could be priced.
    std::optional<double> usd;
    /// Some of it is priced at a borrowed price or at the cost the tool reported.
    bool approximate = false;
    /// Some usage had neither a price nor a reported cost: `usd` is too low.
    bool unknown = false;

    void add(const PricedCost& priced);
    Cost& operator+=(const Cost& other);
    bool operator==(const Cost&) const = default;
  };

  /// Usage in one week (starting on Monday) or one month of the calendar.
  struct Period {
    enum Kind { week, month };
    /// The week's Monday ("2026-11-23") or the month ("2026-11"); empty for a whole span.
    std::string key;
    /// Sessions active in the period: those with a reply in it, each once.
    int64_t sessions = 0;
    int64_t tokens = 0;
    Cost cost;
    bool operator==(const Period&) const = default;
  };

  /// One session's usage in the span.
  struct Session {
    ProviderID provider = ProviderID::claude;
    std::string sessionID;
    std::string project;  // empty when the log names none
    Date firstReply;      // the session's own first and last reply, also outside the span
    Date lastReply;
    std::vector<std::string> models;  // by name
    int64_t tokens = 0;
    Cost cost;
    bool operator==(const Session&) const = default;
  };

  /// One project's usage in the span: the sessions that ran in its folder.
  struct Project {
    std::string project;            // empty for sessions whose log names no folder
    std::vector<ProviderID> tools;  // in the tools' order
    int64_t sessions = 0;
    int64_t tokens = 0;
    Cost cost;
    Date lastActive;  // the last reply of its sessions
    bool operator==(const Project&) const = default;
  };

  /// How fast the block that holds `now` spends, and where that leads by its end.
  struct Burn {
    double usdPerHour = 0;
    double tokensPerHour = 0;
    double projectedUSD = 0;  // the cost so far plus the rate over the time left
    bool operator==(const Burn&) const = default;
  };

  /// A five-hour window of activity (see `blocks`).
  struct Block {
    Date start;
    Date end;
    int64_t sessions = 0;
    std::vector<std::string> models;  // by name
    int64_t tokens = 0;
    Cost cost;
    /// Present for the block that holds `now`.
    std::optional<Burn> burn;
    bool operator==(const Block&) const = default;
  };

  static constexpr double kBlockSeconds = 5 * 3600;

  /// The local days' figures of the span [from, to) of time: `UsageStore::days`, or
  /// `LedgerDays::of` the ledger's rows of that span.
  using DaysOf = std::function<LedgerDays(Date from, Date to)>;

  /// The weeks or months of the calendar that hold usage or sessions in [from, to), oldest
  /// first, each summed from `daysOf` its span. The first and last may be cut by the span's ends.
  static std::vector<Period> periods(Date from, Date to, Period::Kind kind,
                                     const Calendar& calendar, const PriceTable& prices,
                                     const DaysOf& daysOf);

  /// The days of a whole span as one period (empty key): the totals of `periods`, sessions
  /// counted once.
  static Period total(const LedgerDays& days, const PriceTable& prices);

  /// The key of the period that holds the day "YYYY-MM-DD": its week's Monday, or "YYYY-MM".
  static std::string periodOf(std::string_view dayKey, Period::Kind kind);

  /// Every session with a slot in the span, the latest last reply first. Kept day totals have no
  /// sessions of their own and are not shown here.
  static std::vector<Session> sessions(const LedgerRows& rows, const PriceTable& prices);

  /// The sessions grouped by project, highest cost first.
  static std::vector<Project> projects(const std::vector<Session>& sessions);

  /// The five-hour blocks of activity, oldest first. Walking the slots in time order, a block
  /// starts at the first active slot's start rounded down to the whole UTC hour and lasts five
  /// hours; the next slot at or after its end starts the next block. The block that holds `now`
  /// gets its burn rate: cost and tokens per hour since its start (over at least one slot's
  /// length), and the cost projected to its end at that rate.
  static std::vector<Block> blocks(const LedgerRows& rows, const PriceTable& prices, Date now);
};

}  // namespace brimlog
