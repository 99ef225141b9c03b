#include <gtest/gtest.h>

#include <algorithm>

#include "store/UsageReport.hpp"

namespace brimlog {
namespace {

Date at(const char* text) { return *parseISO8601(text); }

// $10 a million output tokens: 100,000 output tokens cost $1. "borrowed" prices as "m" does but
// is approximate; "nameless" has no price.
ModelPrice price(double output, std::optional<std::string> proxy = std::nullopt) {
  return {0, output, 0, 0, 0, std::move(proxy), "t", "2026-01-01"};
}
const PriceTable prices{{{"m", price(10)}, {"borrowed", price(10, "m")}}};

struct Reply {
  const char* at;
  int64_t session;
  const char* model = "m";
  int64_t output = 100'000;
  std::optional<double> reportedUSD = std::nullopt;
};

// Ledger rows as the store would read them for [from, to): one slot row per reply (replies in
// one slot of one session and model add up), sessions 1 to 9 of Claude in project "p<id>".
LedgerRows ledger(const char* from, const char* to, const std::vector<Reply>& replies) {
  LedgerRows rows;
  rows.from = at(from);
  rows.to = at(to);
  for (const Reply& reply : replies) {
    LedgerSlot slot{slotOf(at(reply.at)), reply.session, reply.model, {}, reply.reportedUSD};
    slot.tokens.output = reply.output;
    rows.slots.push_back(slot);
  }
  std::stable_sort(rows.slots.begin(), rows.slots.end(),
                   [](const LedgerSlot& a, const LedgerSlot& b) { return a.slot < b.slot; });
  for (int64_t id = 1; id <= 9; ++id) {
    LedgerSession session;
    session.id = id;
    session.sessionID = "s" + std::to_string(id);
    session.project = "p" + std::to_string(id);
    for (const LedgerSlot& slot : rows.slots) {
      if (slot.session != id) continue;
      if (session.firstReply == Date{}) session.firstReply = slotStart(slot.slot);
      session.lastReply = slotStart(slot.slot) + Seconds{60};
    }
    rows.sessions.push_back(session);
  }
  return rows;
}

// The local days of a span, as the store's `days` gives them: `LedgerDays::of` the slots that
// start in it, with the kept day totals.
UsageReport::DaysOf daysOf(const LedgerRows& rows, const Calendar& calendar) {
  return [&rows, calendar](Date from, Date to) {
    LedgerRows part = rows;
    part.from = from;
    part.to = to;
    std::erase_if(part.slots, [&](const LedgerSlot& slot) {
      return slotStart(slot.slot) < from || slotStart(slot.slot) >= to;
    });
    return LedgerDays::of(part, calendar);
  };
}

// (key, tokens, sessions) of each period.
using PeriodFigures = std::vector<std::tuple<std::string, int64_t, int64_t>>;

PeriodFigures figures(const std::vector<UsageReport::Period>& periods) {
  PeriodFigures out;
  for (const auto& period : periods) out.emplace_back(period.key, period.tokens, period.sessions);
  return out;
}

TEST(UsageReportTest, BucketsSlotsIntoTheWeeksAndMonthsOfTheZone) {
  using Kind = UsageReport::Period::Kind;
  struct Case {
    const char* name;
    const char* zone;
    Kind kind;
    const char* from;
    const char* to;
    std::vector<Reply> replies;
    PeriodFigures expected;
  };
  // clang-format off
  const std::vector<Case> cases = {
      {"weeks start on Monday; a session active in two weeks counts in each", "UTC", Kind::week,
       "2026-11-16T00:00:00Z", "2026-12-01T00:00:00Z",
       {{"2026-11-22T23:45:00Z", 1}, {"2026-11-23T00:00:00Z", 1}, {"2026-11-25T09:00:00Z", 2}},
       {{"2026-11-16", 100'000, 1}, {"2026-11-23", 200'000, 2}}},
      {"Kathmandu's Monday starts at 18:15 UTC on Sunday", "Asia/Kathmandu", Kind::week,
       "2026-11-19T18:15:00Z", "2026-11-24T18:15:00Z",
       {{"2026-11-22T18:00:00Z", 1}, {"2026-11-22T18:15:00Z", 2}},
       {{"2026-11-16", 100'000, 1}, {"2026-11-23", 100'000, 1}}},
      {"a New York week that ends in winter time has 169 hours", "America/New_York", Kind::week,
       "2026-10-26T04:00:00Z", "2026-11-09T05:00:00Z",
       {{"2026-10-26T04:00:00Z", 1}, {"2026-11-02T04:45:00Z", 2}, {"2026-11-02T05:00:00Z", 3}},
       {{"2026-10-26", 200'000, 2}, {"2026-11-02", 100'000, 1}}},
      {"a Berlin month ends at 23:00 UTC", "Europe/Berlin", Kind::month,
       "2026-10-31T23:00:00Z", "2027-01-31T23:00:00Z",
       {{"2026-11-01T00:00:00Z", 1}, {"2026-11-30T22:45:00Z", 1}, {"2026-11-30T23:00:00Z", 1}},
       {{"2026-11", 200'000, 1}, {"2026-12", 100'000, 1}}},
      {"a span that starts inside a week is cut there", "UTC", Kind::week,
       "2026-11-25T00:00:00Z", "2026-11-26T00:00:00Z",
       {{"2026-11-25T09:00:00Z", 4}}, {{"2026-11-23", 100'000, 1}}},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Calendar calendar = *Calendar::named(c.zone);
    const LedgerRows rows = ledger(c.from, c.to, c.replies);
    EXPECT_EQ(figures(UsageReport::periods(rows.from, rows.to, c.kind, calendar, prices,
                                           daysOf(rows, calendar))),
              c.expected);
  }
}

// A week is the sum of its (tool, model, day) bundles, each priced on its own, with the marks of
// what could not be priced plainly; a day total kept from before the ledger counts on a day with
// no slots of its tool.
TEST(UsageReportTest, PricesAWeekAsTheSumOfItsDays) {
  LedgerRows rows = ledger("2026-11-23T00:00:00Z", "2026-11-30T00:00:00Z",
                           {{"2026-11-23T10:00:00Z", 1, "m", 123'457},
                            {"2026-11-24T10:00:00Z", 1, "m", 76'543},
                            {"2026-11-24T11:00:00Z", 2, "borrowed", 50'000},
                            {"2026-11-25T11:00:00Z", 2, "nameless", 9'000, 0.25},
                            {"2026-11-26T11:00:00Z", 3, "nameless", 7'000}});
  TokenCounts kept;
  kept.output = 300'000;
  rows.keptDays = {KeptDay{ProviderID::codex, "m", "2026-11-27", kept, std::nullopt, 2},
                   KeptDay{ProviderID::claude, "m", "2026-11-23", kept, std::nullopt, 5}};
  const Calendar utc = Calendar::utc();
  const auto weeks = UsageReport::periods(rows.from, rows.to, UsageReport::Period::week, utc,
                                          prices, daysOf(rows, utc));
  ASSERT_EQ(weeks.size(), 1u);
  const UsageReport::Period& week = weeks[0];
  EXPECT_EQ(week.key, "2026-11-23");
  EXPECT_EQ(week.tokens, 123'457 + 76'543 + 50'000 + 9'000 + 7'000 + 300'000);
  EXPECT_EQ(week.sessions, 3 + 2);  // the Codex day's own count; Claude's kept day is covered
  ASSERT_TRUE(week.cost.usd);
  EXPECT_DOUBLE_EQ(*week.cost.usd, 1.23457 + 0.76543 + 0.5 + 0.25 + 3);
  EXPECT_TRUE(week.cost.approximate);
  EXPECT_TRUE(week.cost.unknown);
  UsageReport::Period whole = week;
  whole.key.clear();
  EXPECT_EQ(UsageReport::total(LedgerDays::of(rows, utc), prices), whole);
}

TEST(UsageReportTest, BlocksAreFiveHoursFromTheHourOfTheirFirstSlot) {
  const LedgerRows rows = ledger("2026-11-20T00:00:00Z", "2026-11-22T00:00:00Z",
                                 {{"2026-11-20T10:20:00Z", 1},
                                  {"2026-11-20T10:35:00Z", 2, "borrowed"},
                                  {"2026-11-20T14:59:00Z", 1},
                                  // at the first block's end: the next block
                                  {"2026-11-20T15:00:00Z", 1},
                                  // after a gap, from 23:00
                                  {"2026-11-20T23:40:00Z", 3, "m", 300'000},
                                  {"2026-11-21T00:10:00Z", 3, "nameless"}});
  // Past the last block nothing burns.
  const auto blocks = UsageReport::blocks(rows, prices, at("2026-11-21T09:00:00Z"));
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(std::tuple(blocks[0].start, blocks[0].end, blocks[0].sessions, blocks[0].tokens),
            std::tuple(at("2026-11-20T10:00:00Z"), at("2026-11-20T15:00:00Z"), 2, 300'000));
  EXPECT_EQ(blocks[0].models, (std::vector<std::string>{"borrowed", "m"}));
  EXPECT_EQ(blocks[0].cost, (UsageReport::Cost{3.0, true, false}));
  EXPECT_EQ(std::tuple(blocks[1].start, blocks[1].tokens),
            std::tuple(at("2026-11-20T15:00:00Z"), 100'000));
  EXPECT_EQ(std::tuple(blocks[2].start, blocks[2].end, blocks[2].cost),
            std::tuple(at("2026-11-20T23:00:00Z"), at("2026-11-21T04:00:00Z"),
                       UsageReport::Cost{3.0, false, true}));
  EXPECT_FALSE(blocks[0].burn || blocks[1].burn || blocks[2].burn);
  // Inside the last block ($3 and 400,000 tokens so far), its burn; the earlier blocks, none.
  const std::pair<const char*, UsageReport::Burn> burns[] = {
      {"2026-11-21T00:30:00Z", {2, 400'000 / 1.5, 3 + 2 * 3.5}},
      // 5 min in counts as a slot's 15 min
      {"2026-11-20T23:05:00Z", {12, 1'600'000, 3 + 12 * (4 + 55.0 / 60)}},
  };
  for (const auto& [now, burn] : burns) {
    SCOPED_TRACE(now);
    const auto during = UsageReport::blocks(rows, prices, at(now));
    ASSERT_EQ(during.size(), 3u);
    EXPECT_FALSE(during[0].burn || during[1].burn);
    ASSERT_TRUE(during[2].burn);
    EXPECT_DOUBLE_EQ(during[2].burn->usdPerHour, burn.usdPerHour);
    EXPECT_DOUBLE_EQ(during[2].burn->tokensPerHour, burn.tokensPerHour);
    EXPECT_DOUBLE_EQ(during[2].burn->projectedUSD, burn.projectedUSD);
  }
}

TEST(UsageReportTest, SessionsNewestFirstAndTheirProjects) {
  LedgerRows rows = ledger("2026-11-20T00:00:00Z", "2026-11-21T00:00:00Z",
                           {{"2026-11-20T08:00:00Z", 1, "m", 200'000},
                            {"2026-11-20T09:00:00Z", 1, "borrowed", 100'000},
                            {"2026-11-20T10:00:00Z", 2, "nameless", 50'000},
                            {"2026-11-20T07:00:00Z", 3, "m", 400'000},
                            {"2026-11-20T11:00:00Z", 8, "m"}});  // no such session
  rows.sessions[1].provider = ProviderID::codex;
  rows.sessions[1].project = "p1";  // Codex in Claude's folder
  rows.sessions[2].project.clear();
  rows.sessions.erase(rows.sessions.begin() + 7);

  const auto sessions = UsageReport::sessions(rows, prices);
  // (id, tool, tokens, cost) of each session; the second's models and span.
  std::vector<std::tuple<std::string, ProviderID, int64_t, UsageReport::Cost>> got;
  for (const auto& s : sessions) got.emplace_back(s.sessionID, s.provider, s.tokens, s.cost);
  EXPECT_EQ(got, (decltype(got){{"s2", ProviderID::codex, 50'000, {std::nullopt, false, true}},
                                {"s1", ProviderID::claude, 300'000, {3.0, true, false}},
                                {"s3", ProviderID::claude, 400'000, {4.0, false, false}}}));
  EXPECT_EQ(sessions[1].models, (std::vector<std::string>{"borrowed", "m"}));
  EXPECT_EQ(std::pair(sessions[1].firstReply, sessions[1].lastReply),
            std::pair(at("2026-11-20T08:00:00Z"), at("2026-11-20T09:01:00Z")));

  const auto projects = UsageReport::projects(sessions);
  ASSERT_EQ(projects.size(), 2u);
  EXPECT_EQ(projects[0].project, "");  // $4 before $3
  EXPECT_EQ(projects[1].project, "p1");
  EXPECT_EQ(projects[1].tools, (std::vector<ProviderID>{ProviderID::claude, ProviderID::codex}));
  EXPECT_EQ(projects[1].sessions, 2);
  EXPECT_EQ(projects[1].tokens, 350'000);
  EXPECT_EQ(projects[1].cost, (UsageReport::Cost{3.0, true, true}));
  EXPECT_EQ(projects[1].lastActive, at("2026-11-20T10:01:00Z"));
}

}  // namespace
}  // namespace brimlog
