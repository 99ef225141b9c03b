#pragma once

#include <filesystem>
#include <string>

#include "limits/CredentialSource.hpp"

namespace brimlog {

/// Reads keychain items through the keychain command-line tool, and files directly.
///
/// `keychainSecret(service)` runs `<executableURL> find-generic-password -s <service> -w`, which
/// prints the item's password and a line feed, and maps the outcome:
///
/// | the tool                                 | result                              |
/// |------------------------------------------|-------------------------------------|
/// | cannot be started                        | `denied`                            |
/// | has not finished after `timeout` seconds | terminated; `denied`                |
/// | exits 44 (no such item)                  | `notFound`                          |
/// | exits with another non-zero status       | `denied`                            |
/// | exits 0 with output that is not UTF-8    | `malformed`                         |
/// | exits 0                                  | the output without trailing \n, \r  |
///
/// Only trailing line feeds and carriage returns are removed; spaces stay, and an empty password
/// is returned as the empty string. A tool that exits in time but leaves its output open (held by
/// something it started) until the deadline is answered `denied` as well.
///
///     SecurityCLICredentialSource source;
///     std::string record = source.keychainSecret(std::string(claudeKeychainService));
///
/// Holds nothing between calls; each call runs one child process and is done with it on return,
/// so calls from several threads share nothing.
class SecurityCLICredentialSource final : public CredentialSource {
 public:
  std::filesystem::path executableURL = "/usr/bin/security";
  /// Seconds the tool is given to finish.
  double timeout = 30;

  std::string keychainSecret(const std::string& service) const override;
  std::string file(const std::filesystem::path& path) const override;
};

}  // namespace brimlog
