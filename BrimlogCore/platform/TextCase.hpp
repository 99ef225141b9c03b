#pragma once

#include <string>
#include <string_view>

namespace brimlog {

/// Case conversion of UTF-8 text without a locale, as used for ids and plan names that come from
/// the tools' services.
///
/// The mappings are Unicode's default ones for the scripts those texts are written in: ASCII,
/// Latin-1, Latin Extended-A, basic Greek and basic Cyrillic, including the mappings that change
/// length ("ß" upper-cases to "SS", "İ" lower-cases to "i" plus a combining dot). Characters of
/// other scripts, and bytes that are not valid UTF-8, are copied unchanged. No context-dependent
/// rules apply (a capital sigma always becomes "σ").
///
///     lowercased("Opus 4.1");       // "opus 4.1"
///     uppercasedFirst("max");       // "Max"
///     uppercasedFirst("élite");     // "Élite"

/// The whole text in lower case.
std::string lowercased(std::string_view text);

/// The first character in upper case followed by the rest unchanged; empty text stays empty.
std::string uppercasedFirst(std::string_view text);

}  // namespace brimlog
