#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// The folder that the host and the widget process share for one group identifier, the stand-in
/// for an app-group container: ${XDG_DATA_HOME:-$HOME/.local/share}/brimlog/containers/<group>.
///
/// Both processes pass the variables' values as they read them, so both find the same folder.
/// XDG_DATA_HOME counts only when it is an absolute path, and so does HOME; when neither gives
/// one there is no shared folder. A group that is empty, ".", "..", or holds a "/" names no
/// folder either. Nothing is created or checked here.
///
///     SharedDirectory::forGroup("K7QX2M9T4B.app.brimlog", std::nullopt, "/home/ada");
///     // /home/ada/.local/share/brimlog/containers/K7QX2M9T4B.app.brimlog
struct SharedDirectory {
  static std::optional<std::filesystem::path> forGroup(
      std::string_view group, const std::optional<std::string>& xdgDataHome,
      const std::optional<std::string>& home);
};

}  // namespace brimlog
