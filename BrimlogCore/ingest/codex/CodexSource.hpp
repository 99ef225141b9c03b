#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Codex's places and reader. Its home is CODEX_HOME when set, else `<home>/.codex`; its logs are
/// in `sessions/` and `archived_sessions/` there, its sign-in in `auth.json`. It is installed when
/// its current sessions or its sign-in exist (archived sessions alone do not count).
struct CodexSource {
  static constexpr std::string_view homeVariable = "CODEX_HOME";

  static ToolPlaces places(const std::filesystem::path& home, const ToolVariables& variables);
  static std::unique_ptr<LogReader> reader(const IngestOptions& options);

  /// The sign-in file in Codex's home, the first of its `homes`.
  static std::filesystem::path authFile(const ToolPlaces& codex);

  static const ToolSource source;
};

inline constexpr ToolSource CodexSource::source{
    ProviderID::codex, {&homeVariable, 1}, &places, &reader};

}  // namespace brimlog
