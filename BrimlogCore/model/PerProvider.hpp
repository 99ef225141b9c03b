#pragma once

#include <array>

#include "model/ProviderID.hpp"

namespace brimlog {

/// One value of `T` for each provider, indexed by `ProviderID`, in the providers' fixed order.
///
///     PerProvider<int64_t> replies;
///     ++replies[ProviderID::codex];
///     for (ProviderID provider : ProviderID::allCases) total += replies[provider];
template <typename T>
class PerProvider {
 public:
  T& operator[](ProviderID provider) { return values_[provider.index()]; }
  const T& operator[](ProviderID provider) const { return values_[provider.index()]; }

  auto begin() { return values_.begin(); }
  auto end() { return values_.end(); }
  auto begin() const { return values_.begin(); }
  auto end() const { return values_.end(); }

  bool operator==(const PerProvider&) const = default;

 private:
  std::array<T, ProviderID::allCases.size()> values_{};
};

}  // namespace brimlog
