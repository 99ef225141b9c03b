#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
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

  static StubCredentialSource answering(std::string secret) {
    StubCredentialSource source;
    source.secret = std::move(secret);
    return source;
  }
  static StubCredentialSource failing(CredentialError::Kind kind) {
    StubCredentialSource source;
    source.keychainError = kind;
    return source;
  }
  static StubCredentialSource throwing() {
    StubCredentialSource source;
    source.throwOther = true;
    return source;
  }

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

/// The kind of CredentialError a call throws, or nothing when it returns; `message` receives the
/// error's text.
template <typename Call>
std::optional<CredentialError::Kind> errorOf(Call&& call, std::string* message = nullptr) {
  try {
    call();
  } catch (const CredentialError& error) {
    if (message) *message = error.what();
    return error.kind();
  }
  return std::nullopt;
}

}  // namespace brimlog::testing
