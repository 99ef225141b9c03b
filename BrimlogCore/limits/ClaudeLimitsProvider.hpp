#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"

namespace brimlog {

/// Claude's limits from Anthropic's OAuth usage endpoint, signed in with the OAuth token that
/// Claude Code keeps in the login keychain.
///
/// The keychain item "Claude Code-credentials" holds a JSON document whose "claudeAiOauth"
/// object carries "accessToken", "expiresAt" (milliseconds since 1970) and "subscriptionType"
/// (the plan). The endpoint answers with the five-hour and weekly windows, per-model weekly
/// windows and the extra-usage balance; they become windows "session", "weekly" and
/// "weekly.<model>" (18000 and 604800 seconds long) and credits "Extra usage".
///
/// `fetch` never throws. Whatever goes wrong ends as a record without windows whose status says
/// what: `accessDenied` when the keychain refuses, `unavailable` when there is no usable sign-in
/// record, `signInNeeded` for an expired token or a 401/403, `rateLimited` for a 429,
/// `unreachable` for transport failures, other statuses and bodies that do not decode. Once the
/// sign-in record is read, every answer carries its plan. The token is sent only as the bearer
/// of the one request and appears in no record.
///
///     ClaudeLimitsProvider claude{credentials, std::make_shared<CurlHTTPClient>()};
///     ProviderLimits limits = claude.fetch(currentDate());
class ClaudeLimitsProvider : public LimitsProvider {
 public:
  /// The keychain service under which Claude Code stores its sign-in record.
  static constexpr std::string_view keychainService = "Claude Code-credentials";
  static constexpr std::string_view defaultEndpoint = "https://api.anthropic.com/api/oauth/usage";

  /// `endpoint` is the full URL of the usage endpoint; tests point it at a local server.
  ClaudeLimitsProvider(std::shared_ptr<const CredentialSource> credentials,
                       std::shared_ptr<const HTTPClient> http,
                       std::string endpoint = std::string(defaultEndpoint));

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
