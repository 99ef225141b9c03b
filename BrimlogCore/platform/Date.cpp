#include "platform/Date.hpp"

#include <date/date.h>
#include <fmt/format.h>

#include <cmath>
#include <cstdint>

namespace brimlog {
namespace {

enum class Fraction { required, forbidden };
enum class Zone { anyOffset, utcOnly };

// Reads exactly `count` ASCII digits at `pos`, advancing it.
bool readDigits(std::string_view text, size_t& pos, int count, int& value) {
  if (pos + static_cast<size_t>(count) > text.size()) return false;
  int result = 0;
  for (int i = 0; i < count; ++i) {
    const char c = text[pos + static_cast<size_t>(i)];
    if (c < '0' || c > '9') return false;
    result = result * 10 + (c - '0');
  }
  pos += static_cast<size_t>(count);
  value = result;
  return true;
}

bool expect(std::string_view text, size_t& pos, char c) {
  if (pos >= text.size() || text[pos] != c) return false;
  ++pos;
  return true;
}

// The strict internet date-time form: YYYY-MM-DDTHH:MM:SS[.f+](Z|+hh:mm|-hh:mm).
std::optional<Date> parse(std::string_view text, Fraction fraction, Zone zone = Zone::anyOffset) {
  size_t pos = 0;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  if (!readDigits(text, pos, 4, year) || !expect(text, pos, '-') ||
      !readDigits(text, pos, 2, month) || !expect(text, pos, '-') ||
      !readDigits(text, pos, 2, day) || !expect(text, pos, 'T') ||
      !readDigits(text, pos, 2, hour) || !expect(text, pos, ':') ||
      !readDigits(text, pos, 2, minute) || !expect(text, pos, ':') ||
      !readDigits(text, pos, 2, second)) {
    return std::nullopt;
  }

  // Up to nine fraction digits are kept; later ones are validated and dropped.
  int64_t fractionDigits = 0;
  int fractionScale = 0;
  const bool hasFraction = pos < text.size() && text[pos] == '.';
  if (hasFraction != (fraction == Fraction::required)) return std::nullopt;
  if (hasFraction) {
    ++pos;
    const size_t start = pos;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
      if (fractionScale < 9) {
        fractionDigits = fractionDigits * 10 + (text[pos] - '0');
        ++fractionScale;
      }
      ++pos;
    }
    if (pos == start) return std::nullopt;
  }

  int offsetSeconds = 0;
  if (pos >= text.size()) return std::nullopt;
  if (text[pos] == 'Z') {
    ++pos;
  } else if (zone == Zone::anyOffset && (text[pos] == '+' || text[pos] == '-')) {
    const int sign = text[pos] == '-' ? -1 : 1;
    ++pos;
    int offsetHours = 0, offsetMinutes = 0;
    if (!readDigits(text, pos, 2, offsetHours) || !expect(text, pos, ':') ||
        !readDigits(text, pos, 2, offsetMinutes) || offsetHours > 23 || offsetMinutes > 59) {
      return std::nullopt;
    }
    offsetSeconds = sign * (offsetHours * 3600 + offsetMinutes * 60);
  } else {
    return std::nullopt;
  }
  if (pos != text.size()) return std::nullopt;

  if (hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const date::year_month_day ymd{date::year{year}, date::month{static_cast<unsigned>(month)},
                                 date::day{static_cast<unsigned>(day)}};
  if (!ymd.ok()) return std::nullopt;

  const int64_t days = date::sys_days{ymd}.time_since_epoch().count();
  const int64_t wholeSeconds =
      days * 86400 + hour * 3600 + minute * 60 + second - static_cast<int64_t>(offsetSeconds);
  if (fractionScale == 0) return dateFromUnixSeconds(static_cast<double>(wholeSeconds));
  // Up to microseconds, whole * 10^n + digits is an exact integer in a double, so one division
  // gives the correctly rounded instant (2025-06-01T12:34:56.789Z is exactly the double nearest
  // to ...896.789, as if the text had been read as one decimal number).
  static constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};
  const double scale = kPowersOfTen[fractionScale];
  if (fractionScale <= 6) {
    return dateFromUnixSeconds(
        (static_cast<double>(wholeSeconds) * scale + static_cast<double>(fractionDigits)) / scale);
  }
  return dateFromUnixSeconds(static_cast<double>(wholeSeconds) +
                             static_cast<double>(fractionDigits) / scale);
}

}  // namespace

Date currentDate() {
  return std::chrono::time_point_cast<Seconds>(std::chrono::system_clock::now());
}

std::optional<Date> parseISO8601WithFraction(std::string_view text) {
  return parse(text, Fraction::required);
}

std::optional<Date> parseISO8601WithoutFraction(std::string_view text) {
  return parse(text, Fraction::forbidden);
}

std::optional<Date> parseISO8601UTC(std::string_view text) {
  return parse(text, Fraction::forbidden, Zone::utcOnly);
}

std::optional<Date> parseISO8601(std::string_view text) {
  if (auto date = parseISO8601WithFraction(text)) return date;
  return parseISO8601WithoutFraction(text);
}

std::string formatISO8601(Date date) {
  const auto seconds = static_cast<int64_t>(std::floor(unixSeconds(date)));
  const date::sys_seconds instant{std::chrono::seconds{seconds}};
  const date::sys_days day = date::floor<date::days>(instant);
  const date::year_month_day ymd{day};
  const int year = static_cast<int>(ymd.year());
  // Reports write an instant for every day of their window: formatted directly, not through a
  // stream, which costs a locale set-up each time. Years outside four digits keep the general
  // form.
  if (year < 0 || year > 9999) return date::format("%Y-%m-%dT%H:%M:%SZ", instant);
  const date::hh_mm_ss<std::chrono::seconds> time{instant - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", year,
                     static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                     time.hours().count(), time.minutes().count(), time.seconds().count());
}

}  // namespace brimlog
