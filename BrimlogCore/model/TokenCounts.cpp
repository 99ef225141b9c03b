#include "model/TokenCounts.hpp"

#include <limits>

namespace brimlog {

int64_t saturatingAdd(int64_t a, int64_t b) {
  int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum)) {
    return b > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
  }
  return sum;
}

int64_t TokenCounts::cacheWrite() const { return saturatingAdd(cacheWrite5m, cacheWrite1h); }

int64_t TokenCounts::processed() const {
  return saturatingAdd(saturatingAdd(saturatingAdd(uncachedInput, cacheRead), cacheWrite()),
                       output);
}

TokenCounts TokenCounts::operator+(const TokenCounts& other) const {
  TokenCounts sum = *this;
  sum += other;
  return sum;
}

TokenCounts TokenCounts::largest(const TokenCounts& a, const TokenCounts& b) {
  return {std::max(a.uncachedInput, b.uncachedInput),
          std::max(a.cacheRead, b.cacheRead),
          std::max(a.cacheWrite5m, b.cacheWrite5m),
          std::max(a.cacheWrite1h, b.cacheWrite1h),
          std::max(a.output, b.output),
          std::max(a.reasoning, b.reasoning)};
}

TokenCounts& TokenCounts::operator+=(const TokenCounts& other) {
  uncachedInput = saturatingAdd(uncachedInput, other.uncachedInput);
  cacheRead = saturatingAdd(cacheRead, other.cacheRead);
  cacheWrite5m = saturatingAdd(cacheWrite5m, other.cacheWrite5m);
  cacheWrite1h = saturatingAdd(cacheWrite1h, other.cacheWrite1h);
  output = saturatingAdd(output, other.output);
  reasoning = saturatingAdd(reasoning, other.reasoning);
  return *this;
}

Json TokenCounts::toJson() const {
  return {
      {"uncachedInput", uncachedInput}, {"cacheRead", cacheRead}, {"cacheWrite5m", cacheWrite5m},
      {"cacheWrite1h", cacheWrite1h},   {"output", output},       {"reasoning", reasoning}};
}

TokenCounts TokenCounts::fromJson(const Json& json) {
  const auto read = [&](std::string_view key) {
    return json::integer(json::require(json, key), key);
  };
  return {read("uncachedInput"), read("cacheRead"), read("cacheWrite5m"),
          read("cacheWrite1h"),  read("output"),    read("reasoning")};
}

}  // namespace brimlog
