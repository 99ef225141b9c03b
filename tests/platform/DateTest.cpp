#include <gtest/gtest.h>

#include "platform/Date.hpp"

namespace brimlog {
namespace {

TEST(DateTest, ParsesBothInternetFormsAtTheirOwnOffset) {
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
}

TEST(DateTest, RejectsAnythingButTheStrictForm) {
  for (const char* text : {
           "",
           "2025-06-01T12:34:56",        // no zone designator
           "2025-06-01 12:34:56Z",       // space instead of T
           "2025-06-01t12:34:56Z",       // lower-case t
           "2025-06-01T12:34:56z",       // lower-case z
           "2025-06-01T12:34:56+0200",   // offset without colon
           "2025-06-01T12:34:56+02",     // offset without minutes
           "2025-06-01T12:34:56.Z",      // a point without digits
           "2025-06-01T12:34:56Z ",      // trailing space
           "2025-02-29T12:34:56Z",       // not a leap year
           "2025-06-31T12:34:56Z",       // June has 30 days
           "2025-13-01T12:34:56Z",       // month 13
           "2025-06-01T24:00:00Z",       // hour 24
           "2025-06-01T12:60:00Z",       // minute 60
           "2025-06-01T12:34:60Z",       // leap second
           "25-06-01T12:34:56Z",         // two-digit year
           "2025-06-01T12:34:56+24:00",  // offset hour 24
       }) {
    EXPECT_FALSE(parseISO8601(text)) << text;
  }
}

TEST(DateTest, FormatsWholeUtcSecondsTowardThePast) {
  EXPECT_EQ(formatISO8601(dateFromUnixSeconds(1748781296.789)), "2025-06-01T12:34:56Z");
  EXPECT_EQ(formatISO8601(dateFromUnixSeconds(-0.5)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(formatISO8601(*parseISO8601("2026-10-29T12:00:00+05:00")), "2026-10-29T07:00:00Z");
}

TEST(DateTest, ReferenceSecondsRoundTripExactly) {
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
