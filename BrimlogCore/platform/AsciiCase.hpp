#pragma once

#include <string>
#include <string_view>

namespace brimlog {

/// Case mapping of the ASCII letters alone, without a locale, for what the tools and their
/// services write in ASCII: model ids and plan names ("Opus 4.1", "max"), HTTP header names. Every
/// other byte, those of UTF-8 sequences included, is left as it is.
///
///     asciiLowercased("Opus 4.1");  // "opus 4.1"
///     asciiCapitalized("max");      // "Max"

constexpr char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
constexpr char asciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }

/// The whole text with its ASCII capitals in lower case.
inline std::string asciiLowercased(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = asciiLower(c);
  return out;
}

/// The text with its first byte in upper case when that is an ASCII letter; the rest unchanged.
inline std::string asciiCapitalized(std::string_view text) {
  std::string out(text);
  if (!out.empty()) out[0] = asciiUpper(out[0]);
  return out;
}

}  // namespace brimlog
