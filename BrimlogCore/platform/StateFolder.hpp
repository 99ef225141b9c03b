#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace brimlog {

/// The folder where Brimlog keeps its state beside the usage database: the widgets' snapshot,
/// the refresh timing, the alert state, and the daemon's lock and refresh requests that the
/// widgets use. `brimlog` and `brimlog-widgets` both find it here, from the values they read, so
/// both find the same folder:
///
///   1. `sharedDir` (the --shared-dir option) when it is given and not empty;
///   2. else the folder of `database`, which the host passes only when it was pointed at a
///      database of its own, so that a trial run never replaces the user's widgets;
///   3. else $XDG_STATE_HOME/brimlog when XDG_STATE_HOME is an absolute path;
///   4. else $HOME/.local/state/brimlog when HOME is an absolute path;
///   5. else there is none.
///
/// The path is made absolute; nothing is created or checked.
///
///     StateFolder::locate({.xdgStateHome = std::nullopt, .home = "/home/ada"});
///     // /home/ada/.local/state/brimlog
struct StateFolder {
  struct Given {
    std::optional<std::string> sharedDir = std::nullopt;
    std::optional<std::filesystem::path> database = std::nullopt;
    std::optional<std::string> xdgStateHome = std::nullopt;
    std::optional<std::string> home = std::nullopt;
  };

  static std::optional<std::filesystem::path> locate(const Given& given);
};

}  // namespace brimlog
