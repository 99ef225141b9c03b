#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/LimitWindow.hpp"
#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// A credit or extra-usage balance, in US dollars.
struct Credits {
  std::string label;
  std::optional<double> balanceUSD;
  std::optional<double> spentUSD;
  std::optional<double> limitUSD;
  bool unlimited = false;

  bool operator==(const Credits&) const = default;

  Json toJson() const;
  static Credits fromJson(const Json& json);
};

/// The outcome of the last fetch of a provider's limits. JSON: {"ok":{}}, never a bare string.
enum class ProviderStatus { ok, signInNeeded, unreachable, rateLimited, accessDenied, unavailable };

Json toJson(ProviderStatus status);
ProviderStatus providerStatusFromJson(const Json& json);
std::string_view caseName(ProviderStatus status);

/// Everything known about one provider's limits. Which provider it belongs to is kept by the
/// holder (the store keys it by `ProviderID`).
struct ProviderLimits {
  std::optional<std::string> plan;
  std::vector<LimitWindow> windows;
  std::optional<Credits> credits;
  ProviderStatus status = ProviderStatus::ok;
  Date fetchedAt;

  /// A copy whose windows all say `stale`: live and local windows become stale as of this
  /// record's `fetchedAt`; windows already stale keep their own date.
  ProviderLimits markedStale() const;

  bool operator==(const ProviderLimits&) const = default;

  /// Throws `JsonEncodeError` when a number is not finite.
  Json toJson(DateForm form) const;
  static ProviderLimits fromJson(const Json& json, DateForm form);
};

}  // namespace brimlog
