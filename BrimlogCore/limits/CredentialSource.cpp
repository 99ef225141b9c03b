#include "limits/CredentialSource.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

std::string_view caseName(CredentialError::Kind kind) {
  switch (kind) {
    case CredentialError::Kind::notFound:
      return "notFound";
    case CredentialError::Kind::denied:
      return "denied";
    case CredentialError::Kind::malformed:
      return "malformed";
  }
  return "denied";
}

std::string readCredentialFile(const std::filesystem::path& path) {
  const auto failure = [&path](int error) {
    const auto kind = error == ENOENT || error == ENOTDIR ? CredentialError::Kind::notFound
                                                          : CredentialError::Kind::denied;
    return CredentialError(kind, "Cannot read the credential file " + path.string() + ": " +
                                     std::generic_category().message(error));
  };
  // Non-blocking, so that a named pipe put in the file's place cannot hang the caller at open.
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)};
  if (!fd) throw failure(errno);
  struct stat status {};
  if (::fstat(fd.get(), &status) != 0) throw failure(errno);
  if (S_ISDIR(status.st_mode)) throw failure(EISDIR);
  if (!S_ISREG(status.st_mode)) {
    throw CredentialError(
        CredentialError::Kind::denied,
        "Cannot read the credential file " + path.string() + ": not a regular file");
  }

  std::string contents;
  std::array<char, 16 * 1024> chunk;
  for (;;) {
    const ssize_t count = ::read(fd.get(), chunk.data(), chunk.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      throw failure(errno);
    }
    if (count == 0) return contents;
    contents.append(chunk.data(), static_cast<size_t>(count));
  }
}

}  // namespace brimlog
