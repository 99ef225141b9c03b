#include "model/ProviderID.hpp"

#include <fmt/format.h>

namespace brimlog {
namespace {

struct Names {
  std::string_view rawValue;
  std::string_view displayName;
  std::string_view toolName;
};

constexpr std::array<Names, 4> kNames = {{
    {"claude", "Claude", "Claude Code"},
    {"codex", "Codex", "Codex"},
    {"grok", "Grok", "Grok Build"},
    {"cursor", "Cursor", "Cursor"},
}};

}  // namespace

std::optional<ProviderID> ProviderID::fromRawValue(std::string_view rawValue) {
  for (const ProviderID id : allCases) {
    if (kNames[id.index()].rawValue == rawValue) return id;
  }
  return std::nullopt;
}

std::string_view ProviderID::rawValue() const { return kNames[value_].rawValue; }
std::string_view ProviderID::displayName() const { return kNames[value_].displayName; }
std::string_view ProviderID::toolName() const { return kNames[value_].toolName; }

ProviderID ProviderID::fromJson(const Json& json) {
  const std::string raw = json::string(json, "provider");
  if (const auto id = fromRawValue(raw)) return *id;
  throw JsonDecodeError(
      fmt::format("Cannot initialize ProviderID from invalid String value {}", raw));
}

}  // namespace brimlog
