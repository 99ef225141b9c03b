#include "store/LedgerSource.hpp"

#include <utility>

#include "store/SummaryBuilder.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

UsageSummary summaryOf(LedgerSource& source, const SummaryWindow& window, const Calendar& calendar,
                       const PriceTable& prices, std::optional<ProviderID> tool,
                       std::optional<std::string> project) {
  LedgerFilter filter;
  filter.from = window.dates.empty() ? window.today : window.dates.front();
  filter.to = calendar.addingDays(1, window.today).value_or(window.today + Seconds{86400});
  filter.provider = tool;
  filter.project = std::move(project);
  return buildSummary(window, source.days(filter, calendar), prices);
}

}  // namespace brimlog
