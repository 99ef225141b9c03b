#include "limits/HTTPStatusMapping.hpp"

namespace brimlog {

ProviderStatus HTTPStatusMapping::limitsStatus(int statusCode) {
  if (statusCode >= 200 && statusCode <= 299) return ProviderStatus::ok;
  if (statusCode == 401 || statusCode == 403) return ProviderStatus::signInNeeded;
  if (statusCode == 429) return ProviderStatus::rateLimited;
  return ProviderStatus::unreachable;
}

}  // namespace brimlog
