#include "limits/CursorProvider.hpp"

namespace brimlog {

CursorProvider::CursorProvider(std::shared_ptr<const CredentialSource> /*credentials*/,
                               std::shared_ptr<const HTTPClient> /*http*/,
                               const std::filesystem::path& /*stateDB*/) {}

ProviderLimits CursorProvider::fetch(Date now) {
  return ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now};
}

std::vector<UsageEvent> CursorProvider::usageEvents(Date /*since*/) const { return {}; }

}  // namespace brimlog
