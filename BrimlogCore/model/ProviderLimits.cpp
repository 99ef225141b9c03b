#include "model/ProviderLimits.hpp"

#include <array>

namespace brimlog {
namespace {

constexpr std::array<std::string_view, 6> kStatusNames = {
    "ok", "signInNeeded", "unreachable", "rateLimited", "accessDenied", "unavailable"};

void putOptional(Json& json, std::string_view key, const std::optional<double>& value) {
  if (value) json[std::string(key)] = json::finite(*value, key);
}

std::optional<double> readOptional(const Json& json, std::string_view key) {
  if (const Json* value = json::optional(json, key)) return json::number(*value, key);
  return std::nullopt;
}

}  // namespace

Json Credits::toJson() const {
  Json json = {{"label", label}, {"unlimited", unlimited}};
  putOptional(json, "balanceUSD", balanceUSD);
  putOptional(json, "spentUSD", spentUSD);
  putOptional(json, "limitUSD", limitUSD);
  return json;
}

Credits Credits::fromJson(const Json& json) {
  return {json::string(json::require(json, "label"), "label"), readOptional(json, "balanceUSD"),
          readOptional(json, "spentUSD"), readOptional(json, "limitUSD"),
          json::boolean(json::require(json, "unlimited"), "unlimited")};
}

std::string_view caseName(ProviderStatus status) {
  return kStatusNames[static_cast<size_t>(status)];
}

Json toJson(ProviderStatus status) { return {{caseName(status), Json::object()}}; }

ProviderStatus providerStatusFromJson(const Json& json) {
  const std::string_view name = json::onlyCase(json,
                                               {kStatusNames[0], kStatusNames[1], kStatusNames[2],
                                                kStatusNames[3], kStatusNames[4], kStatusNames[5]},
                                               "status");
  json::object(json.at(name), name);
  for (size_t i = 0; i < kStatusNames.size(); ++i) {
    if (kStatusNames[i] == name) return static_cast<ProviderStatus>(i);
  }
  return ProviderStatus::unavailable;  // unreachable: onlyCase returned one of the names
}

ProviderLimits ProviderLimits::markedStale() const {
  ProviderLimits copy = *this;
  for (auto& window : copy.windows) {
    if (!window.source.isStale()) window.source = LimitSource::stale(fetchedAt);
  }
  return copy;
}

Json ProviderLimits::toJson(DateForm form) const {
  Json windowsJson = Json::array();
  for (const auto& window : windows) windowsJson.push_back(window.toJson(form));
  Json json = {{"windows", std::move(windowsJson)},
               {"status", brimlog::toJson(status)},
               {"fetchedAt", json::encodeDate(fetchedAt, form, "fetchedAt")}};
  if (plan) json["plan"] = *plan;
  if (credits) json["credits"] = credits->toJson();
  return json;
}

ProviderLimits ProviderLimits::fromJson(const Json& json, DateForm form) {
  ProviderLimits limits;
  if (const Json* plan = json::optional(json, "plan")) limits.plan = json::string(*plan, "plan");
  for (const Json& window : json::array(json::require(json, "windows"), "windows")) {
    limits.windows.push_back(LimitWindow::fromJson(window, form));
  }
  if (const Json* credits = json::optional(json, "credits")) {
    limits.credits = Credits::fromJson(*credits);
  }
  limits.status = providerStatusFromJson(json::require(json, "status"));
  limits.fetchedAt = json::decodeDate(json::require(json, "fetchedAt"), form, "fetchedAt");
  return limits;
}

}  // namespace brimlog
