#include "output/TextTable.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace brimlog {
namespace {

bool startsCharacter(char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }

std::string grouped(uint64_t value) {
  std::string digits = std::to_string(value);
  std::string out;
  const size_t lead = digits.size() % 3 == 0 ? 3 : digits.size() % 3;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i >= lead && (i - lead) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

}  // namespace

size_t textWidth(std::string_view text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), startsCharacter));
}

std::string shortened(std::string_view text, size_t width) {
  if (textWidth(text) <= width) return std::string(text);
  if (width == 0) return {};
  // Keep the first width - 1 characters whole, then the ellipsis.
  size_t kept = 0, end = 0;
  for (; end < text.size(); ++end) {
    if (startsCharacter(text[end]) && kept++ == width - 1) break;
  }
  return std::string(text.substr(0, end)) + "…";
}

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

void TextTable::addRow(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  rows_.push_back(std::move(cells));
}

void TextTable::addRule() { rows_.emplace_back(); }

std::string TextTable::render(std::optional<size_t> width) const {
  std::vector<size_t> widths;
  for (const Column& column : columns_) widths.push_back(textWidth(column.heading));
  for (const auto& row : rows_) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], textWidth(row[i]));
  }
  if (width) fit(widths, *width);
  auto line = [&](const std::vector<std::string>& cells) {
    std::string out;
    for (size_t i = 0; i < columns_.size(); ++i) {
      const std::string cell = shortened(cells[i], widths[i]);
      const std::string pad(widths[i] - textWidth(cell), ' ');
      if (i > 0) out += "  ";
      if (columns_[i].align == right) out += pad;
      out += cell;
      if (columns_[i].align == left) out += pad;
    }
    while (!out.empty() && out.back() == ' ') out.pop_back();
    return out + '\n';
  };
  size_t total = 0;
  for (size_t width : widths) total += width;
  const std::string rule(total + 2 * (widths.empty() ? 0 : widths.size() - 1), '-');

  std::vector<std::string> headings;
  for (const Column& column : columns_) headings.push_back(column.heading);
  std::string out = line(headings) + rule + '\n';
  for (const auto& row : rows_) out += row.empty() ? rule + '\n' : line(row);
  return out;
}

void TextTable::fit(std::vector<size_t>& widths, size_t width) const {
  size_t total = 2 * (widths.empty() ? 0 : widths.size() - 1);
  for (size_t each : widths) total += each;
  // A column at a time, the widest of the first order that can still give; columns of one order
  // so end up about as wide as each other.
  while (total > width) {
    std::optional<size_t> widest;
    for (size_t i = 0; i < columns_.size(); ++i) {
      const int order = columns_[i].shortenOrder;
      if (order == 0 || widths[i] <= textWidth(columns_[i].heading)) continue;
      if (!widest || order < columns_[*widest].shortenOrder ||
          (order == columns_[*widest].shortenOrder && widths[i] > widths[*widest])) {
        widest = i;
      }
    }
    if (!widest) return;
    --widths[*widest];
    --total;
  }
}

std::string formatCount(int64_t value) {
  if (value < 0) return fmt::format("-{}", grouped(static_cast<uint64_t>(-(value + 1)) + 1));
  return grouped(static_cast<uint64_t>(value));
}

std::string formatUSD(double value) {
  if (!std::isfinite(value)) return "-";
  const double cents = std::round(std::fabs(value) * 100);
  const auto whole = static_cast<uint64_t>(cents / 100);
  const auto rest = static_cast<unsigned>(cents - static_cast<double>(whole) * 100);
  return fmt::format("{}${}.{:02}", value < 0 && cents > 0 ? "-" : "", grouped(whole), rest);
}

std::string formatClock(Date date, const Calendar& calendar) {
  const int minute = calendar.minuteOfDay(date);
  return fmt::format("{:02d}:{:02d}", minute / 60, minute % 60);
}

std::string formatBytes(int64_t bytes) {
  static constexpr const char* kUnits[] = {"B", "KB", "MB", "GB"};
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  while (value >= 1024 && unit + 1 < std::size(kUnits)) {
    value /= 1024;
    ++unit;
  }
  if (unit == 0) return fmt::format("{} B", bytes);
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

}  // namespace brimlog
