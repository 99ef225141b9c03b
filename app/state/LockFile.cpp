#include "state/LockFile.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "state/HostSettings.hpp"

namespace brimlog {

std::filesystem::path LockFile::pathFor(const std::filesystem::path& database,
                                        std::string_view suffix) {
  return database.string() + std::string(suffix);
}

FileDescriptor LockFile::open(const std::filesystem::path& database, std::string_view suffix) {
  FileDescriptor fd{::open(pathFor(database, suffix).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
  if (fd) return fd;
  const std::filesystem::path folder =
      database.has_parent_path() ? database.parent_path() : std::filesystem::path(".");
  throw CommandError(fmt::format(
      "the database's folder {} cannot be written ({}); make it writable, or choose another "
      "database with --db",
      folder.string(), std::strerror(errno)));
}

}  // namespace brimlog
