#include "output/ReportSheet.hpp"

#include <fmt/format.h>

#include <cmath>

#include "output/CsvWriter.hpp"
#include "output/TextTable.hpp"

namespace brimlog {
namespace {

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

// A number as data: at most six decimals, no trailing zeros, never an exponent.
std::string decimal(double value) {
  std::string text = fmt::format("{:.6f}", value);
  while (text.back() == '0') text.pop_back();
  if (text.back() == '.') text.pop_back();
  return text == "-0" ? "0" : text;
}

std::string joined(const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& item : items) {
    if (!out.empty()) out += ", ";
    out += item;
  }
  return out;
}

std::vector<std::string> names(const std::vector<ProviderID>& tools, bool display) {
  std::vector<std::string> out;
  for (const ProviderID tool : tools) {
    out.emplace_back(display ? tool.displayName() : tool.rawValue());
  }
  return out;
}

bool rightAligned(ReportSheet::Kind kind) {
  using Kind = ReportSheet::Kind;
  return kind == Kind::count || kind == Kind::money || kind == Kind::share;
}

// A cell as the table shows it.
std::string shown(const ReportSheet::Value& value, ReportSheet::Kind kind,
                  const Calendar& calendar) {
  return std::visit(
      Overloaded{
          [](std::monostate) { return std::string(); },
          [](const std::string& text) { return text; },
          [](int64_t count) { return formatCount(count); },
          [](double share) { return fmt::format("{:.1f}%", share * 100); },
          [](bool flag) { return std::string(flag ? "yes" : ""); },
          [&](Date date) {
            return kind == ReportSheet::Kind::clock
                       ? formatClock(date, calendar)
                       : fmt::format("{} {}", calendar.dayKey(date), formatClock(date, calendar));
          },
          [](const ReportSheet::Money& money) {
            if (!money.usd) return std::string("-");
            return fmt::format("{}{}", money.approximate ? "~" : "", formatUSD(*money.usd));
          },
          [](ProviderID tool) { return std::string(tool.displayName()); },
          [](const std::vector<std::string>& items) { return joined(items); },
          [](const std::vector<ProviderID>& tools) { return joined(names(tools, true)); },
      },
      value);
}

// A cell as CSV gives it.
std::string plain(const ReportSheet::Value& value) {
  return std::visit(
      Overloaded{
          [](std::monostate) { return std::string(); },
          [](const std::string& text) { return text; },
          [](int64_t count) { return std::to_string(count); },
          [](double number) { return decimal(number); },
          [](bool flag) { return std::string(flag ? "true" : "false"); },
          [](Date date) { return formatISO8601(date); },
          [](const ReportSheet::Money& money) {
            return money.usd ? decimal(moneyFigure(*money.usd)) : std::string();
          },
          [](ProviderID tool) { return std::string(tool.rawValue()); },
          [](const std::vector<std::string>& items) { return joined(items); },
          [](const std::vector<ProviderID>& tools) { return joined(names(tools, false)); },
      },
      value);
}

}  // namespace

double moneyFigure(double usd) {
  const double rounded = std::round(usd * 1e6) / 1e6;
  return rounded == 0 ? 0.0 : rounded;  // never "-0"
}

std::string ReportSheet::table(const Calendar& calendar, std::optional<size_t> width) const {
  std::vector<TextTable::Column> shownColumns;
  for (const Column& column : columns) {
    if (!column.inTable) continue;
    shownColumns.push_back({column.heading,
                            rightAligned(column.kind) ? TextTable::right : TextTable::left,
                            column.shortenOrder});
  }
  TextTable text{shownColumns};
  auto cells = [&](const std::vector<Value>& row, bool total) {
    std::vector<std::string> out;
    for (size_t i = 0; i < columns.size() && i < row.size(); ++i) {
      if (!columns[i].inTable) continue;
      const bool empty = std::holds_alternative<std::monostate>(row[i]);
      out.push_back(empty && !total ? columns[i].blank : shown(row[i], columns[i].kind, calendar));
    }
    return out;
  };
  for (const auto& row : rows) text.addRow(cells(row, false));
  if (!total.empty()) {
    text.addRule();
    text.addRow(cells(total, true));
  }
  return text.render(width);
}

std::string ReportSheet::csv() const {
  std::vector<std::string> header;
  for (const Column& column : columns) {
    if (column.inData) header.push_back(column.key);
  }
  std::string out = CsvWriter::record(header);
  for (const auto& row : rows) {
    std::vector<std::string> fields;
    for (size_t i = 0; i < columns.size(); ++i) {
      if (columns[i].inData) fields.push_back(i < row.size() ? plain(row[i]) : std::string());
    }
    out += CsvWriter::record(fields);
  }
  return out;
}

Json ReportSheet::json(const std::vector<Value>& row) const {
  Json object = Json::object();
  for (size_t i = 0; i < columns.size() && i < row.size(); ++i) {
    if (!columns[i].inData) continue;
    const std::string& key = columns[i].key;
    std::visit(Overloaded{
                   [](std::monostate) {},
                   [&](const std::string& text) { object[key] = text; },
                   [&](int64_t count) { object[key] = count; },
                   [&](double number) { object[key] = json::finite(number, key); },
                   [&](bool flag) { object[key] = flag; },
                   [&](Date date) { object[key] = formatISO8601(date); },
                   [&](const Money& money) {
                     if (money.usd) object[key] = json::finite(*money.usd, key);
                   },
                   [&](ProviderID tool) { object[key] = tool.rawValue(); },
                   [&](const std::vector<std::string>& items) { object[key] = items; },
                   [&](const std::vector<ProviderID>& tools) { object[key] = names(tools, false); },
               },
               row[i]);
  }
  return object;
}

Json ReportSheet::rowsJson() const {
  Json list = Json::array();
  for (const auto& row : rows) list.push_back(json(row));
  return list;
}

}  // namespace brimlog
