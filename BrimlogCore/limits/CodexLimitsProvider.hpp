#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"

namespace brimlog {

/// Codex's limits: the record the caller keeps for `codex` (this provider's own earlier answers as
/// the host stored them, or limits read from Codex's session logs), renewed from ChatGPT's usage
/// endpoint with the tokens Codex keeps in its sign-in file `auth.json` (whose path the host
/// hands down: where Codex keeps it is decided with its other places).
///
/// `fetch(now)`:
/// - a stored record at most 600 seconds old (or dated after `now`) is answered as it is, with
///   no file read and no request;
/// - otherwise a live fetch: `auth.json` ("tokens": "access_token", "account_id"), the token's
///   expiry from its JWT payload, then one GET with the bearer token. Its outcome is `ok` with
///   the windows "session" and "weekly" (lengths as the service gives them), or a status without
///   windows or plan: `unavailable` (no client, no usable auth.json), `signInNeeded` (expired
///   token), the HTTP status's meaning (HTTPStatusMapping) for an answer that is not 2xx,
///   `unreachable` (transport failure, undecodable body);
/// - a failed live fetch falls back on the stored record, marked stale: with the failure's status,
///   except that `unavailable` keeps the stored status; without a client the stored record is
///   answered unchanged whatever its age.
///
/// The stored record is read through `storedLimits` at each fetch; a reader that is empty, throws
/// or returns nothing means nothing is stored. Never throws and keeps nothing: storing the answer
/// is the caller's decision.
///
///     CodexLimitsProvider codex{[store] { return store->limits(ProviderID::codex); },
///                               credentials, std::make_shared<CurlHTTPClient>(), authFile};
///     ProviderLimits limits = codex.fetch(currentDate());
///     store->setLimits(limits, ProviderID::codex);
class CodexLimitsProvider : public LimitsProvider {
 public:
  static constexpr std::string_view defaultEndpoint = "https://chatgpt.com/backend-api/wham/usage";
  /// A stored record younger than this (seconds) is answered without asking the service.
  static constexpr double reuseInterval = 600;

  /// Reads the record kept for Codex, if any.
  using StoredLimits = std::function<std::optional<ProviderLimits>()>;

  /// `http` may be null: then no request is ever made and the stored record is all there is.
  /// `endpoint` is the full URL of the usage endpoint; tests point it at a local server.
  CodexLimitsProvider(StoredLimits storedLimits,
                      std::shared_ptr<const CredentialSource> credentials,
                      std::shared_ptr<const HTTPClient> http, std::filesystem::path authFile,
                      std::string endpoint = std::string(defaultEndpoint));

  /// The record a 2xx answer's body gives: status `ok`, the plan ("plan_type" with its first
  /// letter capitalised; none when absent or empty), the windows, no credits, `fetchedAt` = `now`.
  /// Nothing when the body is not a usage response (not JSON, not an object, or a known key of the
  /// wrong type).
  static std::optional<ProviderLimits> decodeUsage(std::string_view body, Date now);

  /// The expiry ("exp", seconds since 1970, fractions kept) in the payload of a JSON Web Token;
  /// the signature is not checked. Nothing when the token has fewer than two "."-separated parts,
  /// the payload is not base64url of a non-empty JSON object, or "exp" is missing or not a number.
  static std::optional<Date> tokenExpiry(std::string_view token);

  ProviderID id() const override { return ProviderID::codex; }

  /// Blocks for the stored record's read, the file read and the request. A live answer has
  /// `fetchedAt` = `now`; a stored record keeps its own.
  ProviderLimits fetch(Date now) override;

 private:
  // The request to the service alone, before it is combined with the stored record.
  ProviderLimits fetchLive(Date now) const;

  StoredLimits storedLimits_;
  std::shared_ptr<const CredentialSource> credentials_;
  std::shared_ptr<const HTTPClient> http_;
  std::filesystem::path authFile_;
  std::string endpoint_;
};

}  // namespace brimlog
