#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brimlog {

/// The keychain service name under which Claude Code keeps its sign-in record (a JSON document
/// whose "claudeAiOauth" object holds the OAuth token). Where there is no keychain, Claude Code
/// keeps the same document in a file instead (see ClaudeConfigCredentialSource).
inline constexpr std::string_view claudeKeychainService = "Claude Code-credentials";

/// Why a secret could not be had. The message names what was asked for, never the secret.
class CredentialError : public std::runtime_error {
 public:
  enum class Kind {
    /// The item or file does not exist.
    notFound,
    /// It exists or may exist but could not be read.
    denied,
    /// It was obtained but is not usable text.
    malformed,
  };

  CredentialError(Kind kind, const std::string& what) : std::runtime_error(what), kind_(kind) {}

  Kind kind() const { return kind_; }

  /// Errors compare by kind alone: the message is for people.
  bool operator==(const CredentialError& other) const { return kind_ == other.kind_; }

 private:
  Kind kind_;
};

std::string_view caseName(CredentialError::Kind kind);

/// The whole contents of a credential file, the common `CredentialSource::file` of every source.
/// Throws CredentialError: `notFound` when the file or a folder on its way does not exist
/// (ENOENT, ENOTDIR); `denied` for every other failure, a folder or another file that is not a
/// regular one included. The message names the path and the reason.
std::string readCredentialFile(const std::filesystem::path& path);

/// Where the limit fetchers get the user's sign-in secrets. Fetchers take one at construction so
/// a test double or another platform's secret store can stand in.
class CredentialSource {
 public:
  virtual ~CredentialSource() = default;

  /// The secret stored under a keychain service name, as text. Blocks until it is known.
  /// Throws CredentialError.
  virtual std::string keychainSecret(const std::string& service) const = 0;

  /// The whole contents of a file. Throws CredentialError: `notFound` when the file does not
  /// exist, `denied` for every other failure.
  virtual std::string file(const std::filesystem::path& path) const = 0;
};

}  // namespace brimlog
