#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Json.hpp"

namespace brimlog {

/// How far reading of one log file got, which file it was, and the parser state carried from one
/// read of it to the next.
///
/// `context` is opaque to the reader. Entries in use: `providerKey` (the raw value of the file's
/// tool, by which the store finds a provider's cursors) and the parsers' own state, such as the
/// Codex parser's "session" and "model".
struct FileCursor {
  /// The context key that names the file's tool.
  static constexpr const char* providerKey = "provider";

  std::string path;
  /// The file's inode when the cursor was made; 0 when the file system reported none.
  uint64_t inode = 0;
  /// Bytes consumed from the start of the file: 0 or just past a line feed.
  int64_t offset = 0;
  std::map<std::string, std::string> context;

  bool operator==(const FileCursor&) const = default;

  /// The context entry `key` read as a decimal integer; nothing when it is missing or is not
  /// exactly one.
  std::optional<int64_t> integerEntry(const std::string& key) const;

  /// {"path":…,"inode":…,"offset":…,"context":{…}}; all four keys are required when decoding.
  Json toJson() const;
  static FileCursor fromJson(const Json& json);
  /// The same from the JSON text; nothing when the text does not decode. Much faster than
  /// `fromJson(json::parse(text))` for the cursors this program writes.
  static std::optional<FileCursor> fromJsonText(std::string_view text);
};

}  // namespace brimlog
