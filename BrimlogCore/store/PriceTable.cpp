#include "store/PriceTable.hpp"

#include "platform/Resources.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

constexpr double kPerMillion = 1'000'000.0;

// Whether `name` ends in "-" and eight ASCII digits, the stamp of a dated model release.
bool hasDateStamp(std::string_view name) {
  if (name.size() < 9 || name[name.size() - 9] != '-') return false;
  for (size_t i = name.size() - 8; i < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return false;
  }
  return true;
}

}  // namespace

Json ModelPrice::toJson() const {
  Json json = {{"input", json::finite(input, "input")},
               {"output", json::finite(output, "output")},
               {"cacheRead", json::finite(cacheRead, "cacheRead")},
               {"cacheWrite5m", json::finite(cacheWrite5m, "cacheWrite5m")},
               {"cacheWrite1h", json::finite(cacheWrite1h, "cacheWrite1h")},
               {"source", source},
               {"asOf", asOf}};
  if (proxyFor) json["proxyFor"] = *proxyFor;
  return json;
}

ModelPrice ModelPrice::fromJson(const Json& json) {
  const auto number = [&](std::string_view key) {
    return json::number(json::require(json, key), key);
  };
  ModelPrice price;
  price.input = number("input");
  price.output = number("output");
  price.cacheRead = number("cacheRead");
  price.cacheWrite5m = number("cacheWrite5m");
  price.cacheWrite1h = number("cacheWrite1h");
  if (const Json* proxy = json::optional(json, "proxyFor")) {
    price.proxyFor = json::string(*proxy, "proxyFor");
  }
  price.source = json::string(json::require(json, "source"), "source");
  price.asOf = json::string(json::require(json, "asOf"), "asOf");
  return price;
}

CostBreakdown& CostBreakdown::operator+=(const CostBreakdown& rhs) {
  input += rhs.input;
  cacheRead += rhs.cacheRead;
  cacheWrite += rhs.cacheWrite;
  output += rhs.output;
  other += rhs.other;
  return *this;
}

Json CostBreakdown::toJson() const {
  return {{"input", json::finite(input, "input")},
          {"cacheRead", json::finite(cacheRead, "cacheRead")},
          {"cacheWrite", json::finite(cacheWrite, "cacheWrite")},
          {"output", json::finite(output, "output")},
          {"other", json::finite(other, "other")}};
}

CostBreakdown CostBreakdown::fromJson(const Json& json) {
  const auto number = [&](std::string_view key) {
    return json::number(json::require(json, key), key);
  };
  return {number("input"), number("cacheRead"), number("cacheWrite"), number("output"),
          number("other")};
}

PriceTable PriceTable::bundled() {
  const auto file = Resources::find("prices.json");
  if (!file) return {};
  return load(*file);
}

PriceTable PriceTable::load(const std::filesystem::path& file) {
  std::string text;
  try {
    text = WholeFile::read(file, WholeFile::kSmallFileLimit).bytes;
  } catch (const std::filesystem::filesystem_error&) {
    return {};
  }
  try {
    const Json document = json::parse(text);
    Models models;
    for (const auto& [name, price] :
         json::object(json::require(document, "models"), "models").items()) {
      models.emplace(name, ModelPrice::fromJson(price));
    }
    return PriceTable{std::move(models)};
  } catch (const JsonDecodeError&) {
    return {};
  }
}

const ModelPrice* PriceTable::price(std::string_view model) const {
  if (const auto exact = models.find(model); exact != models.end()) return &exact->second;
  if (!hasDateStamp(model)) return nullptr;
  const auto undated = models.find(model.substr(0, model.size() - 9));
  return undated == models.end() ? nullptr : &undated->second;
}

PricedCost PriceTable::cost(std::string_view model, const TokenCounts& tokens,
                            std::optional<double> reportedUSD) const {
  PricedCost result;
  if (const ModelPrice* p = price(model)) {
    CostBreakdown breakdown;
    breakdown.input = static_cast<double>(tokens.uncachedInput) * p->input / kPerMillion;
    breakdown.cacheRead = static_cast<double>(tokens.cacheRead) * p->cacheRead / kPerMillion;
    breakdown.cacheWrite = (static_cast<double>(tokens.cacheWrite5m) * p->cacheWrite5m +
                            static_cast<double>(tokens.cacheWrite1h) * p->cacheWrite1h) /
                           kPerMillion;
    breakdown.output = static_cast<double>(tokens.output) * p->output / kPerMillion;
    result.usd = breakdown.total();
    result.breakdown = breakdown;
    result.approximate = p->proxyFor.has_value();
    result.cacheSavingsUSD =
        static_cast<double>(tokens.cacheRead) * (p->input - p->cacheRead) / kPerMillion;
  } else if (reportedUSD) {
    result.usd = *reportedUSD;
    result.breakdown = CostBreakdown{0, 0, 0, 0, *reportedUSD};
    result.approximate = true;
  }
  return result;
}

}  // namespace brimlog
