#pragma once

#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "limits/CredentialSource.hpp"

namespace brimlog::testing {

/// Stands in for the keychain, which this machine does not have: `keychainSecret` answers the
/// fixed `secret`, or throws `error` when there is one. `file` reads real files as every
/// production source does, and records the paths asked for. For one thread at a time.
struct StubCredentialSource : CredentialSource {
  explicit StubCredentialSource(std::string secret = "") : secret(std::move(secret)) {}
  explicit StubCredentialSource(std::exception_ptr error) : error(std::move(error)) {}

  std::string keychainSecret(const std::string&) const override {
    if (error) std::rethrow_exception(error);
    return secret;
  }

  std::string file(const std::filesystem::path& path) const override {
    filesRead.push_back(path);
    return readCredentialFile(path);
  }

  std::string secret;
  std::exception_ptr error;
  mutable std::vector<std::filesystem::path> filesRead;
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
