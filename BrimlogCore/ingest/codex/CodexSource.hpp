#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Codex's places and reader. Its home is CODEX_HOME when set, else `<home>/.codex`; its logs are
/// in `sessions/` and `archived_sessions/` there, its sign-in in `auth.json`. It is installed when
/// its current sessions or its sign-in exist (archived sessions alone do not count).
extern const ToolSource codexSource;

/// The sign-in file in Codex's home (the only one of its `homes`).
std::filesystem::path codexAuthFile(const ToolPlaces& codex);

}  // namespace brimlog
