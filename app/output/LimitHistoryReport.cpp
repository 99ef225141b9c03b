#include "output/LimitHistoryReport.hpp"

#include <fmt/format.h>

namespace brimlog {

ReportSheet LimitHistoryReport::readingsSheet() const {
  using Kind = ReportSheet::Kind;
  ReportSheet sheet;
  sheet.columns = {{"Time", "readAt", Kind::time},
                   {"Tool", "tool", Kind::tool},
                   {"Window", "window", Kind::text},
                   {"Used", "used", Kind::share},
                   {"Reset", "resetsAt", Kind::time, 0, "-"},
                   {"Origin", "origin", Kind::text}};
  for (const LimitReading& reading : readings) {
    sheet.rows.push_back(
        {reading.readAt, reading.provider, reading.window, reading.usedFraction,
         reading.resetsAt ? ReportSheet::Value(*reading.resetsAt) : ReportSheet::Value(),
         std::string(LimitReading::originName(reading.origin))});
  }
  return sheet;
}

ReportSheet LimitHistoryReport::periodsSheet() const {
  using Kind = ReportSheet::Kind;
  ReportSheet sheet;
  sheet.columns = {{"Tool", "tool", Kind::tool},           {"Window", "window", Kind::text},
                   {"Reset", "resetsAt", Kind::time},      {"Readings", "readings", Kind::count},
                   {"Peak used", "peakUsed", Kind::share}, {"Ran out", "ranOut", Kind::flag}};
  for (const LimitPeriod& period : LimitPeriod::finished(readings, now)) {
    sheet.rows.push_back({period.provider, period.window, period.resetsAt,
                          static_cast<int64_t>(period.readings), period.peakUsed, period.ranOut()});
  }
  return sheet;
}

std::string LimitHistoryReport::table(const Calendar& calendar, std::optional<size_t> width) const {
  if (readings.empty()) {
    return fmt::format(
        "No limit readings in the last {} days; `brimlog sync` and the daemon record them.\n",
        days);
  }
  std::string out =
      fmt::format("Limit readings, last {} days (times in {})\n\n", days, calendar.zoneName());
  out += readingsSheet().table(calendar, width);
  const ReportSheet periods = periodsSheet();
  out += "\nFinished windows\n";
  out += periods.rows.empty() ? "(none: no reset has passed among these readings)\n"
                              : periods.table(calendar, width);
  return out;
}

std::string LimitHistoryReport::json() const {
  const Json json = {{"days", days},
                     {"readings", readingsSheet().rowsJson()},
                     {"periods", periodsSheet().rowsJson()}};
  return json.dump(2) + "\n";
}

std::string LimitHistoryReport::csv() const { return readingsSheet().csv(); }

}  // namespace brimlog
