#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <tuple>

#include "model/ProviderLimits.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

const Date t0 = dateFromUnixSeconds(1'700'000'000);
const Date t1 = dateFromUnixSeconds(1'700'000'100);
const Date t2 = dateFromUnixSeconds(1'700'000'200.25);

ProviderLimits sample() {
  return {"Max",
          {{"session", "Session", 0.5, 18000.0, t2, LimitSource::live()},
           {"weekly", "Weekly", 0.25, 604800.0, std::nullopt, LimitSource::local(t1)},
           {"weekly.opus", "Opus", 0.75, std::nullopt, std::nullopt, LimitSource::stale(t0)}},
          Credits{"Extra usage", 12.5, 7.5, 20.0, false},
          ProviderStatus::rateLimited,
          t2};
}

TEST(ProviderLimitsTest, MarkedStaleDatesLiveAndLocalWindowsToTheFetch) {
  ProviderLimits expected = sample();
  expected.windows[0].source = expected.windows[1].source = LimitSource::stale(t2);
  EXPECT_EQ(sample().markedStale(), expected);
}

// The stored form (tests/data/model/provider-limits.json for the sample): dates as seconds since
// 2001, sources and statuses as objects with one case key, absent values left out.
TEST(ProviderLimitsTest, TheStoredFormIsThisJsonAndRoundTrips) {
  const ProviderLimits limits = sample();
  const Json stored = limits.toJson(DateForm::referenceSeconds);
  EXPECT_EQ(stored,
            Json::parse(testing::readFile(testing::dataPath("model/provider-limits.json"))));
  EXPECT_EQ(ProviderLimits::fromJson(json::parse(json::dump(stored)), DateForm::referenceSeconds),
            limits);

  // Absent amounts are left out of the credits too, and a null plan reads as none.
  const ProviderLimits bare{
      std::nullopt, {}, Credits{"Credits", {}, {}, {}, true}, ProviderStatus::signInNeeded, t0};
  Json json = bare.toJson(DateForm::referenceSeconds);
  EXPECT_EQ(json, Json::parse(R"({"windows":[],"credits":{"label":"Credits","unlimited":true},
                                  "status":{"signInNeeded":{}},"fetchedAt":721692800})"));
  json["plan"] = nullptr;
  EXPECT_EQ(ProviderLimits::fromJson(json, DateForm::referenceSeconds), bare);
}

TEST(ProviderLimitsTest, DecodingRejectsBadKeysAndEncodingRejectsNonFiniteNumbers) {
  const Json good = sample().toJson(DateForm::referenceSeconds);
  // Each row: its name, the key's JSON pointer, and its new value (none: the key is removed).
  const std::tuple<const char*, const char*, std::optional<Json>> rows[] = {
      {"no windows", "/windows", {}},
      {"no status", "/status", {}},
      {"no fetch date", "/fetchedAt", {}},
      {"credits without unlimited", "/credits/unlimited", {}},
      {"a window without label", "/windows/0/label", {}},
      {"a plan that is a number", "/plan", 3},
      {"two statuses", "/status", Json::parse(R"({"ok":{},"rateLimited":{}})")},
      {"a source without date", "/windows/1/source", Json::parse(R"({"local":{}})")},
      {"a source date as text", "/windows/2/source", Json::parse(R"({"stale":{"asOf":"x"}})")},
  };
  for (const auto& [name, key, value] : rows) {
    SCOPED_TRACE(name);
    Json bad = good;
    const Json::json_pointer pointer(key);
    if (value) {
      bad[pointer] = *value;
    } else {
      bad[pointer.parent_pointer()].erase(pointer.back());
    }
    EXPECT_THROW(ProviderLimits::fromJson(bad, DateForm::referenceSeconds), JsonDecodeError);
  }

  // Non-finite numbers fail the whole encoding.
  const double inf = std::numeric_limits<double>::infinity();
  const std::function<void(ProviderLimits&)> spoilers[] = {
      [&](ProviderLimits& l) { l.windows[1].duration = inf; },
      [&](ProviderLimits& l) { l.credits->balanceUSD = -inf; },
      [&](ProviderLimits& l) { l.windows[0].usedFraction = std::nan(""); },  // past the clamp
      [&](ProviderLimits& l) { l.windows[0].resetsAt = dateFromUnixSeconds(inf); }};
  for (const auto& spoil : spoilers) {
    ProviderLimits limits = sample();
    spoil(limits);
    for (const DateForm form : {DateForm::referenceSeconds, DateForm::iso8601}) {
      EXPECT_THROW(limits.toJson(form), JsonEncodeError);
    }
  }
}

}  // namespace
}  // namespace brimlog
