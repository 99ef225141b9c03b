#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.hpp"

namespace date {
class time_zone;
}

namespace brimlog {

/// The local calendar date of an instant.
struct CalendarDay {
  int year = 0;
  int month = 0;  // 1 to 12
  int day = 0;    // 1 to 31
  bool operator==(const CalendarDay&) const = default;

  /// The day a day key names: "2026-11-24", exactly four, two and two digits, a date that
  /// exists (no "2026-02-30"). Nothing for any other text.
  static std::optional<CalendarDay> fromKey(std::string_view key);
};

/// A Gregorian calendar in one time zone of the system's tz database.
///
/// Days are local days: they start at local midnight, or at the first instant after midnight
/// where a daylight-saving change skips midnight itself (America/Sao_Paulo on 2018-11-04 starts
/// at 01:00). A calendar is a small value, cheap to copy and safe to share between threads.
///
///     const Calendar ny = *Calendar::named("America/New_York");
///     Date today = ny.startOfDay(now);
///     std::optional<Date> tomorrow = ny.addingDays(1, today);  // midnight again, even in March
class Calendar {
 public:
  /// The local zone: the zone that `tz` (the value of the TZ variable, as the host read it)
  /// names when it is given and known, otherwise the system's /etc/localtime, and UTC when
  /// neither can be read. An empty `tz` means UTC, as it does to the C library.
  static Calendar local(std::optional<std::string_view> tz);

  /// The process's calendar: the one the host installed with `setCurrent`, else `local` of the
  /// system's zone. Rules that speak of "the current calendar" use this one.
  static Calendar current();

  /// Installs the process's calendar once the host has resolved its settings; safe from any
  /// thread.
  static void setCurrent(Calendar calendar);

  /// A calendar for an IANA zone name such as "Europe/Paris" or "UTC"; nothing for an unknown name.
  static std::optional<Calendar> named(std::string_view zoneName);

  /// The calendar in UTC. The tz database, which takes a few milliseconds to load, is not
  /// touched until the calendar is first asked about a day.
  static Calendar utc();

  /// The zone's IANA name.
  std::string_view zoneName() const;

  /// The first instant of the local day that holds `date`.
  Date startOfDay(Date date) const;

  /// The first instant of the local day `day`; nothing for a day that does not exist.
  std::optional<Date> startOfDay(const CalendarDay& day) const;

  /// The instant `days` local days after `date` at the same local time of day; a local time that
  /// the target day skips moves forward by the length of the gap, and one it repeats takes the
  /// earlier instant. Nothing when the result falls outside the calendar's range of years.
  std::optional<Date> addingDays(int days, Date date) const;

  /// The local year, month and day of `date`.
  CalendarDay day(Date date) const;

  /// The local wall-clock time of `date` in whole minutes since midnight, 0 to 1439 (after a
  /// change of the clocks, what the clock shows, not the time elapsed since the day began).
  int minuteOfDay(Date date) const;

  /// The local day of `date` as "YYYY-MM-DD" (years below 1000 zero-padded): the key by which
  /// the store and the reports name a day. Such keys compare chronologically as text.
  std::string dayKey(Date date) const;

  /// Whether `date` falls on a Saturday or Sunday, locally.
  bool isWeekend(Date date) const;

  bool operator==(const Calendar& other) const;

 private:
  explicit Calendar(const date::time_zone* zone) : zone_(zone) {}

  // The zone, located on first use for UTC.
  const date::time_zone* zone() const;

  const date::time_zone* zone_;  // owned by the tz database, lives as long as the process;
                                 // nullptr for UTC until it is needed
};

}  // namespace brimlog
