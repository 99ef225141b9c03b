#include "model/LimitReading.hpp"

#include <cmath>

namespace brimlog {
namespace {

// Services give the reset as a countdown from their own clock, so the reset time of one window
// moves by a second or two from answer to answer.
constexpr double kResetJitter = 60.0;
// Shares differ by less than this only through rounding in the services' own arithmetic.
constexpr double kShareEpsilon = 1e-9;

}  // namespace

std::vector<LimitReading> LimitReading::of(ProviderID provider, const ProviderLimits& limits) {
  std::vector<LimitReading> readings;
  if (limits.status != ProviderStatus::ok) return readings;
  for (const LimitWindow& window : limits.windows) {
    if (window.source.isStale()) continue;
    const Origin origin =
        window.source.kind() == LimitSource::Kind::live ? Origin::service : Origin::log;
    readings.push_back({provider, window.id, window.source.asOf().value_or(limits.fetchedAt),
                        window.usedFraction, window.resetsAt, window.duration, origin});
  }
  return readings;
}

bool LimitReading::sameFigures(const LimitReading& previous, const LimitReading& next) {
  if (std::abs(previous.usedFraction - next.usedFraction) > kShareEpsilon) return false;
  if (previous.resetsAt.has_value() != next.resetsAt.has_value()) return false;
  return !previous.resetsAt ||
         std::abs((*previous.resetsAt - *next.resetsAt).count()) <= kResetJitter;
}

std::string_view LimitReading::originName(Origin origin) {
  return origin == Origin::service ? "service" : "log";
}

std::optional<LimitReading::Origin> LimitReading::originNamed(std::string_view name) {
  if (name == "service") return Origin::service;
  if (name == "log") return Origin::log;
  return std::nullopt;
}

}  // namespace brimlog
