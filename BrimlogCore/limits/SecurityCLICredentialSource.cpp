#include "limits/SecurityCLICredentialSource.hpp"

#include <simdjson.h>

#include <system_error>

#include "platform/ChildProcess.hpp"

namespace brimlog {
namespace {

// The tool's exit status when no item matches.
constexpr int kItemNotFoundStatus = 44;

}  // namespace

std::string SecurityCLICredentialSource::keychainSecret(const std::string& service) const {
  const auto failure = [&service](CredentialError::Kind kind, const std::string& reason) {
    return CredentialError(kind, "Cannot read the keychain item \"" + service + "\": " + reason);
  };
  ChildProcess::Result run = ChildProcess::run(
      executableURL, {"find-generic-password", "-s", service, "-w"}, Seconds{timeout});

  using Outcome = ChildProcess::Outcome;
  switch (run.outcome) {
    case Outcome::notLaunched:
      throw failure(CredentialError::Kind::denied,
                    "cannot start " + executableURL.string() + " (" +
                        std::generic_category().message(run.launchError) + ")");
    case Outcome::timedOut:
      throw failure(CredentialError::Kind::denied,
                    executableURL.string() + " did not finish in time and was terminated");
    case Outcome::signaled:
      throw failure(CredentialError::Kind::denied,
                    executableURL.string() + " was ended by signal " + std::to_string(run.signal));
    case Outcome::exited:
      break;
  }
  if (run.exitStatus == kItemNotFoundStatus) {
    throw failure(CredentialError::Kind::notFound, "no such item");
  }
  if (run.exitStatus != 0) {
    throw failure(CredentialError::Kind::denied,
                  executableURL.string() + " failed with status " + std::to_string(run.exitStatus));
  }
  // The output is complete only once the pipe is closed; a tool whose output is still held open
  // at the deadline gave no reliable answer.
  if (!run.outputComplete) {
    throw failure(CredentialError::Kind::denied,
                  "the output of " + executableURL.string() + " did not end in time");
  }
  if (!simdjson::validate_utf8(run.output.data(), run.output.size())) {
    throw failure(CredentialError::Kind::malformed, "the secret is not UTF-8 text");
  }
  std::string secret = std::move(run.output);
  while (!secret.empty() && (secret.back() == '\n' || secret.back() == '\r')) secret.pop_back();
  return secret;
}

std::string SecurityCLICredentialSource::file(const std::filesystem::path& path) const {
  return readCredentialFile(path);
}

}  // namespace brimlog
