#include "limits/CredentialSource.hpp"

#include <cerrno>
#include <system_error>

#include "platform/WholeFile.hpp"

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
  try {
    return WholeFile::read(path, WholeFile::kSmallFileLimit).bytes;
  } catch (const std::filesystem::filesystem_error& error) {
    const int code = error.code().value();
    const auto kind = code == ENOENT || code == ENOTDIR ? CredentialError::Kind::notFound
                                                        : CredentialError::Kind::denied;
    throw CredentialError(kind, "Cannot read the credential file " + path.string() + ": " +
                                    (code == EISDIR || code == EINVAL || code == EFBIG
                                         ? "not a regular file of a credential's size"
                                         : std::generic_category().message(code)));
  }
}

}  // namespace brimlog
