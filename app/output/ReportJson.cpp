#include "output/ReportJson.hpp"

#include "output/ReportFormatter.hpp"

namespace brimlog {
namespace {

// Replaces the instant under "day" of each entry by its day key, keeping the entries `keep` lets
// through.
template <typename Point, typename Keep>
Json asDays(const Json& list, const std::vector<Point>& points, const Calendar& calendar,
            Keep keep) {
  Json out = Json::array();
  for (size_t i = 0; i < points.size() && i < list.size(); ++i) {
    if (!keep(points[i])) continue;
    Json entry = list[i];
    entry["day"] = calendar.dayKey(points[i].day);
    out.push_back(std::move(entry));
  }
  return out;
}

int64_t tokensOf(int64_t tokens) { return tokens; }
int64_t tokensOf(const TokenCounts& tokens) { return tokens.processed(); }
double costOf(double cost) { return cost; }
double costOf(const std::optional<double>& cost) { return cost.value_or(0); }

// A series holds only rows with usage: a row without tokens or cost (a tool's day without use,
// a tool or model whose only rows are empty) is dropped.
template <typename Row>
void dropEmptyRows(std::vector<Row>& rows) {
  std::erase_if(
      rows, [](const Row& row) { return tokensOf(row.tokens) == 0 && costOf(row.costUSD) == 0; });
}

Json summaryJson(const UsageSummary& whole, const Calendar& calendar) {
  // Dropped before any JSON is made of them: a year's report has a point per tool and day.
  UsageSummary summary = whole;
  dropEmptyRows(summary.tools);
  dropEmptyRows(summary.daily);
  dropEmptyRows(summary.models);
  dropEmptyRows(summary.perDay);
  Json json = summary.toJson(DateForm::iso8601);
  json["windowEnd"] = calendar.dayKey(summary.windowEnd);
  json["daily"] = asDays(json["daily"], summary.daily, calendar, [](const auto&) { return true; });
  json["perDay"] =
      asDays(json["perDay"], summary.perDay, calendar, [](const auto&) { return true; });
  return json;
}

Json ledgerJson(const ReportContent& content, const Calendar& calendar) {
  Json json = {{"view", ReportContent::nameOf(content.view)},
               {"days", content.window.days},
               {"firstDay", content.window.firstKey},
               {"lastDay", content.window.lastKey},
               {"timeZone", calendar.zoneName()}};
  if (content.tool) json["tool"] = content.tool->rawValue();
  if (content.project) json["project"] = *content.project;
  if (!content.source.empty()) json["sharedLedger"] = content.source;
  json["rows"] = ReportFormatter::sheet(content, calendar).rowsJson();

  UsageReport::Cost cost;
  int64_t tokens = 0;
  std::optional<int64_t> sessions;
  switch (content.view) {
    case ReportContent::View::weekly:
    case ReportContent::View::monthly:
      cost = content.total.cost;
      tokens = content.total.tokens;
      sessions = content.total.sessions;
      break;
    case ReportContent::View::blocks:
      for (const auto& block : content.blocks) {
        cost += block.cost;
        tokens += block.tokens;
      }
      break;
    case ReportContent::View::machines:
      sessions = 0;
      for (const auto& machine : content.machines) {
        cost += machine.cost;
        tokens += machine.tokens;
        *sessions += machine.sessions;
      }
      break;
    default:
      for (const auto& session : content.sessions) {
        cost += session.cost;
        tokens += session.tokens;
      }
      sessions = static_cast<int64_t>(content.sessions.size());
  }
  if (sessions) json["sessions"] = *sessions;
  json["tokens"] = tokens;
  json["totalCostUSD"] = json::finite(cost.usd.value_or(0), "totalCostUSD");
  json["hasUnknownPrices"] = cost.unknown;
  return json;
}

// Every fractional number to the millionth, wherever it is.
void round(Json& json) {
  if (json.is_number_float()) {
    json = moneyFigure(json.get<double>());
  } else if (json.is_structured()) {
    for (Json& item : json) round(item);
  }
}

}  // namespace

Json ReportJson::of(const ReportContent& content, const Calendar& calendar) {
  if (ReportContent::fromSummary(content.view)) return summaryJson(content.summary, calendar);
  return ledgerJson(content, calendar);
}

std::string ReportJson::write(const ReportContent& content, const Calendar& calendar) {
  Json json = of(content, calendar);
  round(json);
  return json.dump(2) + '\n';
}

}  // namespace brimlog
