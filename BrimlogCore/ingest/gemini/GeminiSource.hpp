#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Gemini CLI's places and reader. Its folder is `<home>/.gemini`, or `$GEMINI_CLI_HOME/.gemini`
/// when that variable is set (it stands in for the home folder). Its sessions are in the `chats`
/// folder of each project folder under `tmp/`; it is installed when `tmp/`, `settings.json` or
/// `projects.json` exists there.
extern const ToolSource geminiSource;

}  // namespace brimlog
