#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// Durations in seconds, as a double.
using Seconds = std::chrono::duration<double>;

/// An instant: seconds since 1970-01-01T00:00:00Z as a double, on the system clock.
///
/// A double keeps sub-microsecond precision for every instant of this century, which is finer
/// than any log line or service records.
using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

/// Seconds between 1970-01-01T00:00:00Z and 2001-01-01T00:00:00Z, the origin of the usage
/// database's date form.
inline constexpr double kReferenceDateOffset = 978'307'200.0;

/// The instant `seconds` after 1970-01-01T00:00:00Z.
constexpr Date dateFromUnixSeconds(double seconds) { return Date{Seconds{seconds}}; }

/// Seconds since 1970-01-01T00:00:00Z.
constexpr double unixSeconds(Date date) { return date.time_since_epoch().count(); }

/// The instant `seconds` after 2001-01-01T00:00:00Z.
constexpr Date dateFromReferenceSeconds(double seconds) {
  return Date{Seconds{seconds + kReferenceDateOffset}};
}

/// Seconds since 2001-01-01T00:00:00Z.
///
/// Date -> reference seconds -> Date gives back the same instant bit for bit for every date from
/// 1985 on: the subtraction of a whole number from a double in that range is exact.
constexpr double referenceSeconds(Date date) { return unixSeconds(date) - kReferenceDateOffset; }

/// The clock, read once by each entry point; every rule below takes `now` as an argument.
Date currentDate();

/// Parses an ISO 8601 internet date-time with fractional seconds, e.g. 2025-06-01T12:34:56.789Z
/// or 2025-06-01T14:34:56.5+02:00. At least one fraction digit is required, and a zone designator
/// (Z or a signed hh:mm offset); the instant comes from the text's own offset. Never throws.
std::optional<Date> parseISO8601WithFraction(std::string_view text);

/// The same form without fractional seconds, e.g. 2025-06-01T12:34:56Z: no fraction allowed.
std::optional<Date> parseISO8601WithoutFraction(std::string_view text);

/// The form every log date is read with: first with fractional seconds, then without.
std::optional<Date> parseISO8601(std::string_view text);

/// Reads back exactly the form `formatISO8601` writes, e.g. 2025-06-01T12:34:56Z: whole seconds
/// and "Z". An offset, even +00:00, or a fraction of a second gives nothing.
std::optional<Date> parseISO8601UTC(std::string_view text);

/// Formats an instant in UTC with whole seconds, e.g. 2025-06-01T12:34:56Z (fractions are cut
/// toward the past, so the text never names a later second than the instant).
std::string formatISO8601(Date date);

}  // namespace brimlog
