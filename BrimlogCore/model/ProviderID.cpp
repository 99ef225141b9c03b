#include "model/ProviderID.hpp"

#include <fmt/format.h>

#include "platform/Resources.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

std::string loadLogo(std::string_view baseName) {
  const auto file = Resources::find(fmt::format("Logos/{}.svg", baseName));
  if (!file) return {};
  std::string text;
  try {
    text = WholeFile::read(*file, WholeFile::kSmallFileLimit).bytes;
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
    if (id.rawValue() == rawValue) return id;
  }
  return std::nullopt;
}

std::optional<ProviderID> ProviderID::readableNamed(std::string_view rawValue) {
  const std::optional<ProviderID> id = fromRawValue(rawValue);
  if (id && id->isReadable()) return id;
  return std::nullopt;
}

std::string ProviderID::readableChoices() {
  std::string text;
  for (size_t i = 0; i < readableCases.size(); ++i) {
    if (i > 0) text += i + 1 == readableCases.size() ? " or " : ", ";
    text += readableCases[i].rawValue();
  }
  return text;
}

const std::string& ProviderID::logo() const {
  static const std::array<std::string, allCases.size()> logos = [] {
    std::array<std::string, allCases.size()> loaded;
    for (const ProviderID id : allCases) loaded[id.index()] = loadLogo(id.traits().logoName);
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
