#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "limits/CredentialSource.hpp"

namespace brimlog::testing {

/// Stands in for the keychain, which this machine does not have: `keychainSecret` answers the
/// fixed `secret`, or throws `keychainError` (a CredentialError of that kind) or, with
/// `throwOther`, a plain std::runtime_error. `file` reads real files, failing as the production
/// sources do. Every call is recorded.
struct StubCredentialSource : CredentialSource {
  std::string secret;
  std::optional<CredentialError::Kind> keychainError;
  bool throwOther = false;

  mutable std::mutex mutex;
  mutable std::vector<std::string> servicesAsked;
  mutable std::vector<std::filesystem::path> filesRead;

  std::string keychainSecret(const std::string& service) const override {
    {
      std::lock_guard lock(mutex);
      servicesAsked.push_back(service);
    }
    if (keychainError) throw CredentialError(*keychainError, "keychain item " + service);
    if (throwOther) throw std::runtime_error("the keychain stand-in failed");
    return secret;
  }

  std::string file(const std::filesystem::path& path) const override {
    {
      std::lock_guard lock(mutex);
      filesRead.push_back(path);
    }
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
      throw CredentialError(CredentialError::Kind::notFound, path.string() + ": no such file");
    }
    if (std::filesystem::is_directory(path, error)) {
      throw CredentialError(CredentialError::Kind::denied, path.string() + ": is a folder");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CredentialError(CredentialError::Kind::denied, path.string() + ": cannot open");
    return std::string{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
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
