#include "limits/ClaudeConfigCredentialSource.hpp"

#include <simdjson.h>

#include <utility>

namespace brimlog {

ClaudeConfigCredentialSource::ClaudeConfigCredentialSource(
    std::vector<std::filesystem::path> configDirs)
    : configDirs_(std::move(configDirs)) {}

std::string ClaudeConfigCredentialSource::keychainSecret(const std::string& service) const {
  if (service != claudeKeychainService) {
    throw CredentialError(CredentialError::Kind::notFound,
                          "No secret is kept for \"" + service + "\" on this system");
  }
  std::string looked;
  for (const std::filesystem::path& folder : configDirs_) {
    const std::filesystem::path path = folder / ".credentials.json";
    std::string text;
    try {
      text = readCredentialFile(path);
    } catch (const CredentialError& error) {
      // Only a missing file passes the turn to the next folder.
      if (error.kind() != CredentialError::Kind::notFound) throw;
      looked += (looked.empty() ? "" : ", ") + path.string();
      continue;
    }
    if (!simdjson::validate_utf8(text.data(), text.size())) {
      throw CredentialError(CredentialError::Kind::malformed,
                            "The credential file " + path.string() + " is not UTF-8 text");
    }
    return text;
  }
  throw CredentialError(CredentialError::Kind::notFound,
                        looked.empty() ? "No configuration folder of Claude Code is known"
                                       : "No credential file found (looked for " + looked + ")");
}

std::string ClaudeConfigCredentialSource::file(const std::filesystem::path& path) const {
  return readCredentialFile(path);
}

}  // namespace brimlog
