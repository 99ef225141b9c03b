#include "timeline/RefreshIntent.hpp"

#include "platform/RefreshRequest.hpp"

namespace brimlog {

bool RefreshIntent::perform(const std::optional<std::filesystem::path>& stateFolder) const {
  return stateFolder && RefreshRequest::post(*stateFolder);
}

}  // namespace brimlog
