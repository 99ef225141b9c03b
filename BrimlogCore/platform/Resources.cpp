#include "platform/Resources.hpp"

#ifndef BRIMLOG_INSTALL_DATADIR
#define BRIMLOG_INSTALL_DATADIR "/usr/local/share/brimlog"
#endif

namespace brimlog {

std::vector<std::filesystem::path> Resources::searchPath(
    const std::filesystem::path& executableDir) {
  std::vector<std::filesystem::path> folders;
  if (!executableDir.empty()) {
    folders.push_back(executableDir / "resources");
    folders.push_back((executableDir / ".." / "share" / "brimlog").lexically_normal());
  }
  folders.emplace_back(BRIMLOG_INSTALL_DATADIR);
  return folders;
}

std::optional<std::filesystem::path> Resources::find(std::string_view name) {
  return find(name, searchPath(executableDir()));
}

std::optional<std::filesystem::path> Resources::find(
    std::string_view name, const std::vector<std::filesystem::path>& searchPath) {
  for (const auto& folder : searchPath) {
    const auto candidate = folder / name;
    std::error_code error;
    if (std::filesystem::exists(candidate, error)) return candidate;
  }
  return std::nullopt;
}

std::filesystem::path Resources::executableDir() {
  std::error_code error;
  const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) return {};
  return executable.parent_path();
}

}  // namespace brimlog
