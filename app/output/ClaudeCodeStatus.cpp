#include "output/ClaudeCodeStatus.hpp"

#include <cmath>

#include "platform/Json.hpp"

namespace brimlog {
namespace {

const Json* member(const Json& object, const char* key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::optional<double> finiteNumber(const Json* value) {
  if (value == nullptr || !value->is_number()) return std::nullopt;
  const double number = value->get<double>();
  return std::isfinite(number) ? std::optional<double>(number) : std::nullopt;
}

// One window of "rate_limits"; nothing without a share used. A share over 100 (a window used
// up) is kept as all of it, a negative one as none: the window's constructor clamps it.
std::optional<LimitWindow> windowOf(const Json& limits, const char* key, const char* id,
                                    const char* label, double duration, Date now) {
  const Json* window = member(limits, key);
  if (window == nullptr) return std::nullopt;
  const std::optional<double> used = finiteNumber(member(*window, "used_percentage"));
  if (!used) return std::nullopt;
  std::optional<Date> resetsAt;
  // Whole seconds since 1970, well inside the range a date can hold.
  if (const std::optional<double> reset = finiteNumber(member(*window, "resets_at"));
      reset && *reset > 0 && *reset < 1e11) {
    resetsAt = dateFromUnixSeconds(*reset);
  }
  return LimitWindow{id, label, *used / 100, duration, resetsAt, LimitSource::local(now)};
}

}  // namespace

std::optional<ClaudeCodeStatus> ClaudeCodeStatus::parse(std::string_view text, Date now) {
  const Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) return std::nullopt;
  ClaudeCodeStatus status;
  if (const Json* model = member(json, "model")) {
    if (const Json* name = member(*model, "display_name"); name && name->is_string()) {
      // Control characters would reach the terminal as escapes; they are dropped.
      std::string text;
      for (char c : name->get_ref<const std::string&>()) {
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f) text += c;
      }
      if (!text.empty()) status.modelName = std::move(text);
    }
  }
  if (const Json* cost = member(json, "cost")) {
    if (const Json* total = member(*cost, "total_cost_usd"); total && total->is_number()) {
      const double value = total->get<double>();
      if (std::isfinite(value)) status.sessionCostUSD = value;
    }
  }
  if (const Json* limits = member(json, "rate_limits")) {
    for (auto window : {windowOf(*limits, "five_hour", "session", "Session", 5 * 3600.0, now),
                        windowOf(*limits, "seven_day", "weekly", "Weekly", 7 * 86400.0, now)}) {
      if (window) status.limits.push_back(std::move(*window));
    }
  }
  return status;
}

}  // namespace brimlog
