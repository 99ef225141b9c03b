#include <gtest/gtest.h>

#include <limits>

#include "display/MeterFormat.hpp"

namespace brimlog {
namespace {

// The texts of `inputs`, in their order, each followed by " | ".
template <typename T, typename Format>
std::string each(std::initializer_list<T> inputs, Format format) {
  std::string texts;
  for (const T& input : inputs) texts += format(input) + " | ";
  return texts;
}

TEST(MeterFormatTest, DollarsRoundHalfToEvenFromTheShortestDecimalAndGroupThousands) {
  EXPECT_EQ(each<std::optional<double>>(
                {std::nullopt, 0.004, 0, 0.01, 1234567.891, -2, -0.001, 999.995, 2.675, 0.125},
                MeterFormat::usd),
            "\u2014 | <$0.01 | $0.00 | $0.01 | $1,234,567.89 | $-2.00 | $0.00 | $1,000.00 | "
            "$2.68 | $0.12 | ");
}

TEST(MeterFormatTest, SharesAndCountdowns) {
  EXPECT_EQ(each({0.0, -0.2, 0.0005, 0.001, 1.0}, MeterFormat::share),
            "0% | 0% | <0.1% | 0.1% | 100.0% | ");
  EXPECT_EQ(each({0.0, 59.9, 60.0, 3600.0, 86'399.0, 90'000.0, 9999 * 86'400.0 - 1,
                  10'000 * 86'400.0, std::numeric_limits<double>::infinity()},
                 MeterFormat::countdown),
            "now | <1m | 1m | 1h 0m | 23h 59m | 1d 1h | 9998d 23h | 9999d 0h | \u2014 | ");
}

}  // namespace
}  // namespace brimlog
