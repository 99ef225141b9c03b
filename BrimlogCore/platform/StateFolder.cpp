#include "platform/StateFolder.hpp"

namespace brimlog {
namespace fs = std::filesystem;

std::optional<fs::path> StateFolder::locate(const Given& given) {
  const auto absolute = [](const fs::path& path) {
    std::error_code error;
    const fs::path made = fs::absolute(path, error);
    return (error ? path : made).lexically_normal();
  };
  const auto isAbsolute = [](const std::optional<std::string>& path) {
    return path && fs::path(*path).is_absolute();
  };
  if (given.sharedDir && !given.sharedDir->empty()) return absolute(*given.sharedDir);
  if (given.database) return absolute(*given.database).parent_path();
  if (isAbsolute(given.xdgStateHome)) return absolute(fs::path(*given.xdgStateHome) / "brimlog");
  if (isAbsolute(given.home))
    return absolute(fs::path(*given.home) / ".local" / "state" / "brimlog");
  return std::nullopt;
}

}  // namespace brimlog
