#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "limits/CredentialSource.hpp"

namespace brimlog::testing {

/// Stands in for the keychain, which this machine does not have: `keychainSecret` answers the
/// fixed `secret`, or throws `keychainError` (a CredentialError of that kind) or, with
/// `throwOther`, a plain std::runtime_error. `file` reads real files as every production source
/// does, and records the paths asked for. For one thread at a time.
struct StubCredentialSource : CredentialSource {
  std::string secret;
  std::optional<CredentialError::Kind> keychainError;
  bool throwOther = false;
  mutable std::vector<std::filesystem::path> filesRead;

  std::string keychainSecret(const std::string& service) const override {
    if (keychainError) throw CredentialError(*keychainError, "keychain item " + service);
    if (throwOther) throw std::runtime_error("the keychain stand-in failed");
    return secret;
  }

  std::string file(const std::filesystem::path& path) const override {
    filesRead.push_back(path);
    return readCredentialFile(path);
  }
};

/// The kind of CredentialError a call throws, or nothing when it returns.
template <typename Call>
std::optional<CredentialError::Kind> errorOf(Call&& call) {
  try {
    call();
  } catch (const CredentialError& error) {
    return error.kind();
  }
  return std::nullopt;
}

}  // namespace brimlog::testing
