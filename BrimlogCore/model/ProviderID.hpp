#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "model/Color.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// What every layer knows of one AI coding tool. Where its logs are and how they are read is the
/// tool's own folder under ingest/ (its line in `ToolSource::all`).
struct ProviderTraits {
  /// The identifier in every file and table: "claude", ...
  std::string_view rawValue;
  /// The one name a user reads wherever the tool is named: "Claude", ...
  std::string_view displayName;
  /// The base name of its logo under the resources' "Logos" folder.
  std::string_view logoName;
  /// The colour its figures are drawn in.
  Color accent;
  /// A live service answers the user's limits for it.
  bool hasLimits = false;
  /// Brimlog reads its data on this system. A tool without a source here is never shown, offered
  /// or asked about, though data stored under its name stays readable.
  bool readable = false;
};

/// The tools, one row each, in the order of `ProviderID::Value`: a new tool is a case there and a
/// row here.
inline constexpr std::array<ProviderTraits, 8> kProviderTraits = {{
    {"claude", "Claude", "claude", Color::srgb(217 / 255.0, 119 / 255.0, 87 / 255.0), true, true},
    // Codex's mark is kept under its maker's name.
    {"codex", "Codex", "openai", Color::primaryText(), true, true},
    {"grok", "Grok", "grok", Color::secondaryText(), false, true},
    // The tools below keep no limits a service would tell us.
    {"gemini", "Gemini", "gemini", Color::srgb(66 / 255.0, 133 / 255.0, 244 / 255.0), false, true},
    {"opencode", "OpenCode", "opencode", Color::srgb(32 / 255.0, 160 / 255.0, 150 / 255.0), false,
     true},
    {"kilo", "Kilo", "kilo", Color::srgb(214 / 255.0, 168 / 255.0, 0), false, true},
    {"qwen", "Qwen", "qwen", Color::srgb(110 / 255.0, 90 / 255.0, 236 / 255.0), false, true},
    // Cursor keeps its usage in a database of its desktop program, which Brimlog does not read.
    {"cursor", "Cursor", "cursor", Color::secondaryText(), false, false},
}};

namespace detail {
inline constexpr size_t kReadableCount =
    static_cast<size_t>(std::ranges::count_if(kProviderTraits, &ProviderTraits::readable));
}  // namespace detail

/// The AI coding tools Brimlog knows, always in the order of `kProviderTraits`. The raw value
/// ("claude", ...) identifies a provider in every file and table. A one-byte value: cheap to
/// copy, compare and index with.
///
///     ProviderID p = ProviderID::codex;
///     p.rawValue();                      // "codex"
///     ProviderID::fromRawValue("grok");  // ProviderID::grok
///     for (ProviderID each : ProviderID::readableCases) ...  // what the user is shown
class ProviderID {
 public:
  enum Value : uint8_t { claude, codex, grok, gemini, opencode, kilo, qwen, cursor };

  constexpr ProviderID(Value value) : value_(value) {}  // NOLINT: implicit, like the enum itself

  /// The case whose raw value is exactly `rawValue` (case-sensitive), or nothing.
  static std::optional<ProviderID> fromRawValue(std::string_view rawValue);
  /// The same among `readableCases` alone: the tools a user may name.
  static std::optional<ProviderID> readableNamed(std::string_view rawValue);
  /// The raw values a user may name, as a sentence gives them: "claude, codex, grok or gemini".
  static std::string readableChoices();

  /// Every tool, stored data included.
  static const std::array<ProviderID, kProviderTraits.size()> allCases;
  /// The tools Brimlog reads on this system, in the same order: every list, choice and count
  /// shown to the user holds these alone.
  static const std::array<ProviderID, detail::kReadableCount> readableCases;

  constexpr const ProviderTraits& traits() const { return kProviderTraits[value_]; }
  constexpr std::string_view rawValue() const { return traits().rawValue; }
  constexpr std::string_view displayName() const { return traits().displayName; }
  constexpr const Color& accent() const { return traits().accent; }
  constexpr bool hasLimits() const { return traits().hasLimits; }
  constexpr bool isReadable() const { return traits().readable; }

  /// The name of the platform symbol that stands for Brimlog itself (headers, empty states).
  static constexpr std::string_view appSymbolName = "gauge.with.dots.needle.67percent";

  /// The SVG text of the provider's logo. The marks are single-colour: they draw in
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

namespace detail {
template <size_t N, size_t... I>
constexpr std::array<ProviderID, N> casesAt(const std::array<size_t, N>& rows,
                                            std::index_sequence<I...>) {
  return {static_cast<ProviderID::Value>(rows[I])...};
}

// The cases whose rows `keep` accepts, in order; N is their count.
template <size_t N>
constexpr std::array<ProviderID, N> casesWhere(bool (*keep)(const ProviderTraits&)) {
  std::array<size_t, N> rows{};
  size_t next = 0;
  for (size_t row = 0; row < kProviderTraits.size(); ++row) {
    if (keep(kProviderTraits[row])) rows[next++] = row;
  }
  return casesAt(rows, std::make_index_sequence<N>{});
}
}  // namespace detail

inline constexpr std::array<ProviderID, kProviderTraits.size()> ProviderID::allCases =
    detail::casesWhere<kProviderTraits.size()>([](const ProviderTraits&) { return true; });

inline constexpr std::array<ProviderID, detail::kReadableCount> ProviderID::readableCases =
    detail::casesWhere<detail::kReadableCount>(
        [](const ProviderTraits& tool) { return tool.readable; });

}  // namespace brimlog

template <>
struct std::hash<brimlog::ProviderID> {
  size_t operator()(brimlog::ProviderID id) const noexcept { return std::hash<int>{}(id.index()); }
};
