#include "display/MeterFormat.hpp"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

namespace brimlog {
namespace {

// |value| times 10^decimals, rounded half to even, as decimal digits. The rounding starts from
// the shortest decimal text that reads back as the same double (what a number formatter shows
// for it), not from the binary value: 2.675 rounds to 2.68 although the double lies below it.
std::string scaledDigitsHalfEven(double value, int decimals) {
  std::array<char, 64> buffer{};
  const auto written = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::fabs(value),
                                     std::chars_format::scientific);
  const std::string_view text(buffer.data(), static_cast<size_t>(written.ptr - buffer.data()));
  const size_t e = text.find('e');
  std::string digits;
  for (const char c : text.substr(0, e)) {
    if (c != '.') digits += c;
  }
  std::string_view exponentText = text.substr(e + 1);
  if (!exponentText.empty() && exponentText.front() == '+') exponentText.remove_prefix(1);
  int exponent = 0;
  std::from_chars(exponentText.data(), exponentText.data() + exponentText.size(), exponent);

  // The value is d.ddd × 10^exponent: the digits down to 10^-decimals are the first `keep`.
  const long keep = static_cast<long>(exponent) + 1 + decimals;
  if (keep < 0) return "0";
  const auto keepCount = static_cast<size_t>(keep);
  // A leading 0 leaves room for a carry out of the first digit (9.995 -> 10.00).
  std::string head = "0";
  head.append(digits, 0, std::min(keepCount, digits.size()));
  if (keepCount > digits.size()) head.append(keepCount - digits.size(), '0');
  const std::string_view tail =
      keepCount < digits.size() ? std::string_view(digits).substr(keepCount) : std::string_view{};

  bool roundUp = false;
  if (!tail.empty() && tail.front() > '5') {
    roundUp = true;
  } else if (!tail.empty() && tail.front() == '5') {
    const bool beyondHalf = tail.find_first_not_of('0', 1) != std::string_view::npos;
    const bool lastIsOdd = (head.back() - '0') % 2 == 1;
    roundUp = beyondHalf || lastIsOdd;
  }
  if (roundUp) {
    size_t i = head.size() - 1;
    while (head[i] == '9') head[i--] = '0';
    ++head[i];
  }
  return head;
}

// `decimals` decimals after a point, a comma every three digits before the point.
std::string groupedFixed(double value, int decimals) {
  const std::string scaled = scaledDigitsHalfEven(value, decimals);
  const auto width = static_cast<size_t>(decimals) + 1;
  std::string digits(scaled.size() < width ? width - scaled.size() : 0, '0');
  digits += scaled;
  std::string_view whole = std::string_view(digits).substr(0, digits.size() - width + 1);
  while (whole.size() > 1 && whole.front() == '0') whole.remove_prefix(1);
  const std::string_view fraction = std::string_view(digits).substr(digits.size() - width + 1);

  std::string text;
  if (value < 0 && digits.find_first_not_of('0') != std::string::npos) text += '-';
  for (size_t i = 0; i < whole.size(); ++i) {
    if (i > 0 && (whole.size() - i) % 3 == 0) text += ',';
    text += whole[i];
  }
  text += '.';
  text += fraction;
  return text;
}

}  // namespace

std::string MeterFormat::usd(std::optional<double> amount) {
  if (!amount) return "\u2014";
  if (*amount > 0 && *amount < 0.01) return "<$0.01";
  if (!std::isfinite(*amount)) return fmt::format("${:.2f}", *amount);
  return fmt::format("${}", groupedFixed(*amount, 2));
}

std::string MeterFormat::share(double fraction) {
  const double percent = fraction * 100;
  if (!(percent > 0)) return "0%";
  if (percent < 0.1) return "<0.1%";
  return fmt::format("{:.1f}%", percent);
}

std::string MeterFormat::countdown(double seconds) {
  if (!std::isfinite(seconds)) return "\u2014";
  if (seconds <= 0) return "now";
  constexpr int64_t kDay = 86'400;
  if (seconds >= static_cast<double>(maxCountdownDays) * kDay) {
    return fmt::format("{}d 0h", maxCountdownDays);
  }
  const auto s = static_cast<int64_t>(seconds);
  if (s >= kDay) return fmt::format("{}d {}h", s / kDay, s % kDay / 3600);
  if (s >= 3600) return fmt::format("{}h {}m", s / 3600, s % 3600 / 60);
  if (s >= 60) return fmt::format("{}m", s / 60);
  return "<1m";
}

std::string MeterFormat::age(double seconds) {
  if (!std::isfinite(seconds)) return "\u2014";
  const auto s = static_cast<int64_t>(std::min(seconds, 1e15));
  if (s >= 86'400) return fmt::format("{} d", s / 86'400);
  if (s >= 3600) return fmt::format("{} h", s / 3600);
  if (s >= 60) return fmt::format("{} min", s / 60);
  return "<1 min";
}

}  // namespace brimlog
