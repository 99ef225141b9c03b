#pragma once

#include <string>
#include <vector>

namespace brimlog {

/// A plain-text table with aligned columns, for terminals and for pasting into notes.
///
///     TextTable table{{"Day", TextTable::left}, {"Cost", TextTable::right}};
///     table.addRow({"2026-11-20", "$1.25"});
///     table.addRule();
///     table.addRow({"Total", "$1.25"});
///     std::string text = table.render();
class TextTable {
 public:
  enum Align { left, right };

  struct Column {
    std::string heading;
    Align align = left;
  };

  explicit TextTable(std::vector<Column> columns);

  /// A row of cells, one per column (missing cells are blank).
  void addRow(std::vector<std::string> cells);
  /// A line of dashes across the table, before totals.
  void addRule();

  /// The heading, a rule under it, and every row; each line ends with a line feed and carries no
  /// trailing spaces. Widths count characters, not bytes, so UTF-8 text aligns.
  std::string render() const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;  // an empty row stands for a rule
};

/// 1234567 as "1,234,567".
std::string formatCount(int64_t value);
/// 1234.5 as "$1,234.50"; negative amounts as "-$3.00".
std::string formatUSD(double value);
/// 12.3456 (bytes) as "12 B", 1536 as "1.5 KB", up to "GB".
std::string formatBytes(int64_t bytes);

}  // namespace brimlog
