#include "output/ReportFormatter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "output/TextTable.hpp"

namespace brimlog {
namespace {

using Column = ReportSheet::Column;
using Kind = ReportSheet::Kind;
using Money = ReportSheet::Money;
using Value = ReportSheet::Value;

Money money(const UsageReport::Cost& cost) { return {cost.usd, cost.approximate}; }

bool anyApproximate(const UsageSummary& summary) {
  for (const UsageSummary::Tool& tool : summary.tools) {
    if (tool.approximate) return true;
  }
  return false;
}

// Whether any of the view's costs is approximate, and whether any usage had no price.
std::pair<bool, bool> marks(const ReportContent& content) {
  if (ReportContent::fromSummary(content.view)) {
    return {anyApproximate(content.summary), content.summary.hasUnknownPrices};
  }
  UsageReport::Cost all = content.total.cost;
  for (const auto& row : content.sessions) all += row.cost;
  for (const auto& row : content.blocks) all += row.cost;
  for (const auto& row : content.machines) all += row.cost;
  return {all.approximate, all.unknown};
}

bool empty(const ReportContent& content) {
  switch (content.view) {
    case ReportContent::View::weekly:
    case ReportContent::View::monthly:
      return content.periods.empty();
    case ReportContent::View::sessions:
    case ReportContent::View::projects:
      return content.sessions.empty();
    case ReportContent::View::blocks:
      return content.blocks.empty();
    case ReportContent::View::machines:
      return content.machines.empty();
    default:
      return content.summary.tools.empty();
  }
}

void daily(const UsageSummary& summary, const Calendar& calendar, ReportSheet& sheet) {
  // One cost column per tool with data, in the usual tool order.
  std::vector<const UsageSummary::Tool*> tools;
  for (ProviderID provider : ProviderID::allCases) {
    for (const UsageSummary::Tool& tool : summary.tools) {
      if (tool.provider == provider) tools.push_back(&tool);
    }
  }
  // (day, provider) -> cost, for the days on which the tool was used.
  std::map<std::pair<double, int>, double> costs;
  for (const UsageSummary::DayPoint& point : summary.daily) {
    if (point.tokens == 0 && point.costUSD == 0) continue;
    costs[{unixSeconds(point.day), point.provider.index()}] += point.costUSD;
  }
  // Days whose figures were kept from an older database, whose logs are gone: marked in the
  // table, flagged in the data.
  const bool anyKept = std::any_of(summary.perDay.begin(), summary.perDay.end(),
                                   [](const UsageSummary::DayRow& row) { return row.kept; });
  sheet.columns = {{"Day", "day", Kind::day}};
  if (anyKept) {
    sheet.columns.push_back(Column::tableOnly(""));
    sheet.columns.push_back(Column::dataOnly("kept", Kind::flag));
  }
  for (const UsageSummary::Tool* tool : tools) {
    sheet.columns.push_back({std::string(tool->provider.displayName()),
                             std::string(tool->provider.rawValue()) + "USD", Kind::money});
  }
  sheet.columns.push_back({"Sessions", "sessions", Kind::count});
  sheet.columns.push_back({"Tokens", "tokens", Kind::count});
  sheet.columns.push_back({"Cost", "costUSD", Kind::money});

  for (const UsageSummary::DayRow& row : summary.perDay) {
    std::vector<Value> cells{calendar.dayKey(row.day)};
    if (anyKept) {
      cells.push_back(std::string(row.kept ? "*" : ""));
      cells.push_back(row.kept ? Value{true} : Value{});
    }
    for (const UsageSummary::Tool* tool : tools) {
      const auto found = costs.find({unixSeconds(row.day), tool->provider.index()});
      cells.push_back(found == costs.end() ? Value{} : Money{found->second});
    }
    cells.insert(cells.end(), {row.sessions, row.tokens, Money{row.costUSD}});
    sheet.rows.push_back(std::move(cells));
  }
  sheet.total = {std::string("Total")};
  if (anyKept) sheet.total.insert(sheet.total.end(), {std::string(), Value{}});
  int64_t tokens = 0;
  for (const UsageSummary::Tool* tool : tools) {
    sheet.total.push_back(Money{tool->costUSD, tool->approximate});
    tokens += tool->tokens;
  }
  sheet.total.insert(sheet.total.end(), {summary.sessions, tokens,
                                         Money{summary.totalCostUSD, anyApproximate(summary)}});
}

void models(const UsageSummary& summary, ReportSheet& sheet) {
  sheet.columns = {{"Tool", "tool", Kind::tool},
                   {"Model", "model", Kind::text},
                   {"Input", "input", Kind::count},
                   {"Cache read", "cacheRead", Kind::count},
                   {"Cache write", "cacheWrite", Kind::count},
                   {"Output", "output", Kind::count},
                   {"Reasoning", "reasoning", Kind::count},
                   {"Cost", "costUSD", Kind::money},
                   Column::dataOnly("approximate", Kind::flag),
                   {"Share", "costShare", Kind::share}};
  for (const UsageSummary::ModelRow& row : summary.models) {
    const TokenCounts& t = row.tokens;
    sheet.rows.push_back({row.provider, row.model, t.uncachedInput, t.cacheRead, t.cacheWrite(),
                          t.output, t.reasoning, Money{row.costUSD, row.approximate},
                          row.approximate, row.costShare});
  }
  const TokenCounts& t = summary.tokens;
  sheet.total = {std::string("Total"),
                 std::string(),
                 t.uncachedInput,
                 t.cacheRead,
                 t.cacheWrite(),
                 t.output,
                 t.reasoning,
                 Money{summary.totalCostUSD, anyApproximate(summary)},
                 Value{},
                 std::string("100.0%")};
}

void tools(const UsageSummary& summary, ReportSheet& sheet) {
  sheet.columns = {{"Tool", "tool", Kind::tool},
                   {"Sessions", "sessions", Kind::count},
                   {"Tokens", "tokens", Kind::count},
                   {"Token share", "tokenShare", Kind::share},
                   {"Cost", "costUSD", Kind::money},
                   Column::dataOnly("approximate", Kind::flag),
                   {"Cost share", "costShare", Kind::share}};
  int64_t tokens = 0;
  for (const UsageSummary::Tool& tool : summary.tools) {
    sheet.rows.push_back({tool.provider, tool.sessions, tool.tokens, tool.tokenShare,
                          Money{tool.costUSD, tool.approximate}, tool.approximate, tool.costShare});
    tokens += tool.tokens;
  }
  sheet.total = {std::string("Total"),
                 summary.sessions,
                 tokens,
                 std::string("100.0%"),
                 Money{summary.totalCostUSD, anyApproximate(summary)},
                 Value{},
                 std::string("100.0%")};
}

// The columns every ledger view ends with.
void addFigures(ReportSheet& sheet) {
  sheet.columns.push_back({"Tokens", "tokens", Kind::count});
  sheet.columns.push_back({"Cost", "costUSD", Kind::money});
  sheet.columns.push_back(Column::dataOnly("approximate", Kind::flag));
}

void periods(const ReportContent& content, ReportSheet& sheet) {
  const bool weeks = content.view == ReportContent::View::weekly;
  sheet.columns = {{weeks ? "Week" : "Month", weeks ? "week" : "month", Kind::day},
                   {"Sessions", "sessions", Kind::count}};
  addFigures(sheet);
  for (const UsageReport::Period& period : content.periods) {
    sheet.rows.push_back(
        {period.key, period.sessions, period.tokens, money(period.cost), period.cost.approximate});
  }
  const UsageReport::Period& total = content.total;
  sheet.total = {std::string("Total"), total.sessions, total.tokens, money(total.cost)};
}

// A session's replies as one cell: "2026-11-20 09:30–11:45", the second day given only when it
// differs, and one time for replies within a minute.
std::string activeText(Date first, Date last, const Calendar& calendar) {
  const std::string firstDay = calendar.dayKey(first), lastDay = calendar.dayKey(last);
  const std::string from = formatClock(first, calendar), to = formatClock(last, calendar);
  if (firstDay == lastDay) {
    return from == to ? fmt::format("{} {}", firstDay, from)
                      : fmt::format("{} {}–{}", firstDay, from, to);
  }
  return fmt::format("{} {}–{} {}", firstDay, from, lastDay, to);
}

void sessions(const ReportContent& content, const Calendar& calendar, ReportSheet& sheet) {
  sheet.columns = {{"Tool", "tool", Kind::tool},
                   Column::dataOnly("session", Kind::text),
                   {"Project", "project", Kind::text, 1, "(unknown)"},
                   Column::tableOnly("Active"),
                   Column::dataOnly("firstReply", Kind::time),
                   Column::dataOnly("lastReply", Kind::time),
                   {"Models", "models", Kind::names, 1}};
  addFigures(sheet);
  int64_t tokens = 0;
  UsageReport::Cost cost;
  for (const UsageReport::Session& session : content.sessions) {
    sheet.rows.push_back({session.provider, session.sessionID,
                          session.project.empty() ? Value{} : session.project,
                          activeText(session.firstReply, session.lastReply, calendar),
                          session.firstReply, session.lastReply, session.models, session.tokens,
                          money(session.cost), session.cost.approximate});
    tokens += session.tokens;
    cost += session.cost;
  }
  sheet.total = {std::string("Total"), Value{}, Value{}, Value{}, Value{}, Value{}, Value{}, tokens,
                 money(cost)};
}

void projects(const ReportContent& content, ReportSheet& sheet) {
  sheet.columns = {{"Project", "project", Kind::text, 1, "(unknown)"},
                   {"Tools", "tools", Kind::tools},
                   {"Sessions", "sessions", Kind::count}};
  addFigures(sheet);
  sheet.columns.push_back({"Last active", "lastActive", Kind::time});
  int64_t sessions = 0, tokens = 0;
  UsageReport::Cost cost;
  for (const UsageReport::Project& project : content.projects) {
    sheet.rows.push_back({project.project.empty() ? Value{} : project.project, project.tools,
                          project.sessions, project.tokens, money(project.cost),
                          project.cost.approximate, project.lastActive});
    sessions += project.sessions;
    tokens += project.tokens;
    cost += project.cost;
  }
  sheet.total = {std::string("Total"), Value{}, sessions, tokens, money(cost)};
}

void blocks(const ReportContent& content, ReportSheet& sheet) {
  sheet.columns = {{"Start", "start", Kind::time},
                   {"End", "end", Kind::clock},
                   {"Models", "models", Kind::names, 1},
                   {"Sessions", "sessions", Kind::count}};
  addFigures(sheet);
  sheet.columns.push_back(Column::tableOnly(""));
  sheet.columns.push_back(Column::dataOnly("active", Kind::flag));
  sheet.columns.push_back(Column::dataOnly("burnRateUSDPerHour", Kind::money));
  sheet.columns.push_back(Column::dataOnly("tokensPerHour", Kind::count));
  sheet.columns.push_back(Column::dataOnly("projectedCostUSD", Kind::money));
  for (const UsageReport::Block& block : content.blocks) {
    std::vector<Value> row{block.start,  block.end,         block.models,          block.sessions,
                           block.tokens, money(block.cost), block.cost.approximate};
    if (block.burn) {
      row.insert(row.end(), {std::string("active"), true, Money{block.burn->usdPerHour},
                             static_cast<int64_t>(std::llround(block.burn->tokensPerHour)),
                             Money{block.burn->projectedUSD}});
    } else {
      row.insert(row.end(), {Value{}, false});
    }
    sheet.rows.push_back(std::move(row));
  }
}

void machines(const ReportContent& content, ReportSheet& sheet) {
  sheet.columns = {{"Machine", "machine", Kind::text},
                   {"User", "user", Kind::text, 1, "-"},
                   {"Last shared", "lastShared", Kind::time},
                   {"Sessions", "sessions", Kind::count}};
  addFigures(sheet);
  int64_t sessions = 0, tokens = 0;
  UsageReport::Cost cost;
  for (const ReportContent::Machine& machine : content.machines) {
    sheet.rows.push_back({machine.machine, machine.user.empty() ? Value{} : machine.user,
                          machine.lastShared, machine.sessions, machine.tokens, money(machine.cost),
                          machine.cost.approximate});
    sessions += machine.sessions;
    tokens += machine.tokens;
    cost += machine.cost;
  }
  sheet.total = {std::string("Total"), Value{}, Value{}, sessions, tokens, money(cost)};
}

std::string title(const ReportContent& content, const Calendar& calendar) {
  const SummaryWindow& window = content.window;
  std::string out = fmt::format(
      "Usage of {}{} day{}, {} to {} ({})", content.endsToday ? "the last " : "", window.days,
      window.days == 1 ? "" : "s", window.firstKey, window.lastKey, calendar.zoneName());
  if (content.tool || content.project) {
    out += "; only ";
    if (content.tool) out += content.tool->displayName();
    if (content.tool && content.project) out += " in ";
    if (content.project) out += *content.project;
  }
  if (!content.source.empty()) out += "; shared in " + content.source;
  return out + "\n\n";
}

std::string notes(const ReportContent& content, const Calendar& calendar) {
  std::string out;
  if (content.view == ReportContent::View::models && content.summary.cacheSavingsUSD > 0) {
    out += fmt::format("\nPrompt caching saved {} at list prices.\n",
                       formatUSD(content.summary.cacheSavingsUSD));
  }
  for (const UsageReport::Block& block : content.blocks) {
    if (!block.burn || content.view != ReportContent::View::blocks) continue;
    out += fmt::format("\nActive block: {} and {} tokens an hour so far; {} by {} at this rate.\n",
                       formatUSD(block.burn->usdPerHour),
                       formatCount(std::llround(block.burn->tokensPerHour)),
                       formatUSD(block.burn->projectedUSD), formatClock(block.end, calendar));
  }
  const auto [approximate, unknown] = marks(content);
  std::string marked;
  if (approximate) {
    marked +=
        "~ approximate: some usage is priced at a related model's list price or at the cost "
        "the tool reported.\n";
  }
  if (unknown) marked += "Some usage has no known price and is left out of the costs.\n";
  if (content.view == ReportContent::View::daily &&
      std::any_of(content.summary.perDay.begin(), content.summary.perDay.end(),
                  [](const UsageSummary::DayRow& row) { return row.kept; })) {
    marked +=
        "* day totals kept from an older database: the logs of that day are gone, and its day is "
        "that of the zone the older Brimlog ran in.\n";
  }
  return marked.empty() ? out : out + '\n' + marked;
}

}  // namespace

ReportSheet ReportFormatter::sheet(const ReportContent& content, const Calendar& calendar) {
  ReportSheet sheet;
  switch (content.view) {
    case View::daily:
      daily(content.summary, calendar, sheet);
      break;
    case View::models:
      models(content.summary, sheet);
      break;
    case View::tools:
      tools(content.summary, sheet);
      break;
    case View::weekly:
    case View::monthly:
      periods(content, sheet);
      break;
    case View::sessions:
      sessions(content, calendar, sheet);
      break;
    case View::projects:
      projects(content, sheet);
      break;
    case View::blocks:
      blocks(content, sheet);
      break;
    case View::machines:
      machines(content, sheet);
      break;
  }
  return sheet;
}

std::string ReportFormatter::render(const ReportContent& content, const Calendar& calendar,
                                    std::optional<size_t> width) {
  const std::string heading = title(content, calendar);
  if (empty(content)) return heading + "No usage recorded in this period.\n";
  return heading + sheet(content, calendar).table(calendar, width) + notes(content, calendar);
}

}  // namespace brimlog
