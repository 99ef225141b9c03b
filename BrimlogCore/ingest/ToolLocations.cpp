#include "ingest/ToolLocations.hpp"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <string>
#include <utility>

namespace brimlog {
namespace fs = std::filesystem;

std::vector<std::string_view> ToolLocations::variables() {
  std::vector<std::string_view> names;
  for (const ToolSource& tool : ToolSource::all()) {
    for (const std::string_view name : tool.variables) {
      if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
  }
  return names;
}

ToolLocations ToolLocations::resolve(fs::path home, const ToolVariables& variables) {
  ToolLocations locations;
  for (const ToolSource& tool : ToolSource::all()) {
    locations.places_[tool.provider] = tool.places(home, variables);
  }
  locations.home_ = std::move(home);
  return locations;
}

fs::path ToolLocations::userHome() {
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
    if (error != 0 || found == nullptr || entry.pw_dir == nullptr) return "/";
    const fs::path home = entry.pw_dir;
    return home.is_absolute() ? home : fs::path("/");
  }
}

std::vector<LogFolder> ToolLocations::logFolders() const {
  std::vector<LogFolder> folders;
  std::set<std::pair<dev_t, ino_t>> seen;
  for (const ToolPlaces& places : places_) {
    for (const LogFolder& folder : places.logFolders) {
      struct stat status {};
      if (::stat(folder.root.c_str(), &status) != 0) continue;  // nothing there to read
      if (seen.emplace(status.st_dev, status.st_ino).second) folders.push_back(folder);
    }
  }
  return folders;
}

std::vector<LogFolder> ToolLocations::possibleLogRoots() const {
  std::vector<LogFolder> roots;
  for (const ToolPlaces& places : places_) {
    roots.insert(roots.end(), places.logFolders.begin(), places.logFolders.end());
  }
  return roots;
}

bool ToolLocations::isPresent(ProviderID provider) const {
  return std::ranges::any_of(places_[provider].marks, [](const fs::path& mark) {
    std::error_code error;
    return fs::exists(mark, error);
  });
}

}  // namespace brimlog
