#pragma once

#include <optional>
#include <string>

#include "output/ReportContent.hpp"
#include "output/ReportSheet.hpp"
#include "platform/Calendar.hpp"

namespace brimlog {

/// The `brimlog report` views: each as a sheet of named columns (see `ReportSheet`), and as the
/// text a person reads: a title line, the view's table (with a total row where one adds up), and
/// notes on approximate or unknown costs. Costs are list-price dollars with cents; a "~" before
/// a cost marks it approximate (a borrowed price or a cost the tool reported), and "-" stands for
/// usage with no known price.
class ReportFormatter {
 public:
  using View = ReportContent::View;

  /// The view's columns and rows. Days and times are those of `calendar`, the report's zone.
  static ReportSheet sheet(const ReportContent& content, const Calendar& calendar);

  /// The title line, the table (fitted to `width` when given) and the notes.
  static std::string render(const ReportContent& content, const Calendar& calendar,
                            std::optional<size_t> width = std::nullopt);
};

}  // namespace brimlog
