#include <gtest/gtest.h>

#include <cmath>

#include "model/LimitWindow.hpp"

namespace brimlog {
namespace {

const Date kReset = dateFromUnixSeconds(1'750'000'000);

LimitWindow window(double used, std::optional<Date> resetsAt = kReset) {
  return {"session", "Session", used, 18000.0, resetsAt, LimitSource::live()};
}

TEST(LimitWindowTest, TheConstructorClampsTheUsedShare) {
  EXPECT_EQ(window(1.7).usedFraction, 1.0);
  EXPECT_EQ(window(-0.2).usedFraction, 0.0);
  EXPECT_EQ(window(std::nan("")).usedFraction, 0.0);
  EXPECT_EQ(window(0.42).usedFraction, 0.42);
}

TEST(LimitWindowTest, AWindowCountsAsResetFromItsResetTimeOn) {
  const LimitWindow w = window(0.6);
  EXPECT_FALSE(w.isReset(kReset - Seconds{1}));
  EXPECT_EQ(w.effectiveUsedFraction(kReset - Seconds{1}), 0.6);
  EXPECT_TRUE(w.isReset(kReset));
  EXPECT_EQ(w.effectiveUsedFraction(kReset), 0.0);

  const LimitWindow unknown = window(0.6, std::nullopt);
  EXPECT_FALSE(unknown.isReset(kReset));
  EXPECT_EQ(unknown.effectiveUsedFraction(kReset + Seconds{1e9}), 0.6);
}

TEST(LimitWindowTest, SourcesAreObjectsWithOneCaseKey) {
  const Date asOf = dateFromReferenceSeconds(1000.5);
  EXPECT_EQ(LimitSource::live().toJson(DateForm::referenceSeconds), Json::parse(R"({"live":{}})"));
  EXPECT_EQ(LimitSource::local(asOf).toJson(DateForm::referenceSeconds),
            Json::parse(R"({"local":{"asOf":1000.5}})"));
  EXPECT_EQ(LimitSource::stale(asOf).toJson(DateForm::iso8601),
            Json::parse(R"({"stale":{"asOf":"2001-01-01T00:16:40Z"}})"));
  EXPECT_TRUE(LimitSource::stale(asOf).isStale());
  EXPECT_FALSE(LimitSource::local(asOf).isStale());
  EXPECT_FALSE(LimitSource::live().asOf());

  const auto decode = [](const char* text) {
    return LimitSource::fromJson(Json::parse(text), DateForm::referenceSeconds);
  };
  EXPECT_EQ(decode(R"({"local":{"asOf":1000.5},"extra":1})"), LimitSource::local(asOf));
  EXPECT_EQ(decode(R"({"live":{"ignored":true}})"), LimitSource::live());
  for (const char* bad : {R"({})", R"({"live":{},"stale":{"asOf":1}})", R"({"local":{}})",
                          R"({"live":true})", R"("live")", R"({"stale":{"asOf":"x"}})"}) {
    EXPECT_THROW(decode(bad), JsonDecodeError) << bad;
  }
}

TEST(LimitWindowTest, JsonLeavesAbsentFieldsOutAndKeepsStoredShares) {
  LimitWindow w{"weekly.opus", "Opus",       0.25,
                std::nullopt,  std::nullopt, LimitSource::local(kReset)};
  const Json json = w.toJson(DateForm::referenceSeconds);
  EXPECT_FALSE(json.contains("duration"));
  EXPECT_FALSE(json.contains("resetsAt"));
  EXPECT_EQ(LimitWindow::fromJson(json, DateForm::referenceSeconds), w);

  Json stored = window(0.5).toJson(DateForm::referenceSeconds);
  stored["usedFraction"] = 1.7;
  stored["duration"] = nullptr;
  const LimitWindow decoded = LimitWindow::fromJson(stored, DateForm::referenceSeconds);
  EXPECT_EQ(decoded.usedFraction, 1.7);
  EXPECT_FALSE(decoded.duration);
  EXPECT_EQ(decoded.resetsAt, kReset);

  stored.erase("label");
  EXPECT_THROW(LimitWindow::fromJson(stored, DateForm::referenceSeconds), JsonDecodeError);
  EXPECT_THROW(window(0.1, dateFromUnixSeconds(INFINITY)).toJson(DateForm::iso8601),
               JsonEncodeError);
}

}  // namespace
}  // namespace brimlog
