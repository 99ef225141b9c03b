#pragma once

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "model/ProviderID.hpp"
#include "model/TokenCounts.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// The ledger keeps usage per quarter hour of UTC time, a "slot". Every time zone in use today is
/// offset from UTC by a whole number of quarter hours, so a slot never straddles local midnight in
/// any zone: a day, a week or a month in any zone is exactly a run of whole slots, and reports
/// can be computed in the zone asked for at the moment they are asked for.
inline constexpr int64_t kSlotSeconds = 900;
/// Slots in a UTC day.
inline constexpr int64_t kSlotsPerDay = 86400 / kSlotSeconds;

/// The slot that holds `date`: quarter hours since 1970-01-01T00:00:00Z, rounded down.
inline int64_t slotOf(Date date) {
  return static_cast<int64_t>(std::floor(unixSeconds(date) / static_cast<double>(kSlotSeconds)));
}

/// The UTC day that holds `slot`: days since 1970-01-01, rounded down.
inline int64_t dayOfSlot(int64_t slot) {
  return slot / kSlotsPerDay - (slot % kSlotsPerDay < 0 ? 1 : 0);
}

/// The first instant of `slot`.
inline Date slotStart(int64_t slot) {
  return dateFromUnixSeconds(static_cast<double>(slot * kSlotSeconds));
}

/// One session as the ledger keeps it, for as long as its usage is kept: the tools delete their
/// own transcripts, so what is known of a session is stored when its replies are read.
struct LedgerSession {
  int64_t id = 0;  // the ledger's own number for the session, used by `LedgerSlot::session`
  ProviderID provider = ProviderID::claude;
  std::string sessionID;  // the tool's id; empty for replies logged without one
  std::string project;    // the working folder the tool ran in; empty when the log names none
  Date firstReply;
  Date lastReply;

  bool operator==(const LedgerSession&) const = default;
};

/// The usage of one session and model in one slot.
struct LedgerSlot {
  int64_t slot = 0;
  int64_t session = 0;  // `LedgerSession::id`
  std::string model;
  TokenCounts tokens;
  /// The sum of the costs the tool reported for these replies; absent when none reported one.
  std::optional<double> reportedUSD;

  bool operator==(const LedgerSlot&) const = default;
};

/// A day total kept from a database written before the ledger had slots, for a day whose logs
/// were gone when the ledger was rebuilt from them. Its day is a calendar day of the zone the
/// older program ran in, and it has no sessions of its own beyond a count.
struct KeptDay {
  ProviderID provider = ProviderID::claude;
  std::string model;
  std::string day;  // "YYYY-MM-DD"
  TokenCounts tokens;
  std::optional<double> reportedUSD;
  /// Sessions that began on that day (the older program counted a session on its first day).
  int64_t sessions = 0;

  bool operator==(const KeptDay&) const = default;
};

/// What the ledger holds for a span of time, as `UsageStore::ledger` reads it: every slot row in
/// the span, the sessions those rows belong to, and the kept day totals of days near the span
/// (their zone is not known, so which of them fall in a report's days is the report's to decide,
/// through `LedgerDays`).
struct LedgerRows {
  Date from;  // the span read: slots starting in [from, to)
  Date to;
  std::vector<LedgerSession> sessions;  // by `id`, ascending
  std::vector<LedgerSlot> slots;        // by slot, ascending
  std::vector<KeptDay> keptDays;        // by day, ascending

  /// The session of a slot row; nullptr for an id that is not in `sessions`.
  const LedgerSession* session(int64_t id) const;
};

/// Which rows `UsageStore::ledger` reads.
struct LedgerFilter {
  /// The span of time: slots whose start lies in [from, to).
  Date from;
  Date to;
  /// Only this tool's rows, when given.
  std::optional<ProviderID> provider;
  /// Only sessions of this project, when given (compared as stored).
  std::optional<std::string> project;
};

/// The slots a filter's span covers, `first` to `last` both included; none (`last < first`) for
/// an empty span. The last is the slot that holds the span's last instant.
struct SlotSpan {
  int64_t first = 0;
  int64_t last = -1;

  static SlotSpan of(const LedgerFilter& filter) {
    const int64_t first = slotOf(filter.from);
    return {first, filter.to > filter.from ? slotOf(filter.to - Seconds{1e-3}) : first - 1};
  }
};

/// The day keys, first and last, of the kept day totals that may fall in a filter's span: their
/// zone is not known, so every day the span touches in any zone (a day either side of its UTC
/// days); which of them count is for a report's calendar to decide (`LedgerDays`).
std::pair<std::string, std::string> keptDayKeysNear(const LedgerFilter& filter);

/// One tool's and model's usage on one local day.
struct DayUsage {
  ProviderID provider = ProviderID::claude;
  std::string model;
  std::string day;  // "YYYY-MM-DD" in the calendar of the `LedgerDays`
  TokenCounts tokens;
  std::optional<double> reportedUSD;
  /// The figures are a kept day total, not a sum of slots.
  bool kept = false;

  bool operator==(const DayUsage&) const = default;
};

/// How many of one tool's sessions were active on one local day (had a reply that day).
struct DaySessions {
  ProviderID provider = ProviderID::claude;
  std::string day;
  int64_t count = 0;

  bool operator==(const DaySessions&) const = default;
};

/// The ledger's rows in the local days of one calendar: what every per-day figure comes from.
/// Slots are bucketed into the days of `calendar` that lie in the rows' span; a kept day total
/// is added for a day of the span on which no slot row of its tool lies (the tool's logs of that
/// day are gone), and dropped otherwise.
///
///     LedgerDays days = LedgerDays::of(store.ledger(filter), *Calendar::named("Asia/Kolkata"));
struct LedgerDays {
  std::vector<DayUsage> usage;        // by day, then tool, then model
  std::vector<DaySessions> sessions;  // by day, then tool
  /// Sessions active anywhere in the span, per tool (a session active on two days counts once).
  std::vector<DaySessions> sessionTotals;  // `day` empty

  static LedgerDays of(const LedgerRows& rows, const Calendar& calendar);

  bool operator==(const LedgerDays&) const = default;
};

}  // namespace brimlog
