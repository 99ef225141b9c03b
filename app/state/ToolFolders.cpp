#include "state/ToolFolders.hpp"

#include <sys/stat.h>

#include <set>
#include <utility>

namespace brimlog {
namespace fs = std::filesystem;
namespace {

bool pathExists(const fs::path& path) {
  std::error_code error;
  return fs::exists(path, error);
}

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return std::string(text.substr(first, last - first + 1));
}

}  // namespace

ToolFolders ToolFolders::resolve(const fs::path& home,
                                 const std::optional<std::string>& claudeConfigDir,
                                 const std::optional<std::string>& codexHome) {
  ToolFolders tools;
  tools.home = home;
  if (claudeConfigDir && !claudeConfigDir->empty()) {
    std::string_view rest = *claudeConfigDir;
    while (!rest.empty()) {
      const auto comma = rest.find(',');
      const std::string entry = trimmed(rest.substr(0, comma));
      if (!entry.empty()) tools.claudeDirs.emplace_back(entry);
      rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
    }
  }
  if (tools.claudeDirs.empty()) tools.claudeDirs = {home / ".claude", home / ".config" / "claude"};
  tools.codexHome = codexHome && !codexHome->empty() ? fs::path(*codexHome) : home / ".codex";
  return tools;
}

std::vector<LogFolder> ToolFolders::logFolders() const {
  std::vector<LogFolder> folders;
  std::set<std::pair<dev_t, ino_t>> claudeSeen;
  for (const fs::path& dir : claudeDirs) {
    const fs::path projects = ProviderLocations::projectsIn(dir);
    struct stat status {};
    if (::stat(projects.c_str(), &status) != 0) continue;  // nothing there to read
    if (!claudeSeen.emplace(status.st_dev, status.st_ino).second) continue;
    folders.push_back({projects, ProviderID::claude, ".jsonl"});
  }
  for (const fs::path& sessions : ProviderLocations::sessionsIn(codexHome)) {
    folders.push_back({sessions, ProviderID::codex, ".jsonl"});
  }
  folders.push_back({locations().grokSessions(), ProviderID::grok, ".json"});
  return folders;
}

std::vector<fs::path> ToolFolders::possibleLogRoots() const {
  std::vector<fs::path> roots;
  for (const fs::path& dir : claudeDirs) roots.push_back(ProviderLocations::projectsIn(dir));
  for (const fs::path& sessions : ProviderLocations::sessionsIn(codexHome)) {
    roots.push_back(sessions);
  }
  roots.push_back(locations().grokSessions());
  return roots;
}

bool ToolFolders::isPresent(ProviderID provider) const {
  switch (provider) {
    case ProviderID::claude:
      for (const fs::path& dir : claudeDirs) {
        if (pathExists(ProviderLocations::projectsIn(dir))) return true;
      }
      return false;
    case ProviderID::codex:
      return pathExists(ProviderLocations::sessionsIn(codexHome).front()) ||
             pathExists(ProviderLocations::authFileIn(codexHome));
    case ProviderID::grok:
    case ProviderID::cursor:
      return locations().isPresent(provider);
  }
  return false;
}

}  // namespace brimlog
