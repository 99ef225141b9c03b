#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Calendar.hpp"

namespace brimlog {

/// A plain-text table with aligned columns, for terminals and for pasting into notes.
///
/// A table may be fitted to a width: then the text columns that may be shortened give up width,
/// in their order (columns of one order evenly), each down to its heading's width, and their
/// longer cells end in "…"; every other column (numbers, dates) keeps its whole values, so a
/// table of many of those may still be wider. Lines are never wrapped.
///
///     TextTable table{{"Day", TextTable::left}, {"Cost", TextTable::right}};
///     table.addRow({"2026-11-20", "$1.25"});
///     table.addRule();
///     table.addRow({"Total", "$1.25"});
///     std::string text = table.render();
///     std::string fitted = table.render(80);
class TextTable {
 public:
  enum Align { left, right };

  struct Column {
    std::string heading;
    Align align = left;
    /// 0: never shortened; else the order in which columns are shortened to fit (1 first;
    /// columns of the same order give way together).
    int shortenOrder = 0;
  };

  explicit TextTable(std::vector<Column> columns);

  /// A row of cells, one per column (missing cells are blank).
  void addRow(std::vector<std::string> cells);
  /// A line of dashes across the table, before totals.
  void addRule();

  /// The heading, a rule under it, and every row; each line ends with a line feed and carries no
  /// trailing spaces. Widths count characters, not bytes, so UTF-8 text aligns. With a `width`,
  /// the table is fitted to it (see above).
  std::string render(std::optional<size_t> width = std::nullopt) const;

 private:
  // Narrows the columns that may be shortened until the table fits `width`, or they can give up
  // nothing more.
  void fit(std::vector<size_t>& widths, size_t width) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // an empty row stands for a rule
};

/// The columns UTF-8 text takes: one per character (every byte that does not continue a
/// sequence starts one).
size_t textWidth(std::string_view text);
/// `text` cut to `width` columns, ending in "…" when it was longer.
std::string shortened(std::string_view text, size_t width);

/// 1234567 as "1,234,567".
std::string formatCount(int64_t value);
/// 1234.5 as "$1,234.50"; negative amounts as "-$3.00".
std::string formatUSD(double value);
/// The local time of day of `date` in `calendar`, as "09:30".
std::string formatClock(Date date, const Calendar& calendar);
/// 12.3456 (bytes) as "12 B", 1536 as "1.5 KB", up to "GB".
std::string formatBytes(int64_t bytes);

}  // namespace brimlog
