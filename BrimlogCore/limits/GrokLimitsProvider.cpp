#include "limits/GrokLimitsProvider.hpp"

namespace brimlog {

GrokLimitsProvider::GrokLimitsProvider(std::shared_ptr<const CredentialSource> /*credentials*/,
                                       std::shared_ptr<const HTTPClient> /*http*/,
                                       const std::filesystem::path& /*grokHome*/) {}

ProviderLimits GrokLimitsProvider::fetch(Date now) {
  return ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::unavailable, now};
}

}  // namespace brimlog
