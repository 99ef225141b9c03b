#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "model/ProviderID.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// Money as data (JSON and CSV) is given to the millionth of a dollar: 13.883512, not the
/// 13.883511999999998 that adding up doubles leaves.
double moneyFigure(double usd);

/// One report view as named columns of typed values: its table, its CSV and its JSON are all
/// written from it, so the three forms never disagree. The table shows values as people read
/// them (local times, "$1,234.50", "~" for an approximate cost, "-" for an unknown one); the data
/// forms show them plainly (ISO 8601 UTC instants, dollars without signs or separators, tools by
/// their raw value).
///
///     ReportSheet sheet;
///     sheet.columns = {{"Week", "week", ReportSheet::Kind::day}, ...};
///     sheet.rows.push_back({std::string("2026-11-23"), ...});
///     sheet.table(calendar, 80);
struct ReportSheet {
  enum class Kind {
    text,   // std::string
    day,    // std::string: "2026-11-24", or "2026-11" for a month
    tool,   // ProviderID
    tools,  // std::vector<ProviderID>
    names,  // std::vector<std::string>
    count,  // int64_t
    money,  // Money
    share,  // double from 0 to 1
    time,   // Date: day and local time in the table
    clock,  // Date: local time alone in the table
    flag,   // bool
  };

  struct Money {
    std::optional<double> usd;  // absent: unknown
    bool approximate = false;
  };

  /// A cell; std::monostate is an empty one (left out of JSON). A std::string is accepted in
  /// any column (a total row's "Total").
  using Value = std::variant<std::monostate, std::string, int64_t, double, bool, Date, Money,
                             ProviderID, std::vector<std::string>, std::vector<ProviderID>>;

  struct Column {
    Column(std::string heading, std::string key, Kind kind, int shortenOrder = 0,
           std::string blank = {})
        : heading(std::move(heading)),
          key(std::move(key)),
          kind(kind),
          shortenOrder(shortenOrder),
          blank(std::move(blank)) {}
    /// A column of the data forms alone (what the table shows otherwise, such as "~").
    static Column dataOnly(std::string key, Kind kind) {
      Column column{"", std::move(key), kind};
      column.inTable = false;
      return column;
    }
    /// A column of the table alone (what the data has in other columns).
    static Column tableOnly(std::string heading) {
      Column column{std::move(heading), "", Kind::text};
      column.inData = false;
      return column;
    }

    std::string heading;  // in the table
    std::string key;      // the CSV header and the JSON key
    Kind kind = Kind::text;
    /// For the table: 0 never shortened, else the order in which it gives way to fit a width.
    int shortenOrder = 0;
    /// For the table: what an empty cell of a row (not the total) shows, such as "(unknown)".
    std::string blank;
    bool inTable = true;
    bool inData = true;
  };

  std::vector<Column> columns;
  std::vector<std::vector<Value>> rows;
  /// The table's total row; empty for none. The data forms leave it out of the rows.
  std::vector<Value> total;

  /// The table, fitted to `width` when given; times in `calendar`.
  std::string table(const Calendar& calendar, std::optional<size_t> width) const;
  /// A header of the keys, then a record per row.
  std::string csv() const;
  /// A row as an object keyed by the columns' keys.
  Json json(const std::vector<Value>& row) const;
  /// Every row as `json` gives it.
  Json rowsJson() const;
};

}  // namespace brimlog
