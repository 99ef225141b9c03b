#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "limits/CredentialSource.hpp"

namespace brimlog {

/// The credential source where there is no keychain: Claude Code then keeps the sign-in record
/// that a keychain would hold under `claudeKeychainService` in the file `.credentials.json` of its
/// configuration folder. Claude Code may use more than one folder; the record is read from the
/// first of `configDirs` that has the file.
///
/// `keychainSecret(claudeKeychainService)` returns that file's text as it is. When no folder has
/// the file (or the list is empty) it throws `notFound`; when the first file that exists cannot be
/// read, `denied` (the folders after it are not tried); bytes that are not UTF-8 give `malformed`.
/// Every other service name gives `notFound`: nothing else is kept in a keychain on these systems.
///
/// The folders come from the caller, which alone reads the environment (`claudeConfigDir` below
/// is the value of CLAUDE_CONFIG_DIR, empty when unset):
///
///     ClaudeConfigCredentialSource source{
///         ClaudeConfigCredentialSource::configDirsFor(home, claudeConfigDir)};
///     std::string record = source.keychainSecret(std::string(claudeKeychainService));
///
/// Holds only the folders' paths, so calls from several threads share nothing that changes.
class ClaudeConfigCredentialSource final : public CredentialSource {
 public:
  /// Reads the record from the first of `configDirs`, in this order, that has the file.
  explicit ClaudeConfigCredentialSource(std::vector<std::filesystem::path> configDirs);

  const std::vector<std::filesystem::path>& configDirs() const { return configDirs_; }

  std::string keychainSecret(const std::string& service) const override;
  std::string file(const std::filesystem::path& path) const override;

 private:
  std::vector<std::filesystem::path> configDirs_;
};

}  // namespace brimlog
