#include "sync/LimitsFetcher.hpp"

#include <future>
#include <string_view>

#include "ingest/codex/CodexSource.hpp"
#include "limits/ClaudeConfigCredentialSource.hpp"
#include "limits/ClaudeLimitsProvider.hpp"
#include "limits/CodexLimitsProvider.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "state/HostSettings.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
bool LimitsEndpoints::isAcceptable(const std::string& url) {
  const std::optional<CurlHTTPClient::URLParts> parts = CurlHTTPClient::urlParts(url);
  if (!parts || parts->host.empty()) return false;
  if (parts->scheme == "https") return true;
  return parts->scheme == "http" &&
         (parts->host == "127.0.0.1" || parts->host == "[::1]" || parts->host == "localhost");
}

LimitsEndpoints LimitsEndpoints::from(const HostSettings& settings) {
  LimitsEndpoints endpoints{std::string(ClaudeLimitsProvider::defaultEndpoint),
                            std::string(CodexLimitsProvider::defaultEndpoint)};
  auto take = [&](const char* name, const std::optional<std::string>& value, std::string& target) {
    if (!value) return;
    if (!isAcceptable(*value)) {
      throw CommandError(std::string(name) + "=" + *value +
                         ": must be an https:// URL, or http:// to 127.0.0.1, ::1 or localhost");
    }
    target = *value;
  };
  take("BRIMLOG_CLAUDE_USAGE_URL", settings.claudeUsageURL, endpoints.claude);
  take("BRIMLOG_CODEX_USAGE_URL", settings.codexUsageURL, endpoints.codex);
  return endpoints;
}

LimitsFetcher::LimitsFetcher(std::shared_ptr<UsageStore> store, ToolLocations tools,
                             std::shared_ptr<const CredentialSource> credentials,
                             std::shared_ptr<const HTTPClient> http, LimitsEndpoints endpoints)
    : store_(std::move(store)),
      tools_(std::move(tools)),
      credentials_(std::move(credentials)),
      http_(std::move(http)),
      endpoints_(std::move(endpoints)) {}

LimitsFetcher LimitsFetcher::forTools(std::shared_ptr<UsageStore> store, const ToolLocations& tools,
                                      LimitsEndpoints endpoints) {
  auto credentials =
      std::make_shared<ClaudeConfigCredentialSource>(tools.places(ProviderID::claude).homes);
  return LimitsFetcher{std::move(store), tools, std::move(credentials),
                       std::make_shared<CurlHTTPClient>(), std::move(endpoints)};
}

std::vector<std::unique_ptr<LimitsProvider>> LimitsFetcher::providers() const {
  std::vector<std::unique_ptr<LimitsProvider>> providers;
  for (ProviderID provider : ProviderID::readableCases) {
    if (!provider.hasLimits() || !tools_.isPresent(provider)) continue;
    switch (provider) {
      case ProviderID::claude:
        providers.push_back(
            std::make_unique<ClaudeLimitsProvider>(credentials_, http_, endpoints_.claude));
        break;
      case ProviderID::codex:
        // The record stored for Codex (its own earlier answers, or limits from its logs) is
        // read afresh at each fetch.
        providers.push_back(std::make_unique<CodexLimitsProvider>(
            [store = store_]() -> std::optional<ProviderLimits> {
              if (!store) return std::nullopt;
              return store->limits(ProviderID::codex);
            },
            credentials_, http_, codexAuthFile(tools_.places(ProviderID::codex)),
            endpoints_.codex));
        break;
      default:
        break;
    }
  }
  return providers;
}

std::vector<FetchOutcome> LimitsFetcher::run(Date now, RefreshState& state, bool force) {
  std::vector<std::unique_ptr<LimitsProvider>> due = providers();
  std::vector<FetchOutcome> outcomes;
  std::vector<std::future<ProviderLimits>> answers;
  for (const auto& provider : due) {
    const RefreshState::Entry& entry = state[provider->id()];
    const bool fetch = entry.isDue(
        now, force ? RefreshState::Entry::Trigger::forced : RefreshState::Entry::Trigger::asked);
    outcomes.push_back({provider->id(), fetch, std::nullopt});
    if (!fetch) continue;
    // One request per tool, all at once: the slowest service bounds the wait, not their sum.
    answers.push_back(
        std::async(std::launch::async, [&provider, now] { return provider->fetch(now); }));
  }
  size_t next = 0;
  for (FetchOutcome& outcome : outcomes) {
    if (!outcome.fetched) continue;
    ProviderLimits limits = answers[next++].get();
    store_->setLimits(limits, outcome.provider);
    state[outcome.provider].record(limits.status, now);
    outcome.limits = std::move(limits);
  }
  return outcomes;
}

}  // namespace brimlog
