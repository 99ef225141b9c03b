#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// A mistake in how the command was called or set up, told to the user as it stands.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What every subcommand works with, resolved once from the shared options: where the tools'
/// data lives, the database, the calendar of the report's days and the one reading of the clock.
struct HostSettings {
  std::filesystem::path home;
  std::filesystem::path database;
  Calendar calendar = Calendar::utc();
  Date now;

  /// The options as given on the command line; absent ones take their defaults (the user's home,
  /// `defaultDatabase()`, the local time zone, the clock). Throws CommandError naming the option
  /// for an unknown zone, an unparsable instant, or a home directory that is missing or cannot
  /// be read.
  static HostSettings resolve(const std::optional<std::string>& home,
                              const std::optional<std::string>& database,
                              const std::optional<std::string>& zone,
                              const std::optional<std::string>& now);

  /// ${XDG_DATA_HOME:-$HOME/.local/share}/brimlog/usage.db
  static std::filesystem::path defaultDatabase();

  /// Creates the database's missing parent directories, readable by the user alone (0700).
  /// Throws CommandError with the directory and the system's reason.
  void prepareDatabaseDirectory() const;
};

}  // namespace brimlog
