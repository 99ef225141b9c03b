#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Claude Code's places and reader. Its configuration folders are each entry of
/// CLAUDE_CONFIG_DIR (a comma-separated list, as people with several accounts set it) when set,
/// otherwise both `<home>/.claude` and `<home>/.config/claude` (newer versions write there). Its
/// transcripts are under `projects/` in each, and it is installed when one of those exists.
extern const ToolSource claudeSource;

}  // namespace brimlog
