#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "model/TokenCounts.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// List prices of one model, in US dollars per million tokens.
struct ModelPrice {
  double input = 0;
  double output = 0;
  double cacheRead = 0;
  double cacheWrite5m = 0;
  double cacheWrite1h = 0;
  /// Present when the entry borrows another model's prices: costs priced with it are approximate.
  std::optional<std::string> proxyFor;
  std::string source;
  std::string asOf;

  bool operator==(const ModelPrice&) const = default;

  Json toJson() const;
  static ModelPrice fromJson(const Json& json);
};

/// A cost split by token type, in US dollars; `other` holds what cannot be split (a cost the tool
/// reported itself).
struct CostBreakdown {
  double input = 0;
  double cacheRead = 0;
  double cacheWrite = 0;
  double output = 0;
  double other = 0;

  double total() const { return input + cacheRead + cacheWrite + output + other; }
  CostBreakdown& operator+=(const CostBreakdown& other);
  bool operator==(const CostBreakdown&) const = default;

  Json toJson() const;
  static CostBreakdown fromJson(const Json& json);
};

/// What some tokens of one model would cost at list prices.
struct PricedCost {
  /// Absent when the model has no price and no cost was reported.
  std::optional<double> usd;
  /// Absent exactly when `usd` is.
  std::optional<CostBreakdown> breakdown;
  /// Not a straight list-price calculation: a borrowed price, or a cost the tool reported.
  bool approximate = false;
  /// What the cache reads saved against paying the plain input price for them.
  double cacheSavingsUSD = 0;

  bool operator==(const PricedCost&) const = default;
};

/// Model names to list prices, read from the `prices.json` resource.
///
///     const PriceTable prices = PriceTable::bundled();
///     prices.price("claude-sonnet-4-5-20250929");  // the "claude-sonnet-4-5" entry
///     prices.cost("claude-sonnet-4-5", tokens, std::nullopt).usd;
class PriceTable {
 public:
  using Models = std::map<std::string, ModelPrice, std::less<>>;

  PriceTable() = default;
  explicit PriceTable(Models models) : models(std::move(models)) {}

  /// The table shipped with the program; empty when the file is missing, unreadable or malformed.
  static PriceTable bundled();

  /// The table in a price file of the same format; empty when it cannot be read or decoded.
  static PriceTable load(const std::filesystem::path& file);

  /// The price of `model`: its own entry, or else, for a name ending in "-" and eight digits (a
  /// dated release such as claude-sonnet-4-5-20250929), the entry of the name without them.
  /// Matching is exact and case-sensitive; nothing else is tried.
  const ModelPrice* price(std::string_view model) const;

  /// Prices `tokens` of `model`. A known list price always wins over `reportedUSD`; a reported
  /// cost counts only for a model without a price, and is then approximate. Reasoning tokens
  /// are not priced on their own (tools count them inside the output).
  PricedCost cost(std::string_view model, const TokenCounts& tokens,
                  std::optional<double> reportedUSD) const;

  Models models;
};

}  // namespace brimlog
