#pragma once

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// OpenCode's places and reader. Its data folder is `$XDG_DATA_HOME/opencode` (an absolute
/// XDG_DATA_HOME; otherwise `<home>/.local/share/opencode`). Its database is `opencode.db` there,
/// or `opencode-<channel>.db` for other release channels, unless OPENCODE_DB names another file
/// (absolute, or relative to the data folder); builds before the database kept one JSON file per
/// message under `storage/message/<session>/` in the data folder. It is installed when the data
/// folder (or the database OPENCODE_DB names) exists.
extern const ToolSource opencodeSource;

/// Kilo CLI, a fork of OpenCode with the same store: `$XDG_DATA_HOME/kilo` (otherwise
/// `<home>/.local/share/kilo`) with `kilo.db` or `kilo-<channel>.db`, moved by KILO_DB.
extern const ToolSource kiloSource;

}  // namespace brimlog
