#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"

namespace brimlog {

/// Claude's limits from Anthropic's OAuth usage endpoint, signed in with the OAuth token that
/// Claude Code keeps in the login keychain.
///
/// The keychain item `claudeKeychainService` holds a JSON document whose "claudeAiOauth"
/// object carries "accessToken", "expiresAt" (milliseconds since 1970) and "subscriptionType"
/// (the plan). The endpoint answers with the five-hour and weekly windows, per-model weekly
/// windows and the extra-usage balance; they become windows "session", "weekly" and
/// "weekly.<model>" (18000 and 604800 seconds long) and credits "Extra usage".
///
/// `fetch` never throws. Whatever goes wrong ends as a record without windows whose status says
/// what: `accessDenied` when the keychain refuses, `unavailable` when there is no usable sign-in
/// record, `signInNeeded` for an expired token, the HTTP status's meaning (HTTPStatusMapping) for
/// an answer that is not 2xx, `unreachable` for transport failures and bodies that do not decode.
/// Once the sign-in record is read, every answer carries its plan. The token is sent only as the
/// bearer of the one request and appears in no record.
///
///     ClaudeLimitsProvider claude{credentials, std::make_shared<CurlHTTPClient>()};
///     ProviderLimits limits = claude.fetch(currentDate());
class ClaudeLimitsProvider : public LimitsProvider {
 public:
  static constexpr std::string_view defaultEndpoint = "https://api.anthropic.com/api/oauth/usage";

  /// `endpoint` is the full URL of the usage endpoint; tests point it at a local server.
  ClaudeLimitsProvider(std::shared_ptr<const CredentialSource> credentials,
                       std::shared_ptr<const HTTPClient> http,
                       std::string endpoint = std::string(defaultEndpoint));

  /// The record a 2xx answer's body gives: status `ok`, the windows and credits, no plan (that
  /// comes from the sign-in record), `fetchedAt` = `now`. Nothing when the body is not a usage
  /// response (not JSON, not an object, or a known key of the wrong type).
  static std::optional<ProviderLimits> decodeUsage(std::string_view body, Date now);

  ProviderID id() const override { return ProviderID::claude; }

  /// Reads the keychain, then asks the endpoint (unless the token has expired by `now`); blocks
  /// for both. The result's `fetchedAt` is `now`.
  ProviderLimits fetch(Date now) override;

 private:
  std::shared_ptr<const CredentialSource> credentials_;
  std::shared_ptr<const HTTPClient> http_;
  std::string endpoint_;
};

}  // namespace brimlog
