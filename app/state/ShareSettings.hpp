#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// The sharing settings of the config file (brimlog.conf), an INI file:
///
///     # where this machine's ledger goes, and under which names
///     [share]
///     to = postgresql://ana@db.example/team
///     machine = laptop
///     user = ana
///
/// Lines starting with `#` or `;` are comments. A section or key this reader does not know is a
/// mistake, told with the file and line, so a misspelt setting is never quietly ignored. Every
/// value is optional; the command line's options stand above them.
struct ShareSettings {
  /// The shared ledger: a `postgresql://` URI or a libpq connection string. It may hold a
  /// password, so it is only ever shown redacted.
  std::optional<std::string> to;
  std::optional<std::string> machine;
  std::optional<std::string> user;

  /// `given`'s values (the command line's), and these settings' where it has none.
  ShareSettings overriddenBy(const ShareSettings& given) const;

  /// `to`; throws CommandError saying how to set one when there is none: with `option` (--to,
  /// --from) or in `configFile`.
  std::string target(std::string_view option, const std::filesystem::path& configFile) const;

  /// The settings in `text`, or nothing with `mistake` set to what is wrong and on which line
  /// ("line 3: unknown key tto in [share]; …").
  static std::optional<ShareSettings> parse(std::string_view text, std::string& mistake);

  /// The settings of the file at `path`; none at all when it does not exist. Throws
  /// CommandError naming the file (and line) when it cannot be read or holds a mistake.
  static ShareSettings load(const std::filesystem::path& path);
};

}  // namespace brimlog
