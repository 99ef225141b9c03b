#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>

#include "HomeGenerator.hpp"

namespace brimlog {

/// Writes about `bytes` of one tool's logs under `home`, where the tool keeps them by default,
/// with sessions over the 30 days that end with `endDay` (days since 1970-01-01, UTC), and
/// returns what a first pass must count. The same arguments give the same bytes.
using ToolHomeWriter = ToolTotals (*)(const std::filesystem::path& home, uint64_t bytes,
                                      uint64_t seed, int64_t endDay);

struct ToolHomeWriterEntry {
  /// The tool's raw value: "gemini", ...
  std::string_view tool;
  ToolHomeWriter write;
};

/// The writers of the tools whose homes `brimlog_home_gen --tool` can write besides Claude's.
std::span<const ToolHomeWriterEntry> toolHomeWriters();

}  // namespace brimlog
