#include "timeline/Timeline.hpp"

#include "display/WidgetDisplay.hpp"

namespace brimlog {

Timeline Timeline::make(const std::optional<Snapshot>& snapshot, ProviderID provider, Date now,
                        std::optional<ProviderID> only) {
  Timeline timeline;
  for (const Date date : WidgetDisplay::entryDates(snapshot, now)) {
    timeline.entries.push_back({date, snapshot, provider, false});
  }
  timeline.reloadAt = WidgetDisplay::nextReload(snapshot, now, only);
  return timeline;
}

}  // namespace brimlog
