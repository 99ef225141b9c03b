#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "ingest/ToolSource.hpp"

namespace brimlog {

/// Qwen Code's places and reader. Its own folder is `<home>/.qwen` (settings, sign-in). It writes
/// its chats under a runtime base: QWEN_RUNTIME_DIR when set, else the `advanced.runtimeOutputDir`
/// of `<home>/.qwen/settings.json`, else `<home>/.qwen` itself; a value starting with "~" is
/// under the home, and a relative one, which the tool resolves against each session's own
/// working folder, cannot be followed from here and is passed over. Logs lie in
/// `projects/<folder>/chats/` (and its `archive/`) under the runtime base, and in
/// `tmp/<hash>/chats/` where older versions wrote them; when the base was moved, the same folders
/// under `<home>/.qwen` are read too, for the chats written before the move. It is installed
/// when the runtime base (or `<home>/.qwen`) exists.
///
/// Resolving the places reads the settings file, once: a change of the setting is seen when the
/// places are resolved again (at the next start of the daemon).
extern const ToolSource qwenSource;

/// The runtime base named by a setting or variable `value`: "~" and "~/..." under `home`, an
/// absolute path as it is; nothing for an empty or relative one.
std::optional<std::filesystem::path> qwenRuntimeBase(std::string_view value,
                                                     const std::filesystem::path& home);

/// `advanced.runtimeOutputDir` of a Qwen Code settings file (JSON with comments, as the tool
/// allows), or nothing when the file, the key or a text value is missing or the file is not
/// readable JSON.
std::optional<std::string> qwenRuntimeOutputSetting(const std::filesystem::path& settingsFile);

}  // namespace brimlog
