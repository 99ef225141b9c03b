#include <gtest/gtest.h>

#include <cmath>

#include "daemon/LimitAlerts.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Kind = LimitAlert::Kind;
constexpr double kNone = NAN;  // no reset time
constexpr double kHour = 3600;
const Date kStart = dateFromUnixSeconds(1'795'000'020);  // a whole minute

// The session window at `used`, resetting `resetsIn` seconds after the start.
ProviderLimits session(double used, double resetsIn, bool stale = false) {
  std::optional<Date> resetsAt;
  if (!std::isnan(resetsIn)) resetsAt = kStart + Seconds{resetsIn};
  return {std::nullopt,
          {{"session", "Session", used, 18000.0, resetsAt,
            stale ? LimitSource::stale(kStart) : LimitSource::live()}},
          std::nullopt,
          ProviderStatus::ok,
          kStart};
}

std::vector<Kind> kinds(const std::vector<LimitAlert>& alerts) {
  std::vector<Kind> result;
  for (const LimitAlert& alert : alerts) result.push_back(alert.kind);
  return result;
}

class LimitAlertsTest : public testing::TempDirTest {};

// Sequences of one window's figures over time, each step with the alerts it should give. After
// every step a restarted memory (a new object on the same file) given the same figures says
// nothing.
TEST_F(LimitAlertsTest, AlertsEachCrossingOncePerPeriod) {
  struct Step {
    double used, resetsIn, at;
    std::vector<Kind> expected;
    bool stale = false;
  };
  const double r = 5 * kHour;
  const struct {
    const char* name;
    std::vector<Step> steps;
  } cases[] = {
      {"climbs through both levels, then its reset time passes",
       {{0.50, r, 0, {}},
        {0.82, r, kHour, {Kind::reached80}},
        {0.85, r, 1.5 * kHour, {}},
        {0.96, r, 2 * kHour, {Kind::reached95}},
        {0.96, r, r, {Kind::reset}},
        {0.96, r, r + 60, {}},
        {0.10, 2 * r, r + 120, {}}}},
      {"a jump past both levels alerts 95% only",
       {{0.5, r, 0, {}}, {0.97, r, 60, {Kind::reached95}}}},
      {"back under 80% with a later reset time, then a new period climbs",
       {{1.0, r, 0, {Kind::reached95}},
        {0.2, 2 * r, kHour, {Kind::reset}},
        {0.85, 2 * r, 2 * kHour, {Kind::reached80}}}},
      {"its reset time passes and the service drops it",
       {{1.0, r, 0, {Kind::reached95}}, {0.0, kNone, r + 60, {Kind::reset}}}},
      {"a new period high at once alerts again",
       {{0.85, r, 0, {Kind::reached80}}, {0.85, 2 * r, r + 60, {Kind::reached80}}}},
      {"reset times jittered across a half minute name one period",
       {{0.85, r + 29, 0, {Kind::reached80}}, {0.90, r + 31, 60, {}}, {0.90, r - 20, 120, {}}}},
      {"stale figures never alert, live ones then do",
       {{0.99, r, 0, {}, true}, {0.99, r, 60, {Kind::reached95}}}},
      {"without a reset time, coming back down starts afresh",
       {{0.85, kNone, 0, {Kind::reached80}},
        {0.50, kNone, kHour, {}},
        {0.85, kNone, 2 * kHour, {Kind::reached80}}}},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const std::filesystem::path file = dir() / (std::string(row.name) + ".json");
    LimitAlerts alerts{file};
    for (size_t i = 0; i < row.steps.size(); ++i) {
      SCOPED_TRACE("step " + std::to_string(i));
      const Step& step = row.steps[i];
      const ProviderLimits limits = session(step.used, step.resetsIn, step.stale);
      const Date now = kStart + Seconds{step.at};
      EXPECT_EQ(kinds(alerts.update(ProviderID::claude, limits, now)), step.expected);
      EXPECT_EQ(alerts.saveError(), std::nullopt);
      EXPECT_EQ(kinds(LimitAlerts{file}.update(ProviderID::claude, limits, now)),
                std::vector<Kind>{});
    }
  }
}

TEST_F(LimitAlertsTest, TextsAndStateFile) {
  const std::filesystem::path file = dir() / "alerts.json";
  LimitAlerts alerts{file};
  const Date now = kStart + Seconds{5 * kHour - 2 * kHour - 14 * 60};
  EXPECT_EQ(
      alerts.update(ProviderID::claude, session(0.82, 5 * kHour), now),
      (std::vector<LimitAlert>{{ProviderID::claude, "session", Kind::reached80,
                                "Claude: Session at 82.0%", "18.0% left, resets in 2h 14m"}}));
  alerts.update(ProviderID::codex, session(0.96, 5 * kHour), now);
  EXPECT_EQ(alerts.update(ProviderID::codex, session(0.96, 5 * kHour), kStart + Seconds{5 * kHour}),
            (std::vector<LimitAlert>{{ProviderID::codex, "session", Kind::reset,
                                      "Codex: Session has reset", "100.0% left"}}));

  // Another provider's window is remembered apart. (The file is written by AtomicFile::replace,
  // for the user alone: AtomicFileTest.ReplacesWholeForTheUserAlone.)
  EXPECT_EQ(LimitAlerts{file}.update(ProviderID::grok, session(0.82, 5 * kHour), now).size(), 1u);

  // A damaged file is an empty memory.
  write("alerts.json", "{\"windows\":[{\"provider\":");
  EXPECT_EQ(LimitAlerts{file}.update(ProviderID::claude, session(0.82, 5 * kHour), now).size(), 1u);

  // A file that cannot be written still gives the alerts and says why.
  LimitAlerts homeless{dir() / "missing" / "alerts.json"};
  EXPECT_EQ(homeless.update(ProviderID::claude, session(0.82, 5 * kHour), now).size(), 1u);
  ASSERT_TRUE(homeless.saveError());
  EXPECT_NE(homeless.saveError()->find("missing/alerts.json"), std::string::npos);
}

// An early end is told once per period, remembered across restarts, whichever way the forecast
// moves after; a new period may tell it again.
TEST_F(LimitAlertsTest, TellsAnEarlyEndOncePerPeriod) {
  const std::filesystem::path file = dir() / "alerts.json";
  const Date now = kStart + Seconds{kHour};
  const LimitForecast early{"session", now, 0.2, kStart + Seconds{3 * kHour}, {}};
  const LimitForecast lasts{"session", now, 0.1, std::nullopt, {}};
  const auto update = [&](double resetsIn, const LimitForecast& forecast) {
    return LimitAlerts{file, Calendar::utc()}.update(ProviderID::claude, session(0.3, resetsIn),
                                                     now, std::span(&forecast, 1));
  };
  EXPECT_TRUE(update(5 * kHour, lasts).empty());
  const std::vector<LimitAlert> told = update(5 * kHour, early);
  ASSERT_EQ(kinds(told), std::vector<Kind>{Kind::runsOutEarly});
  EXPECT_EQ(told[0].summary, "Claude: Session runs out early");
  EXPECT_EQ(told[0].body, "at this pace: runs out Wed 14:07, 2 h before the reset");
  for (const LimitForecast* forecast : {&early, &lasts, &early}) {
    EXPECT_TRUE(update(5 * kHour, *forecast).empty());
  }
  EXPECT_EQ(kinds(update(10 * kHour, early)), std::vector<Kind>{Kind::runsOutEarly});
}

}  // namespace
}  // namespace brimlog
