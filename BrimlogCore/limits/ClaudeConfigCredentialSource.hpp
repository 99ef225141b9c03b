#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "limits/CredentialSource.hpp"

namespace brimlog {

/// The credential source where there is no keychain: Claude Code then keeps the sign-in record
/// that a keychain would hold under "Claude Code-credentials" in the file `.credentials.json` of
/// its configuration folder, which is `$CLAUDE_CONFIG_DIR` when set and `<home>/.claude`
/// otherwise.
///
/// `keychainSecret(claudeService)` returns that file's text as it is; a missing file (or folder)
/// gives `notFound`, any other read failure `denied`, bytes that are not UTF-8 `malformed`. Every
/// other service name gives `notFound`: nothing else is kept in a keychain on these systems.
///
///     auto source = ClaudeConfigCredentialSource::fromEnvironment(home);
///     std::string record = source.keychainSecret("Claude Code-credentials");
///
/// Holds only the file's path, so calls from several threads share nothing that changes.
class ClaudeConfigCredentialSource final : public CredentialSource {
 public:
  /// The keychain service name under which Claude Code keeps its sign-in record.
  static constexpr std::string_view claudeService = "Claude Code-credentials";

  /// `configDir` is Claude Code's configuration folder when one is chosen; absent or empty means
  /// `<home>/.claude`.
  ClaudeConfigCredentialSource(const std::filesystem::path& home,
                               const std::optional<std::filesystem::path>& configDir);

  /// The same, with the configuration folder taken from the CLAUDE_CONFIG_DIR environment
  /// variable (unset or empty: the default). The environment is read here and only here.
  static ClaudeConfigCredentialSource fromEnvironment(const std::filesystem::path& home);

  /// The file read for `claudeService`.
  const std::filesystem::path& credentialsFile() const { return credentialsFile_; }

  std::string keychainSecret(const std::string& service) const override;
  std::string file(const std::filesystem::path& path) const override;

 private:
  std::filesystem::path credentialsFile_;
};

}  // namespace brimlog
