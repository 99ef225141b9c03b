#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "limits/CredentialSource.hpp"
#include "limits/HTTPClient.hpp"
#include "limits/LimitsProvider.hpp"
#include "model/UsageEvent.hpp"

namespace brimlog {

/// Cursor has no live source of limits or usage yet. The provider is built like the working ones
/// so the host can make all four alike, but it keeps none of its arguments and always answers:
/// limits `unavailable` without windows, and no usage events.
///
///     CursorProvider cursor{credentials, http, stateDB};
///     cursor.fetch(now).status;  // ProviderStatus::unavailable
class CursorProvider : public LimitsProvider {
 public:
  /// `stateDB` is Cursor's local state database.
  CursorProvider(std::shared_ptr<const CredentialSource> credentials,
                 std::shared_ptr<const HTTPClient> http, const std::filesystem::path& stateDB);

  ProviderID id() const override { return ProviderID::cursor; }

  /// No plan, no windows, no credits, status `unavailable`, `fetchedAt` = `now`.
  ProviderLimits fetch(Date now) override;

  /// Cursor's usage events since `since`: none, for any date.
  std::vector<UsageEvent> usageEvents(Date since) const;
};

}  // namespace brimlog
