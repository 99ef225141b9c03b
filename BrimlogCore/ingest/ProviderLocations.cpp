#include "ingest/ProviderLocations.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <utility>

namespace brimlog {
namespace {

bool pathExists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error) && !error;
}

// The home directory recorded for this process's user, or nothing.
std::filesystem::path userDatabaseHome() {
  const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::string buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384, '\0');
  for (;;) {
    passwd entry{};
    passwd* found = nullptr;
    const int error = ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < (size_t{1} << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (error != 0 || found == nullptr || entry.pw_dir == nullptr) return {};
    return entry.pw_dir;
  }
}

std::filesystem::path currentHome() {
  std::filesystem::path home = userDatabaseHome();
  if (home.is_absolute()) return home;
  return "/";
}

}  // namespace

ProviderLocations::ProviderLocations(std::filesystem::path home) : home_(std::move(home)) {}

std::filesystem::path ProviderLocations::claudeProjects() const {
  return projectsIn(home_ / ".claude");
}

std::filesystem::path ProviderLocations::projectsIn(const std::filesystem::path& claudeDir) {
  return claudeDir / "projects";
}

std::vector<std::filesystem::path> ProviderLocations::codexSessions() const {
  return sessionsIn(home_ / ".codex");
}

std::vector<std::filesystem::path> ProviderLocations::sessionsIn(
    const std::filesystem::path& codexHome) {
  return {codexHome / "sessions", codexHome / "archived_sessions"};
}

std::filesystem::path ProviderLocations::authFileIn(const std::filesystem::path& codexHome) {
  return codexHome / "auth.json";
}

std::filesystem::path ProviderLocations::grokSessions() const {
  return home_ / ".grok" / "sessions";
}

std::filesystem::path ProviderLocations::cursorStateDB() const {
  return home_ / "Library" / "Application Support" / "Cursor" / "User" / "globalStorage" /
         "state.vscdb";
}

std::filesystem::path ProviderLocations::codexAuthFile() const {
  return authFileIn(home_ / ".codex");
}

bool ProviderLocations::isPresent(ProviderID provider) const {
  switch (provider) {
    case ProviderID::claude:
      return pathExists(claudeProjects());
    case ProviderID::codex:
      return pathExists(codexSessions().front()) || pathExists(codexAuthFile());
    case ProviderID::grok:
      return pathExists(grokSessions());
    case ProviderID::cursor:
      return pathExists(cursorStateDB());
  }
  return false;
}

const ProviderLocations& ProviderLocations::live() {
  static const ProviderLocations instance(currentHome());
  return instance;
}

}  // namespace brimlog
