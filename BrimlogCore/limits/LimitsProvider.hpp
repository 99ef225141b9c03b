#pragma once

#include "model/ProviderID.hpp"
#include "model/ProviderLimits.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// Asks one tool for the user's limits. `fetch` never throws: every outcome, failures included,
/// is a `ProviderLimits` whose status says what happened and whose `fetchedAt` is `now`.
class LimitsProvider {
 public:
  virtual ~LimitsProvider() = default;

  virtual ProviderID id() const = 0;

  /// Blocks until the answer is known (at most the HTTP client's bound).
  virtual ProviderLimits fetch(Date now) = 0;
};

}  // namespace brimlog
