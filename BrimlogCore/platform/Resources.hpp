#pragma once

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

namespace brimlog {

/// The read-only files that ship with the core library (the price list, the provider logos).
///
/// They are looked for, in this order:
/// 1. `resources/` beside the running executable (an unpacked, self-contained copy);
/// 2. `../share/brimlog/` from the executable's folder, which is where both the build tree and an
///    installed prefix keep them;
/// 3. the data folder of the prefix the program was configured to install into.
class Resources {
 public:
  /// The folders searched, for an executable in `executableDir`.
  static std::vector<std::filesystem::path> searchPath(const std::filesystem::path& executableDir);

  /// The first existing file called `name` in the search path of the running executable.
  static std::optional<std::filesystem::path> find(std::string_view name);

  /// The first existing file called `name` in the given folders.
  static std::optional<std::filesystem::path> find(
      std::string_view name, const std::vector<std::filesystem::path>& searchPath);

  /// The folder of the running executable (from /proc/self/exe); empty when it cannot be read.
  static std::filesystem::path executableDir();
};

}  // namespace brimlog
