#pragma once

#include <filesystem>
#include <memory>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"

namespace brimlog {

/// Grok Build has no live source of limits yet. The provider is built like the working ones so
/// the host can make all four alike, but it keeps none of its arguments and always answers
/// `unavailable` without windows.
///
///     GrokLimitsProvider grok{credentials, http, home / ".grok"};
///     grok.fetch(now).status;  // ProviderStatus::unavailable
class GrokLimitsProvider : public LimitsProvider {
 public:
  /// `grokHome` is Grok's home directory.
  GrokLimitsProvider(std::shared_ptr<const CredentialSource> credentials,
                     std::shared_ptr<const HTTPClient> http, const std::filesystem::path& grokHome);

  ProviderID id() const override { return ProviderID::grok; }

  /// No plan, no windows, no credits, status `unavailable`, `fetchedAt` = `now`.
  ProviderLimits fetch(Date now) override;
};

}  // namespace brimlog
