#include <gtest/gtest.h>

#include <limits>

#include "model/ProviderLimits.hpp"

namespace brimlog {
namespace {

const Date t0 = dateFromUnixSeconds(1'700'000'000);
const Date t1 = dateFromUnixSeconds(1'700'000'100);
const Date t2 = dateFromUnixSeconds(1'700'000'200.25);

ProviderLimits sample() {
  ProviderLimits limits;
  limits.plan = "Max";
  limits.windows = {
      {"session", "Session", 0.5, 18000.0, t2, LimitSource::live()},
      {"weekly", "Weekly", 0.25, 604800.0, std::nullopt, LimitSource::local(t1)},
      {"weekly.opus", "Opus", 0.75, std::nullopt, std::nullopt, LimitSource::stale(t0)},
  };
  limits.credits = Credits{"Extra usage", 12.5, 7.5, 20.0, false};
  limits.status = ProviderStatus::rateLimited;
  limits.fetchedAt = t2;
  return limits;
}

TEST(ProviderLimitsTest, MarkedStaleDatesLiveAndLocalWindowsToTheFetch) {
  const ProviderLimits limits = sample();
  const ProviderLimits stale = limits.markedStale();
  ASSERT_EQ(stale.windows.size(), 3u);
  EXPECT_EQ(stale.windows[0].source, LimitSource::stale(t2));
  EXPECT_EQ(stale.windows[1].source, LimitSource::stale(t2));
  EXPECT_EQ(stale.windows[2].source, LimitSource::stale(t0));
  EXPECT_EQ(stale.windows[0].id, "session");
  EXPECT_EQ(stale.status, ProviderStatus::rateLimited);
  EXPECT_EQ(stale.plan, limits.plan);
  EXPECT_EQ(stale.credits, limits.credits);
  EXPECT_EQ(limits.windows[0].source, LimitSource::live());  // the original is untouched
}

TEST(ProviderLimitsTest, RoundTripsInBothDateForms) {
  const ProviderLimits limits = sample();
  const Json stored = json::parse(json::dump(limits.toJson(DateForm::referenceSeconds)));
  EXPECT_EQ(ProviderLimits::fromJson(stored, DateForm::referenceSeconds), limits);
  EXPECT_EQ(stored["fetchedAt"], referenceSeconds(t2));

  const Json snapshot = limits.toJson(DateForm::iso8601);
  EXPECT_EQ(snapshot["fetchedAt"], "2023-11-14T22:16:40Z");
  EXPECT_EQ(ProviderLimits::fromJson(snapshot, DateForm::iso8601).fetchedAt,
            dateFromUnixSeconds(1'700'000'200));
}

TEST(ProviderLimitsTest, AbsentFieldsAreLeftOut) {
  ProviderLimits bare;
  bare.status = ProviderStatus::signInNeeded;
  bare.fetchedAt = t0;
  const Json json = bare.toJson(DateForm::referenceSeconds);
  EXPECT_EQ(json, Json::parse(R"({"windows":[],"status":{"signInNeeded":{}},"fetchedAt":)" +
                              std::to_string(static_cast<int64_t>(referenceSeconds(t0))) + "}"));
  EXPECT_EQ(Credits({"Credits", std::nullopt, std::nullopt, std::nullopt, true}).toJson(),
            Json::parse(R"({"label":"Credits","unlimited":true})"));

  Json withNulls = json;
  withNulls["plan"] = nullptr;
  withNulls["credits"] = nullptr;
  EXPECT_EQ(ProviderLimits::fromJson(withNulls, DateForm::referenceSeconds), bare);
}

TEST(ProviderLimitsTest, StatusIsAnObjectWithExactlyOneCase) {
  const ProviderStatus all[] = {ProviderStatus::ok,           ProviderStatus::signInNeeded,
                                ProviderStatus::unreachable,  ProviderStatus::rateLimited,
                                ProviderStatus::accessDenied, ProviderStatus::unavailable};
  for (const ProviderStatus status : all) {
    EXPECT_EQ(providerStatusFromJson(toJson(status)), status);
  }
  EXPECT_EQ(toJson(ProviderStatus::accessDenied), Json::parse(R"({"accessDenied":{}})"));
  for (const char* bad : {R"({"ok":{},"rateLimited":{}})", R"({})", R"("ok")", R"({"ok":1})"}) {
    try {
      providerStatusFromJson(Json::parse(bad));
      ADD_FAILURE() << bad << " decoded";
    } catch (const JsonDecodeError& error) {
      if (std::string(bad).starts_with("{\"ok\":{}") || std::string(bad) == "{}") {
        EXPECT_STREQ(error.what(), "Invalid number of keys found, expected one.");
      }
    }
  }
}

TEST(ProviderLimitsTest, NonFiniteNumbersFailTheWholeEncoding) {
  ProviderLimits limits = sample();
  limits.windows[1].duration = std::numeric_limits<double>::infinity();
  EXPECT_THROW(limits.toJson(DateForm::referenceSeconds), JsonEncodeError);
  limits = sample();
  limits.credits->balanceUSD = -std::numeric_limits<double>::infinity();
  EXPECT_THROW(limits.toJson(DateForm::iso8601), JsonEncodeError);
  limits = sample();
  limits.windows[0].usedFraction = std::nan("");  // set past the constructor's clamp
  EXPECT_THROW(limits.toJson(DateForm::iso8601), JsonEncodeError);
}

TEST(ProviderLimitsTest, DecodingRejectsMissingOrMistypedRequiredKeys) {
  const Json good = sample().toJson(DateForm::referenceSeconds);
  for (const char* key : {"windows", "status", "fetchedAt"}) {
    Json bad = good;
    bad.erase(key);
    EXPECT_THROW(ProviderLimits::fromJson(bad, DateForm::referenceSeconds), JsonDecodeError) << key;
  }
  Json badCredits = good;
  badCredits["credits"].erase("unlimited");
  EXPECT_THROW(ProviderLimits::fromJson(badCredits, DateForm::referenceSeconds), JsonDecodeError);
  Json badPlan = good;
  badPlan["plan"] = 3;
  EXPECT_THROW(ProviderLimits::fromJson(badPlan, DateForm::referenceSeconds), JsonDecodeError);
}

}  // namespace
}  // namespace brimlog
