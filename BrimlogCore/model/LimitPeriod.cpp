#include "model/LimitPeriod.hpp"

#include <algorithm>
#include <tuple>

namespace brimlog {
namespace {

// Resets named this close together are one reset: services give it as a countdown from their
// own clock.
constexpr double kSameReset = 60.0;

}  // namespace

std::vector<LimitPeriod> LimitPeriod::finished(std::span<const LimitReading> readings, Date now) {
  std::vector<const LimitReading*> timed;
  for (const LimitReading& reading : readings) {
    if (reading.resetsAt) timed.push_back(&reading);
  }
  // By provider, window and reset, so the readings of one period stand together.
  std::sort(timed.begin(), timed.end(), [](const LimitReading* a, const LimitReading* b) {
    return std::tie(a->provider, a->window, *a->resetsAt, a->readAt) <
           std::tie(b->provider, b->window, *b->resetsAt, b->readAt);
  });
  std::vector<LimitPeriod> periods;
  const LimitReading* previous = nullptr;
  for (const LimitReading* reading : timed) {
    // A reset within a minute of the one before it carries the period on.
    const bool samePeriod = previous != nullptr && previous->provider == reading->provider &&
                            previous->window == reading->window &&
                            (*reading->resetsAt - *previous->resetsAt).count() <= kSameReset;
    if (!samePeriod) {
      periods.push_back({reading->provider, reading->window, *reading->resetsAt, reading->readAt,
                         reading->readAt, reading->usedFraction, 0});
    }
    LimitPeriod& period = periods.back();
    period.resetsAt = std::max(period.resetsAt, *reading->resetsAt);
    period.firstReadAt = std::min(period.firstReadAt, reading->readAt);
    period.lastReadAt = std::max(period.lastReadAt, reading->readAt);
    period.peakUsed = std::max(period.peakUsed, reading->usedFraction);
    ++period.readings;
    previous = reading;
  }
  std::erase_if(periods, [&](const LimitPeriod& period) { return period.resetsAt > now; });
  return periods;
}

}  // namespace brimlog
