#include "platform/Calendar.hpp"

#include <date/tz.h>
#include <fmt/format.h>

#include <atomic>
#include <cmath>
#include <stdexcept>

namespace brimlog {
namespace {

using std::chrono::seconds;

// Splits an instant into whole seconds (toward the past) and the fraction left over.
std::pair<date::sys_seconds, double> split(Date date) {
  const double whole = std::floor(unixSeconds(date));
  return {date::sys_seconds{seconds{static_cast<int64_t>(whole)}}, unixSeconds(date) - whole};
}

Date toDate(date::sys_seconds instant, double fraction = 0.0) {
  return dateFromUnixSeconds(static_cast<double>(instant.time_since_epoch().count()) + fraction);
}

// Instants within about 28,000 years of 1970, well inside the years the date library can
// represent (-32767 to 32767), so local-time arithmetic never leaves its range.
constexpr double kRangeSeconds = 9.0e11;

bool inRange(Date date) {
  const double s = unixSeconds(date);
  return std::isfinite(s) && std::fabs(s) < kRangeSeconds;
}

const date::time_zone* locate(std::string_view name) {
  try {
    return date::locate_zone(name);
  } catch (const std::exception&) {
    return nullptr;
  }
}

// The zone a TZ value names: "Europe/Paris", ":Europe/Paris" or a path into the zoneinfo tree.
const date::time_zone* zoneFromTZ(std::optional<std::string_view> value) {
  if (!value) return nullptr;
  std::string_view name{*value};
  if (name.empty()) return locate("UTC");  // an empty TZ means UTC to the C library too
  if (name.front() == ':') name.remove_prefix(1);
  if (const auto pos = name.find("zoneinfo/"); pos != std::string_view::npos) {
    name.remove_prefix(pos + 9);
  }
  return locate(name);
}

}  // namespace

Calendar Calendar::local(std::optional<std::string_view> tz) {
  if (const auto* zone = zoneFromTZ(tz)) return Calendar{zone};
  try {
    return Calendar{date::current_zone()};
  } catch (const std::exception&) {
    return utc();
  }
}

namespace {
std::atomic<const date::time_zone*> installedZone{nullptr};
}  // namespace

Calendar Calendar::current() {
  if (const auto* zone = installedZone.load()) return Calendar{zone};
  return local(std::nullopt);
}

void Calendar::setCurrent(Calendar calendar) { installedZone.store(calendar.zone()); }

std::optional<Calendar> Calendar::named(std::string_view zoneName) {
  if (const auto* zone = locate(zoneName)) return Calendar{zone};
  return std::nullopt;
}

Calendar Calendar::utc() { return Calendar{nullptr}; }

const date::time_zone* Calendar::zone() const {
  if (zone_ != nullptr) return zone_;
  static const date::time_zone* const utcZone = date::locate_zone("UTC");
  return utcZone;
}

bool Calendar::operator==(const Calendar& other) const {
  return zone_ == other.zone_ || zone() == other.zone();
}

std::string_view Calendar::zoneName() const { return zone()->name(); }

namespace {

// The first instant of a local day, as the zone's rules make it.
Date firstInstant(const date::time_zone* zone, date::local_days day) {
  const date::local_seconds midnight{day.time_since_epoch()};
  const auto info = zone->get_info(midnight);
  switch (info.result) {
    case date::local_info::unique:
    case date::local_info::ambiguous:  // the earlier of the two midnights
      return toDate(date::sys_seconds{midnight.time_since_epoch()} - info.first.offset);
    case date::local_info::nonexistent:  // midnight skipped: the day starts when the gap ends
      return toDate(info.second.begin);
  }
  return toDate(date::sys_seconds{midnight.time_since_epoch()});
}

}  // namespace

Date Calendar::startOfDay(Date date) const {
  if (!inRange(date)) return date;
  const auto [instant, fraction] = split(date);
  return firstInstant(zone(), date::floor<date::days>(zone()->to_local(instant)));
}

std::optional<Date> Calendar::startOfDay(const CalendarDay& day) const {
  const date::year_month_day ymd{date::year{day.year},
                                 date::month{static_cast<unsigned>(day.month)},
                                 date::day{static_cast<unsigned>(day.day)}};
  if (!ymd.ok() || day.year < 1 || day.year > 9999) return std::nullopt;
  return firstInstant(zone(), date::local_days{ymd});
}

std::optional<Date> Calendar::addingDays(int days, Date date) const {
  if (!inRange(date)) return std::nullopt;
  const auto [instant, fraction] = split(date);
  const auto target = zone()->to_local(instant) + date::days{days};
  if (std::fabs(static_cast<double>(target.time_since_epoch().count())) >= kRangeSeconds) {
    return std::nullopt;
  }
  const auto info = zone()->get_info(target);
  // Reading the local time with the offset in force before any change at that time moves a
  // skipped time forward by the gap and picks the earlier of two repeated times.
  const Date result =
      toDate(date::sys_seconds{target.time_since_epoch()} - info.first.offset, fraction);
  if (!inRange(result)) return std::nullopt;
  return result;
}

CalendarDay Calendar::day(Date date) const {
  if (!inRange(date)) return {};
  const auto local = zone()->to_local(split(date).first);
  const date::year_month_day ymd{date::floor<date::days>(local)};
  return {static_cast<int>(ymd.year()), static_cast<int>(static_cast<unsigned>(ymd.month())),
          static_cast<int>(static_cast<unsigned>(ymd.day()))};
}

int Calendar::minuteOfDay(Date date) const {
  if (!inRange(date)) return 0;
  const auto local = zone()->to_local(split(date).first);
  return static_cast<int>(
      date::floor<std::chrono::minutes>(local - date::floor<date::days>(local)).count());
}

bool Calendar::isWeekend(Date date) const {
  if (!inRange(date)) return false;
  const auto local = zone()->to_local(split(date).first);
  const date::weekday weekday{date::floor<date::days>(local)};
  return weekday == date::Saturday || weekday == date::Sunday;
}

std::optional<CalendarDay> CalendarDay::fromKey(std::string_view key) {
  if (key.size() != 10 || key[4] != '-' || key[7] != '-') return std::nullopt;
  auto number = [&](size_t from, size_t count) {
    int value = 0;
    for (size_t i = from; i < from + count; ++i) {
      if (key[i] < '0' || key[i] > '9') return -1;
      value = value * 10 + (key[i] - '0');
    }
    return value;
  };
  const CalendarDay day{number(0, 4), number(5, 2), number(8, 2)};
  if (day.year < 1 || day.month < 1 || day.day < 1) return std::nullopt;
  const date::year_month_day ymd{date::year{day.year},
                                 date::month{static_cast<unsigned>(day.month)},
                                 date::day{static_cast<unsigned>(day.day)}};
  if (!ymd.ok()) return std::nullopt;
  return day;
}

std::string Calendar::dayKey(Date date) const {
  const CalendarDay local = day(date);
  return fmt::format("{:04d}-{:02d}-{:02d}", local.year, local.month, local.day);
}

}  // namespace brimlog
