#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "model/ProviderID.hpp"

namespace brimlog {

/// The provider that a small widget is set to show, as offered by its picker: claude, codex,
/// grok, cursor, in that order. Each case stands for the `ProviderID` of the same name; the raw
/// value is what a stored widget configuration holds.
///
///     std::optional<ProviderChoice> choice = ProviderChoice::fromRawValue("grok");
///     choice->displayName();  // "Grok"
///     choice->providerID();   // ProviderID::grok
class ProviderChoice {
 public:
  enum Value : uint8_t { claude, codex, grok, cursor };

  constexpr ProviderChoice(Value value) : value_(value) {}  // NOLINT: implicit, like the enum

  /// The cases in the picker's order.
  static const std::array<ProviderChoice, 4> allCases;

  /// The case whose raw value is exactly `rawValue` (case-sensitive), or nothing.
  static std::optional<ProviderChoice> fromRawValue(std::string_view rawValue);

  /// "claude", "codex", "grok", "cursor".
  std::string_view rawValue() const { return providerID().rawValue(); }
  /// What the picker shows: "Claude", "Codex", "Grok", "Cursor".
  std::string_view displayName() const { return providerID().displayName(); }

  constexpr ProviderID providerID() const {
    switch (value_) {
      case claude:
        return ProviderID::claude;
      case codex:
        return ProviderID::codex;
      case grok:
        return ProviderID::grok;
      case cursor:
        break;
    }
    return ProviderID::cursor;
  }

  constexpr operator Value() const { return value_; }  // NOLINT: lets a switch name the cases

 private:
  Value value_;
};

inline constexpr std::array<ProviderChoice, 4> ProviderChoice::allCases = {
    ProviderChoice::claude, ProviderChoice::codex, ProviderChoice::grok, ProviderChoice::cursor};

}  // namespace brimlog
