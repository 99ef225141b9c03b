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

}  // namespace

std::optional<ClaudeCodeStatus> ClaudeCodeStatus::parse(std::string_view text) {
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
  return status;
}

}  // namespace brimlog
