#include "cli/ReportBuilder.hpp"

#include <algorithm>

#include "share/SharedLedger.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageReport.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

// How far before the report's days the blocks view starts its walk: a day, which holds a gap of
// five quiet hours, after which blocks start afresh, unless the tools ran all day.
constexpr double kBlockLookback = 24 * 3600;

}  // namespace

void ReportBuilder::fill(ReportContent& content, LedgerSource& source, const Calendar& calendar,
                         const PriceTable& prices) {
  if (ReportContent::fromSummary(content.view)) {
    content.summary =
        summaryOf(source, content.window, calendar, prices, content.tool, content.project);
    return;
  }
  // The ledger's rows of the report's days, from the first one's start to the next day's.
  const Date from =
      content.window.dates.empty() ? content.window.today : content.window.dates.front();
  const Date to = calendar.startOfDay(
      calendar.addingDays(1, content.window.today).value_or(content.window.today));
  const LedgerFilter filter{from, to, content.tool, content.project};
  switch (content.view) {
    case ReportContent::View::weekly:
    case ReportContent::View::monthly: {
      const auto daysOf = [&](Date start, Date end) {
        return source.days({start, end, content.tool, content.project}, calendar);
      };
      const auto kind = content.view == ReportContent::View::weekly ? UsageReport::Period::week
                                                                    : UsageReport::Period::month;
      content.periods = UsageReport::periods(from, to, kind, calendar, prices, daysOf);
      content.total = UsageReport::total(daysOf(from, to), prices);
      break;
    }
    case ReportContent::View::blocks: {
      // Blocks are found by walking the replies from some time before the days, so a block
      // that runs into them (the current one, just after midnight) starts where it started.
      LedgerFilter walk = filter;
      walk.from = from - Seconds{kBlockLookback};
      content.blocks = UsageReport::blocks(source.ledger(walk), prices, content.now);
      std::erase_if(content.blocks, [&](const UsageReport::Block& b) { return b.end <= from; });
      break;
    }
    default:
      content.sessions = UsageReport::sessions(source.ledger(filter), prices);
      content.projects = UsageReport::projects(content.sessions);
  }
}

void ReportBuilder::fillMachines(ReportContent& content, SharedLedger& shared,
                                 const std::string& target, const SharedFilter& filter,
                                 const Calendar& calendar, const PriceTable& prices) {
  for (const SharedMachine& machine : shared.machines()) {
    SharedLedger one{target, {.machine = machine.machine, .user = filter.user}};
    const UsageSummary summary =
        summaryOf(one, content.window, calendar, prices, content.tool, content.project);
    UsageReport::Cost cost{summary.totalCostUSD, false, summary.hasUnknownPrices};
    for (const UsageSummary::Tool& tool : summary.tools) {
      cost.approximate = cost.approximate || tool.approximate;
    }
    content.machines.push_back({machine.machine, machine.user, machine.lastShared, summary.sessions,
                                summary.tokens.processed(), cost});
  }
}

}  // namespace brimlog
