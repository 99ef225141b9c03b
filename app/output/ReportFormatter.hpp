#pragma once

#include <string>
#include <string_view>

#include "platform/Calendar.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {

/// The `brimlog report` views of a usage summary, as aligned plain-text tables with a total row.
/// Costs are list-price dollars with cents; a "~" before a cost marks it approximate (a borrowed
/// price or a cost the tool reported), and "-" stands for usage with no known price.
class ReportFormatter {
 public:
  enum class View { daily, models, tools };

  /// "daily", "models" or "tools".
  static std::optional<View> viewNamed(std::string_view name);

  /// The title line, the table of the view, and notes on approximate or unknown costs. Days are
  /// shown in `calendar`, the one the summary was built with.
  static std::string render(const UsageSummary& summary, View view, const Calendar& calendar);

 private:
  static std::string daily(const UsageSummary& summary, const Calendar& calendar);
  static std::string models(const UsageSummary& summary);
  static std::string tools(const UsageSummary& summary);
};

}  // namespace brimlog
