#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"

namespace brimlog {

class UsageStore;

/// Codex's limits: the record kept in the usage store for `codex` (this provider's own earlier
/// answers as stored by the host, or limits read from Codex's session logs), renewed from
/// ChatGPT's usage endpoint with the tokens Codex keeps in `<codexHome>/auth.json`.
///
/// `fetch(now)`:
/// - a stored record at most 600 seconds old (or dated after `now`) is answered as it is, with
///   no file read and no request;
/// - otherwise a live fetch: `auth.json` ("tokens": "access_token", "account_id"), the token's
///   expiry from its JWT payload, then one GET with the bearer token. Its outcome is `ok` with
///   the windows "session" and "weekly" (lengths as the service gives them), or a status without
///   windows: `unavailable` (no client, no usable auth.json), `signInNeeded` (expired token,
///   401/403), `rateLimited` (429), `unreachable` (transport failure, other status, undecodable
///   body);
/// - a failed live fetch falls back on the stored record, marked stale: with the failure's status,
///   except that `unavailable` keeps the stored status; without a client the stored record is
///   answered unchanged whatever its age.
///
/// Never throws and never writes to the store: storing the answer is the caller's decision.
///
///     CodexLimitsProvider codex{store, credentials, std::make_shared<CurlHTTPClient>(),
///                               CodexLimitsProvider::defaultCodexHome(home)};
///     ProviderLimits limits = codex.fetch(currentDate());
///     store->setLimits(limits, ProviderID::codex);
class CodexLimitsProvider : public LimitsProvider {
 public:
  static constexpr std::string_view defaultEndpoint = "https://chatgpt.com/backend-api/wham/usage";
  /// A stored record younger than this (seconds) is answered without asking the service.
  static constexpr double reuseInterval = 600;

  /// `http` may be null: then no request is ever made and the stored record is all there is.
  /// `endpoint` is the full URL of the usage endpoint; tests point it at a local server.
  CodexLimitsProvider(std::shared_ptr<UsageStore> store,
                      std::shared_ptr<const CredentialSource> credentials,
                      std::shared_ptr<const HTTPClient> http, std::filesystem::path codexHome,
                      std::string endpoint = std::string(defaultEndpoint));

  /// Codex's home directory: $CODEX_HOME when it is set and not empty, else `home`/.codex.
  static std::filesystem::path defaultCodexHome(const std::filesystem::path& home);

  /// The expiry ("exp", seconds since 1970, fractions kept) in the payload of a JSON Web Token;
  /// the signature is not checked. Nothing when the token has fewer than two "."-separated parts,
  /// the payload is not base64url of a non-empty JSON object, or "exp" is missing or not a number.
  static std::optional<Date> tokenExpiry(std::string_view token);

  ProviderID id() const override { return ProviderID::codex; }

  /// Blocks for the store read, the file read and the request. A live answer has `fetchedAt` =
  /// `now`; a stored record keeps its own.
  ProviderLimits fetch(Date now) override;

 private:
  // The request to the service alone, before it is combined with the stored record.
  ProviderLimits fetchLive(Date now) const;

  std::shared_ptr<UsageStore> store_;
  std::shared_ptr<const CredentialSource> credentials_;
  std::shared_ptr<const HTTPClient> http_;
  std::filesystem::path codexHome_;
  std::string endpoint_;
};

}  // namespace brimlog
