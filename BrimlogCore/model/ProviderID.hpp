#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "model/Color.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// The AI coding tools Brimlog tracks, always in the order claude, codex, grok, cursor. The raw
/// value ("claude", ...) identifies a provider in every file and table.
///
///     ProviderID p = ProviderID::codex;
///     p.rawValue();                      // "codex"
///     ProviderID::fromRawValue("grok");  // ProviderID::grok
///     for (ProviderID each : ProviderID::allCases) ...
class ProviderID {
 public:
  enum Value : uint8_t { claude, codex, grok, cursor };

  constexpr ProviderID(Value value) : value_(value) {}  // NOLINT: implicit, like the enum itself

  /// The case whose raw value is exactly `rawValue` (case-sensitive), or nothing.
  static std::optional<ProviderID> fromRawValue(std::string_view rawValue);

  static const std::array<ProviderID, 4> allCases;

  /// "claude", "codex", "grok", "cursor".
  std::string_view rawValue() const;
  /// The short name of headings and rows: "Claude", "Codex", "Grok", "Cursor".
  std::string_view displayName() const;
  /// The name of the tool whose logs are read: "Claude Code", "Codex", "Grok Build", "Cursor".
  std::string_view toolName() const;

  /// The name of the platform symbol that stands for Brimlog itself (headers, empty states).
  static constexpr std::string_view appSymbolName = "gauge.with.dots.needle.67percent";

  /// The colour a provider's figures are drawn in: Claude's orange, Codex in the primary text
  /// colour, Grok and Cursor in the secondary one.
  Color accent() const;

  /// The SVG text of the provider's logo, from the resources' "Logos" folder (claude.svg,
  /// openai.svg, grok.svg, cursor.svg). The marks are single-colour: they draw in
  /// "currentColor", so a renderer tints them. Read once per process on first use, from any
  /// thread; a missing or unreadable file, or one that is not SVG, gives an empty string.
  const std::string& logo() const;

  /// The position among `allCases`.
  constexpr int index() const { return value_; }

  constexpr operator Value() const { return value_; }  // NOLINT: lets a switch name the cases

  /// The raw value as a JSON string; decoding any other string throws `JsonDecodeError`.
  Json toJson() const { return rawValue(); }
  static ProviderID fromJson(const Json& json);

 private:
  Value value_;
};

inline constexpr std::array<ProviderID, 4> ProviderID::allCases = {
    ProviderID::claude, ProviderID::codex, ProviderID::grok, ProviderID::cursor};

}  // namespace brimlog

template <>
struct std::hash<brimlog::ProviderID> {
  size_t operator()(brimlog::ProviderID id) const noexcept { return std::hash<int>{}(id.index()); }
};
