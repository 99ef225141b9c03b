#include "model/ProviderID.hpp"

#include <fmt/format.h>

#include "platform/Resources.hpp"
#include "platform/WholeFile.hpp"

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

// The logos' file base names: Codex's mark is kept under its maker's name.
constexpr std::array<std::string_view, 4> kLogoNames = {"claude", "openai", "grok", "cursor"};

std::string loadLogo(std::string_view baseName) {
  const auto file = Resources::find(fmt::format("Logos/{}.svg", baseName));
  if (!file) return {};
  std::string text;
  try {
    text = WholeFile::read(*file).bytes;
  } catch (const std::filesystem::filesystem_error&) {
    return {};
  }
  // Anything without an <svg> element could not be drawn as a logo.
  if (text.find("<svg") == std::string::npos) return {};
  return text;
}

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

Color ProviderID::accent() const {
  switch (value_) {
    case claude:
      return Color::srgb(217 / 255.0, 119 / 255.0, 87 / 255.0);
    case codex:
      return Color::primaryText();
    case grok:
    case cursor:
      return Color::secondaryText();
  }
  return Color::secondaryText();
}

const std::string& ProviderID::logo() const {
  static const std::array<std::string, 4> logos = [] {
    std::array<std::string, 4> loaded;
    for (size_t i = 0; i < loaded.size(); ++i) loaded[i] = loadLogo(kLogoNames[i]);
    return loaded;
  }();
  return logos[value_];
}

ProviderID ProviderID::fromJson(const Json& json) {
  const std::string raw = json::string(json, "provider");
  if (const auto id = fromRawValue(raw)) return *id;
  throw JsonDecodeError(
      fmt::format("Cannot initialize ProviderID from invalid String value {}", raw));
}

}  // namespace brimlog
