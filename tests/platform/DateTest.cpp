#include <gtest/gtest.h>

#include "platform/Date.hpp"

namespace brimlog {
namespace {

TEST(DateTest, ParsesOnlyTheStrictFormsAndFormatsWholeUtcSeconds) {
  EXPECT_EQ(parseISO8601WithFraction("2025-06-01T12:34:56.789Z"),
            dateFromUnixSeconds(1748781296.789));
  EXPECT_EQ(parseISO8601WithFraction("2025-06-01T14:34:56.5+02:00"),
            dateFromUnixSeconds(1748781296.5));
  EXPECT_EQ(parseISO8601WithoutFraction("2025-06-01T09:04:56-03:30"),
            dateFromUnixSeconds(1748781296));
  EXPECT_EQ(parseISO8601WithoutFraction("2024-02-29T00:00:00Z"), dateFromUnixSeconds(1709164800));
  // Digits past the ninth are checked but not kept.
  EXPECT_EQ(parseISO8601WithFraction("1970-01-01T00:00:00.1234567891234Z"),
            dateFromUnixSeconds(0.123456789));
  // Each form refuses the other's fraction; the general parse takes either.
  EXPECT_FALSE(parseISO8601WithFraction("2025-06-01T12:34:56Z"));
  EXPECT_FALSE(parseISO8601WithoutFraction("2025-06-01T12:34:56.789Z"));
  EXPECT_EQ(parseISO8601("2025-06-01T12:34:56Z"), dateFromUnixSeconds(1748781296));
  EXPECT_EQ(parseISO8601("2025-06-01T12:34:56.25Z"), dateFromUnixSeconds(1748781296.25));

  // No zone, a separator or designator other than "T" and "Z", an offset without its colon or
  // minutes, a point without digits, trailing text, a day, month or time out of range, a
  // two-digit year, an offset hour of 24.
  for (const char* text :
       {"", "2025-06-01T12:34:56", "2025-06-01 12:34:56Z", "2025-06-01t12:34:56Z",
        "2025-06-01T12:34:56z", "2025-06-01T12:34:56+0200", "2025-06-01T12:34:56+02",
        "2025-06-01T12:34:56.Z", "2025-06-01T12:34:56Z ", "2025-02-29T12:34:56Z",
        "2025-06-31T12:34:56Z", "2025-13-01T12:34:56Z", "2025-06-01T24:00:00Z",
        "2025-06-01T12:60:00Z", "2025-06-01T12:34:60Z", "25-06-01T12:34:56Z",
        "2025-06-01T12:34:56+24:00"}) {
    EXPECT_FALSE(parseISO8601(text)) << text;
  }

  EXPECT_EQ(formatISO8601(dateFromUnixSeconds(1748781296.789)), "2025-06-01T12:34:56Z");
  EXPECT_EQ(formatISO8601(dateFromUnixSeconds(-0.5)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(formatISO8601(*parseISO8601("2026-10-29T12:00:00+05:00")), "2026-10-29T07:00:00Z");

  EXPECT_EQ(referenceSeconds(*parseISO8601("2001-01-01T00:00:00Z")), 0.0);
  EXPECT_EQ(dateFromReferenceSeconds(-kReferenceDateOffset), dateFromUnixSeconds(0));
  for (const char* text : {"2025-06-01T12:34:56.789Z", "1990-03-04T05:06:07.123456Z",
                           "2026-11-23T23:59:59.999Z", "2099-12-31T23:59:59.000001Z"}) {
    const Date date = *parseISO8601(text);
    EXPECT_EQ(dateFromReferenceSeconds(referenceSeconds(date)), date) << text;
  }
}

}  // namespace
}  // namespace brimlog
