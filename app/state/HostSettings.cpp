#include "state/HostSettings.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/CommandLineMistake.hpp"
#include "platform/StateFolder.hpp"

namespace brimlog {
namespace fs = std::filesystem;

std::optional<std::string> processEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

HostSettings HostSettings::resolve(const CommandLine& given, const EnvironmentLookup& environment) {
  HostSettings settings;
  // The user's own home, which the database's default follows even when --home points the
  // reading elsewhere.
  fs::path userHome;
  if (auto home = environment("HOME"); home && fs::path(*home).is_absolute()) {
    userHome = *home;
  } else {
    userHome = ToolLocations::userHome();
  }
  if (given.home) {
    const std::string& home = *given.home;
    std::error_code error;
    const char* unreadable = !fs::is_directory(home, error)             ? "a folder"
                             : ::access(home.c_str(), R_OK | X_OK) != 0 ? "a folder you can read"
                                                                        : nullptr;
    if (unreadable) {
      throw CommandLineMistake::wrongValue("--home", home, unreadable,
                                           "give the home folder that holds the tools' logs");
    }
    settings.home = home;
  } else {
    settings.home = userHome;
  }
  ToolVariables toolVariables;
  for (const std::string_view name : ToolLocations::variables()) {
    const std::string key(name);
    if (auto value = environment(key.c_str()); value && !value->empty()) {
      toolVariables.emplace(key, std::move(*value));
    }
  }
  settings.tools = ToolLocations::resolve(settings.home, toolVariables);

  const std::optional<std::string> dataHome = environment("XDG_DATA_HOME");
  const fs::path userDatabase =
      (dataHome && fs::path(*dataHome).is_absolute() ? fs::path(*dataHome)
                                                     : userHome / ".local" / "share") /
      "brimlog" / "usage.db";
  settings.database = given.database ? fs::path(*given.database) : userDatabase;
  // A database of its own keeps its state beside it, away from the user's widgets.
  const bool ownDatabase = given.database && fs::absolute(settings.database).lexically_normal() !=
                                                 userDatabase.lexically_normal();
  // The user's home is absolute, so there always is a state folder.
  settings.stateFolder = *StateFolder::locate(
      {.sharedDir = given.sharedDir,
       .database = ownDatabase ? std::optional(settings.database) : std::nullopt,
       .xdgStateHome = environment("XDG_STATE_HOME"),
       .home = userHome.string()});

  if (!given.needsCalendar) {
    // Left as UTC, which loads nothing until it is used.
  } else {
    settings.calendar = calendarFor(given.zone, environment);
  }

  if (given.now) {
    std::optional<Date> date = parseISO8601(*given.now);
    if (!date) {
      throw CommandLineMistake::wrongValue("--now", *given.now, "an ISO 8601 instant",
                                           "write it with its zone, as 2026-11-20T09:30:00Z");
    }
    settings.now = *date;
  } else {
    settings.now = currentDate();
  }

  const std::optional<std::string> noColor = environment("NO_COLOR");
  settings.noColor = noColor && !noColor->empty();
  if (const std::optional<std::string> columns = environment("COLUMNS")) {
    int value = 0;
    const auto [end, error] =
        std::from_chars(columns->data(), columns->data() + columns->size(), value);
    if (error == std::errc{} && end == columns->data() + columns->size() && value > 0) {
      settings.columns = value;
    }
  }

  auto nonEmpty = [&](const char* name) -> std::optional<std::string> {
    auto value = environment(name);
    if (value && value->empty()) return std::nullopt;
    return value;
  };
  settings.claudeUsageURL = nonEmpty("BRIMLOG_CLAUDE_USAGE_URL");
  settings.codexUsageURL = nonEmpty("BRIMLOG_CODEX_USAGE_URL");
  settings.sessionBusAddress = nonEmpty("DBUS_SESSION_BUS_ADDRESS");
  if (const auto clock = nonEmpty("BRIMLOG_CLOCK_FILE")) settings.clockFile = *clock;

  const std::optional<std::string> configHome = environment("XDG_CONFIG_HOME");
  const std::optional<std::string> config = nonEmpty("BRIMLOG_CONFIG");
  settings.configFile =
      config ? fs::path(*config)
             : (configHome && fs::path(*configHome).is_absolute() ? fs::path(*configHome)
                                                                  : userHome / ".config") /
                   "brimlog" / "brimlog.conf";
  if (given.readsConfig) settings.share = ShareSettings::load(settings.configFile);
  if (!settings.share.machine) settings.share.machine = hostName();
  return settings;
}

namespace {

// Creates from the top down so every new level gets mode 0700, not the process's umask.
void createPrivateFolders(const fs::path& folder, const char* what, const char* remedy) {
  std::vector<fs::path> missing;
  for (fs::path dir = folder; !dir.empty(); dir = dir.parent_path()) {
    std::error_code error;
    if (fs::exists(dir, error)) break;
    missing.push_back(dir);
    if (dir == dir.parent_path()) break;
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST) {
      throw CommandError(std::string("cannot create the ") + what + " " + it->string() + " (" +
                         std::strerror(errno) + "); " + remedy);
    }
  }
}

}  // namespace

std::string HostSettings::hostName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "localhost";
  return name;
}

void HostSettings::prepareDatabaseDirectory() const {
  if (database.filename() == ":memory:") return;
  createPrivateFolders(database.parent_path(), "database's folder",
                       "choose another database with --db");
}

void HostSettings::prepareStateFolder() const {
  createPrivateFolders(stateFolder, "state folder", "choose another with --shared-dir");
}

Calendar HostSettings::calendarFor(const std::optional<std::string>& zone,
                                   const EnvironmentLookup& environment) {
  if (zone) {
    std::optional<Calendar> calendar = Calendar::named(*zone);
    if (!calendar) {
      throw CommandLineMistake::wrongValue("--tz", *zone, "a time zone",
                                           "give an IANA name such as Europe/Berlin");
    }
    return *calendar;
  }
  const std::optional<std::string> tz = environment("TZ");
  return Calendar::local(tz ? std::optional<std::string_view>(*tz) : std::nullopt);
}

}  // namespace brimlog
