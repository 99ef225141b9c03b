#include "HostSettings.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ingest/ProviderLocations.hpp"

namespace brimlog {
namespace fs = std::filesystem;

HostSettings HostSettings::resolve(const std::optional<std::string>& home,
                                   const std::optional<std::string>& database,
                                   const std::optional<std::string>& zone,
                                   const std::optional<std::string>& now) {
  HostSettings settings;
  if (home) {
    std::error_code error;
    if (!fs::is_directory(*home, error)) {
      throw CommandError("--home " + *home + ": " +
                         (error ? error.message() : std::string("no such directory")));
    }
    if (::access(home->c_str(), R_OK | X_OK) != 0) {
      throw CommandError("--home " + *home + ": " + std::strerror(errno));
    }
    settings.home = *home;
  } else {
    settings.home = ProviderLocations::live().home();
  }

  settings.database = database ? fs::path(*database) : defaultDatabase();

  if (zone) {
    std::optional<Calendar> calendar = Calendar::named(*zone);
    if (!calendar) {
      throw CommandError("--tz " + *zone +
                         ": unknown time zone (use an IANA name such as Europe/Berlin)");
    }
    settings.calendar = *calendar;
  } else {
    settings.calendar = Calendar::current();
  }

  if (now) {
    std::optional<Date> date = parseISO8601(*now);
    if (!date) {
      throw CommandError("--now " + *now +
                         ": not an ISO 8601 date-time with a zone (such as 2026-11-20T09:30:00Z)");
    }
    settings.now = *date;
  } else {
    settings.now = currentDate();
  }
  return settings;
}

fs::path HostSettings::defaultDatabase() {
  const char* dataHome = std::getenv("XDG_DATA_HOME");
  fs::path base = dataHome && *dataHome ? fs::path(dataHome)
                                        : ProviderLocations::live().home() / ".local/share";
  return base / "brimlog" / "usage.db";
}

void HostSettings::prepareDatabaseDirectory() const {
  const fs::path parent = database.parent_path();
  if (parent.empty() || database.filename() == ":memory:") return;
  // Create from the top down so every new level gets mode 0700, not the process's umask.
  std::vector<fs::path> missing;
  for (fs::path dir = parent; !dir.empty(); dir = dir.parent_path()) {
    std::error_code error;
    if (fs::exists(dir, error)) break;
    missing.push_back(dir);
    if (dir == dir.parent_path()) break;
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST) {
      throw CommandError("Cannot create the database directory " + it->string() + ": " +
                         std::strerror(errno));
    }
  }
}

}  // namespace brimlog
