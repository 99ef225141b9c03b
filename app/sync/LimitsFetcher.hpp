#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"
#include "platform/Date.hpp"
#include "state/HostSettings.hpp"
#include "state/RefreshState.hpp"

namespace brimlog {

class UsageStore;

/// Where the host sends its limit requests. The endpoints come from BRIMLOG_CLAUDE_USAGE_URL and
/// BRIMLOG_CODEX_USAGE_URL when set (tests, gateways), else the tools' own services.
struct LimitsEndpoints {
  std::string claude;
  std::string codex;

  /// The endpoints the settings name. Throws CommandError for a URL that is neither https nor
  /// http to this machine (127.0.0.1, ::1, localhost): a token must never travel unencrypted
  /// over a network.
  static LimitsEndpoints from(const HostSettings& settings);

  /// Whether a URL may carry a sign-in token: https anywhere, http only to this machine.
  static bool isAcceptable(const std::string& url);
};

/// What happened to one provider in a run.
struct FetchOutcome {
  ProviderID provider = ProviderID::claude;
  /// False when the refresh timing said it was too soon; `limits` is then absent.
  bool fetched = false;
  std::optional<ProviderLimits> limits;
};

/// Asks each installed tool's service for the user's limits, at most as often as the refresh
/// timing allows, all at once on worker threads, and stores every answer in the usage store.
/// Secrets are read where the tools keep them and go nowhere but into the requests.
class LimitsFetcher {
 public:
  LimitsFetcher(std::shared_ptr<UsageStore> store, ToolLocations tools,
                std::shared_ptr<const CredentialSource> credentials,
                std::shared_ptr<const HTTPClient> http, LimitsEndpoints endpoints);

  /// The fetcher of a run: the tools of `tools`, their sign-in where the tools keep it, requests
  /// over libcurl.
  static LimitsFetcher forTools(std::shared_ptr<UsageStore> store, const ToolLocations& tools,
                                LimitsEndpoints endpoints);

  /// The providers of the tools present that have limits, in the usual order.
  std::vector<std::unique_ptr<LimitsProvider>> providers() const;

  /// Fetches the providers that are due (all of them when `force`), stores their answers and
  /// updates `state`. Never throws for a provider's failure: that is the answer's status.
  std::vector<FetchOutcome> run(Date now, RefreshState& state, bool force);

 private:
  std::shared_ptr<UsageStore> store_;
  ToolLocations tools_;
  std::shared_ptr<const CredentialSource> credentials_;
  std::shared_ptr<const HTTPClient> http_;
  LimitsEndpoints endpoints_;
};

}  // namespace brimlog
