#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "ingest/ToolLocations.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "state/ShareSettings.hpp"

namespace brimlog {

/// A mistake in how the command was called or set up, told to the user as it stands.
class CommandError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The value of an environment variable, or nothing when it is unset.
using EnvironmentLookup = std::function<std::optional<std::string>(const char* name)>;

/// The process's own environment.
std::optional<std::string> processEnvironment(const char* name);

/// The shared options as given on the command line; absent ones take their defaults.
struct CommandLine {
  std::optional<std::string> home;
  std::optional<std::string> database;
  std::optional<std::string> zone;
  std::optional<std::string> now;
  std::optional<std::string> sharedDir;
  /// Whether the command works with days, and so needs the zone resolved: that loads the tz
  /// database, which the status line, shown many times a minute, does without.
  bool needsCalendar = true;
  /// Whether the command reads the config file: the status line, which shares nothing, does not.
  bool readsConfig = true;
};

/// What every subcommand works with, resolved once from the shared options and the environment:
/// where the tools' data lives, the database, the calendar of the report's days, the one
/// reading of the clock, and the limit endpoints asked for. Nothing below the host reads the
/// environment; everything it needs is handed down from here.
struct HostSettings {
  std::filesystem::path home;
  /// The tools' places under `home`, moved by the variables the tools name (CLAUDE_CONFIG_DIR,
  /// CODEX_HOME, ...).
  ToolLocations tools;
  std::filesystem::path database;
  Calendar calendar = Calendar::utc();
  Date now;
  /// The state folder (`StateFolder`): the widgets' snapshot, `RefreshState`, the alert state
  /// and the refresh requests. --shared-dir, else the folder of a database given with --db
  /// other than the default, else ${XDG_STATE_HOME:-$HOME/.local/state}/brimlog.
  std::filesystem::path stateFolder;
  /// NO_COLOR is set (to anything but the empty text): draw without colours.
  bool noColor = false;
  /// COLUMNS as set to a positive number: the terminal's width when the terminal cannot tell.
  std::optional<int> columns;
  /// The brimlog executable, started again for background syncs.
  std::filesystem::path executable = "/proc/self/exe";
  /// BRIMLOG_CLAUDE_USAGE_URL and BRIMLOG_CODEX_USAGE_URL as set; checked when limits are asked.
  std::optional<std::string> claudeUsageURL;
  std::optional<std::string> codexUsageURL;
  /// DBUS_SESSION_BUS_ADDRESS as set: the bus desktop notifications go to; absent when unset or
  /// empty (the bus's usual place is then tried).
  std::optional<std::string> sessionBusAddress;
  /// BRIMLOG_CLOCK_FILE: a file holding an ISO 8601 instant that the daemon takes for the time
  /// now, read afresh at each step, so that a test can move hours in seconds. Unset in use.
  std::optional<std::filesystem::path> clockFile;
  /// The config file: BRIMLOG_CONFIG, else ${XDG_CONFIG_HOME:-$HOME/.config}/brimlog/brimlog.conf.
  std::filesystem::path configFile;
  /// Its [share] settings, with the machine's name defaulting to the host's name.
  ShareSettings share;

  /// Defaults: home $HOME (else the user database's), the database
  /// ${XDG_DATA_HOME:-$HOME/.local/share}/brimlog/usage.db (the user's, whatever --home says), the
  /// zone of TZ (else /etc/localtime; UTC, unresolved, when the command needs no calendar), the
  /// clock. Throws CommandError for a config file that cannot be read or holds a mistake, and
  /// CommandLineMistake (a wrong value) naming the option for an unknown zone, an
  /// unparsable instant, or a home directory that is missing or cannot be read.
  static HostSettings resolve(const CommandLine& given,
                              const EnvironmentLookup& environment = processEnvironment);

  /// The zone days and times are told in: `zone` (--tz), else TZ, else the system's
  /// (/etc/localtime). Throws `CommandLineMistake` for a `zone` the tz database does not know.
  static Calendar calendarFor(const std::optional<std::string>& zone,
                              const EnvironmentLookup& environment = processEnvironment);

  /// This machine's name as the system has it (gethostname), the machine a share goes under
  /// unless told otherwise.
  static std::string hostName();

  /// Create the database's missing parent directories, and the state folder with its missing
  /// parents, readable by the user alone (0700). Throw CommandError with the directory and the
  /// system's reason.
  void prepareDatabaseDirectory() const;
  void prepareStateFolder() const;
};

}  // namespace brimlog
