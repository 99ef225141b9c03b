#pragma once

#include <string>

#include "output/ReportContent.hpp"
#include "platform/Calendar.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// `brimlog report --json`. The daily, models and tools views print the usage summary with its
/// own keys, calendar days as dates ("2026-11-24", not instants) and no row without usage in any
/// series (a tool's days without use, a tool or model whose rows are all empty). The views of the
/// ledger print their days, zone and filters, their sheet's rows under "rows" (see
/// `ReportFormatter::sheet`), and the totals. Fractional numbers (costs, shares) are given to the
/// millionth: `moneyFigure`.
struct ReportJson {
  static Json of(const ReportContent& content, const Calendar& calendar);
  /// `of`, rounded and indented as printed.
  static std::string write(const ReportContent& content, const Calendar& calendar);
};

}  // namespace brimlog
