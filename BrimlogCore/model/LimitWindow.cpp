#include "model/LimitWindow.hpp"

#include <algorithm>
#include <cmath>

namespace brimlog {

std::optional<Date> LimitSource::asOf() const {
  if (kind_ == Kind::live) return std::nullopt;
  return asOf_;
}

bool LimitSource::operator==(const LimitSource& other) const {
  return kind_ == other.kind_ && (kind_ == Kind::live || asOf_ == other.asOf_);
}

Json LimitSource::toJson(DateForm form) const {
  switch (kind_) {
    case Kind::live:
      return {{"live", Json::object()}};
    case Kind::local:
      return {{"local", {{"asOf", json::encodeDate(asOf_, form, "asOf")}}}};
    case Kind::stale:
      return {{"stale", {{"asOf", json::encodeDate(asOf_, form, "asOf")}}}};
  }
  return nullptr;
}

LimitSource LimitSource::fromJson(const Json& json, DateForm form) {
  const std::string_view name = json::onlyCase(json, {"live", "local", "stale"}, "source");
  const Json& payload = json::object(json.at(name), name);
  if (name == "live") return live();
  const Date asOf = json::decodeDate(json::require(payload, "asOf"), form, "asOf");
  return name == "local" ? local(asOf) : stale(asOf);
}

LimitWindow::LimitWindow(std::string id, std::string label, double usedFraction,
                         std::optional<double> duration, std::optional<Date> resetsAt,
                         LimitSource source)
    : id(std::move(id)),
      label(std::move(label)),
      usedFraction(std::isnan(usedFraction) ? 0.0 : std::clamp(usedFraction, 0.0, 1.0)),
      duration(duration),
      resetsAt(resetsAt),
      source(source) {}

bool LimitWindow::isReset(Date now) const { return resetsAt && *resetsAt <= now; }

double LimitWindow::effectiveUsedFraction(Date now) const {
  return isReset(now) ? 0.0 : usedFraction;
}

Json LimitWindow::toJson(DateForm form) const {
  Json json = {{"id", id},
               {"label", label},
               {"usedFraction", json::finite(usedFraction, "usedFraction")},
               {"source", source.toJson(form)}};
  if (duration) json["duration"] = json::finite(*duration, "duration");
  if (resetsAt) json["resetsAt"] = json::encodeDate(*resetsAt, form, "resetsAt");
  return json;
}

LimitWindow LimitWindow::fromJson(const Json& json, DateForm form) {
  LimitWindow window{json::string(json::require(json, "id"), "id"),
                     json::string(json::require(json, "label"), "label"),
                     0.0,
                     std::nullopt,
                     std::nullopt,
                     LimitSource::fromJson(json::require(json, "source"), form)};
  // Stored figures are taken as they are: no clamping on the way back in.
  window.usedFraction = json::number(json::require(json, "usedFraction"), "usedFraction");
  if (const Json* duration = json::optional(json, "duration")) {
    window.duration = json::number(*duration, "duration");
  }
  if (const Json* resetsAt = json::optional(json, "resetsAt")) {
    window.resetsAt = json::decodeDate(*resetsAt, form, "resetsAt");
  }
  return window;
}

}  // namespace brimlog
