#pragma once

#include <optional>
#include <string_view>

#include "model/ProviderID.hpp"

namespace brimlog {

/// The provider that a small widget is set to show, as offered by its picker: the tools Brimlog
/// reads on this system (`ProviderID::readableCases`), in their order. Each choice stands for the
/// `ProviderID` of the same name; the raw value is what a stored widget configuration holds.
///
///     std::optional<ProviderChoice> choice = ProviderChoice::fromRawValue("grok");
///     choice->displayName();  // "Grok"
///     choice->providerID();   // ProviderID::grok
class ProviderChoice {
 public:
  using enum ProviderID::Value;  // ProviderChoice::claude, ...

  constexpr ProviderChoice(ProviderID id) : id_(id) {}         // NOLINT: implicit, as an enum
  constexpr ProviderChoice(ProviderID::Value id) : id_(id) {}  // NOLINT: ProviderChoice::claude

  /// The choices in the picker's order.
  static constexpr const auto& allCases = ProviderID::readableCases;

  /// The choice whose raw value is exactly `rawValue` (case-sensitive), or nothing: a tool
  /// Brimlog does not read here is no choice.
  static std::optional<ProviderChoice> fromRawValue(std::string_view rawValue) {
    if (const std::optional<ProviderID> id = ProviderID::readableNamed(rawValue)) return *id;
    return std::nullopt;
  }

  std::string_view rawValue() const { return id_.rawValue(); }
  /// What the picker shows: the tool's name.
  std::string_view displayName() const { return id_.displayName(); }
  constexpr ProviderID providerID() const { return id_; }

  constexpr bool operator==(const ProviderChoice& other) const { return id_ == other.id_; }

 private:
  ProviderID id_;
};

}  // namespace brimlog
