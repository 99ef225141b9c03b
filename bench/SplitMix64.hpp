#pragma once

#include <cstdint>

namespace brimlog {

/// A small, fast pseudo-random generator whose whole output follows from its seed, on every
/// platform and standard library: unlike the <random> distributions, every draw below is defined
/// here bit for bit, so generated benchmark data is reproducible.
class SplitMix64 {
 public:
  explicit SplitMix64(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  /// A value in [0, bound); `bound` 0 gives 0. The modulo's bias is below bound / 2^64, far
  /// under anything a benchmark could notice.
  uint64_t below(uint64_t bound) { return bound == 0 ? 0 : next() % bound; }

  /// A value in [low, high], both included.
  int64_t between(int64_t low, int64_t high) {
    return low + static_cast<int64_t>(below(static_cast<uint64_t>(high - low) + 1));
  }

  /// A double in [0, 1) with 53 random bits.
  double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

  /// True with probability `p`.
  bool chance(double p) { return unit() < p; }

 private:
  uint64_t state_;
};

}  // namespace brimlog
