#include "timeline/RefreshIntent.hpp"

namespace brimlog {

void RefreshIntent::perform(const NotificationCenter& center) const {
  center.post(notificationName);
}

}  // namespace brimlog
