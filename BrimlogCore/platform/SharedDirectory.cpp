#include "platform/SharedDirectory.hpp"

namespace brimlog {

std::optional<std::filesystem::path> SharedDirectory::forGroup(
    std::string_view group, const std::optional<std::string>& xdgDataHome,
    const std::optional<std::string>& home) {
  if (group.empty() || group == "." || group == ".." || group.find('/') != std::string_view::npos) {
    return std::nullopt;
  }
  std::filesystem::path dataHome;
  if (xdgDataHome && std::filesystem::path(*xdgDataHome).is_absolute()) {
    dataHome = *xdgDataHome;
  } else if (home && std::filesystem::path(*home).is_absolute()) {
    dataHome = std::filesystem::path(*home) / ".local" / "share";
  } else {
    return std::nullopt;
  }
  return dataHome / "brimlog" / "containers" / group;
}

}  // namespace brimlog
