#include "limits/ClaudeConfigCredentialSource.hpp"

#include <simdjson.h>

#include <cstdlib>

namespace brimlog {

ClaudeConfigCredentialSource::ClaudeConfigCredentialSource(
    const std::filesystem::path& home, const std::optional<std::filesystem::path>& configDir) {
  const std::filesystem::path folder =
      configDir && !configDir->empty() ? *configDir : home / ".claude";
  credentialsFile_ = folder / ".credentials.json";
}

ClaudeConfigCredentialSource ClaudeConfigCredentialSource::fromEnvironment(
    const std::filesystem::path& home) {
  std::optional<std::filesystem::path> configDir;
  if (const char* value = std::getenv("CLAUDE_CONFIG_DIR"); value != nullptr && *value != '\0') {
    configDir = value;
  }
  return ClaudeConfigCredentialSource(home, configDir);
}

std::string ClaudeConfigCredentialSource::keychainSecret(const std::string& service) const {
  if (service != claudeService) {
    throw CredentialError(CredentialError::Kind::notFound,
                          "No secret is kept for \"" + service + "\" on this system");
  }
  std::string text = readCredentialFile(credentialsFile_);
  if (!simdjson::validate_utf8(text.data(), text.size())) {
    throw CredentialError(
        CredentialError::Kind::malformed,
        "The credential file " + credentialsFile_.string() + " is not UTF-8 text");
  }
  return text;
}

std::string ClaudeConfigCredentialSource::file(const std::filesystem::path& path) const {
  return readCredentialFile(path);
}

}  // namespace brimlog
