#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brimlog {

/// The short texts every screen shows for money, tokens, shares and countdowns. Numbers are
/// written the same everywhere, whatever the user's locale: a point before the decimals and,
/// for dollars, a comma between each group of three digits.
///
///     MeterFormat::usd(1234.5);         // "$1,234.50"
///     MeterFormat::share(0.125);         // "12.5%"
///     MeterFormat::countdown(15'120);    // "4h 12m"
struct MeterFormat {
  /// The most days a countdown names.
  static constexpr int maxCountdownDays = 9999;

  /// "$" and the amount with two decimals, rounded half to even from the shortest decimal text
  /// of the amount (2.675 gives $2.68), the sign after the dollar sign ($-2.00); an amount that
  /// rounds to zero has no sign. "<$0.01" for an amount above 0 and below 0.01, "—" for none,
  /// and "$inf" or "$nan" for an amount that is not finite.
  static std::string usd(std::optional<double> amount);

  /// A share from 0 to 1 as a percentage with one decimal ("12.5%", "100.0%"); "0%" for 0 or
  /// less (and NaN), "<0.1%" above 0 and below 0.1%.
  static std::string share(double fraction);

  /// Seconds to a reset: "3d 4h", "4h 12m", "59m", "<1m" below a minute, "now" at 0 or less,
  /// "9999d 0h" from `maxCountdownDays` on, "—" when not finite. Seconds are truncated.
  static std::string countdown(double seconds);

  /// How long ago something happened, in one unit, truncated: "<1 min", "12 min", "3 h",
  /// "2 d"; "—" when not finite. A moment in the future reads as "<1 min".
  static std::string age(double seconds);
};

}  // namespace brimlog
