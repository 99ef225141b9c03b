#pragma once

#include "model/ProviderLimits.hpp"

namespace brimlog {

/// What the HTTP status of a usage endpoint's answer means for a tool's limits. Every service
/// asked with a bearer token (Claude's and Codex's today) answers alike:
///
/// | status     | limits status                                            |
/// |------------|----------------------------------------------------------|
/// | 200 to 299 | `ok`: the body holds the limits and is decoded next      |
/// | 401, 403   | `signInNeeded`: the token is expired or refused          |
/// | 429        | `rateLimited`                                            |
/// | any other  | `unreachable`, redirects included (they are not followed) |
///
/// A 2xx body that does not decode is `unreachable` too; deciding that is the decoder's caller's.
/// What else goes into a failed answer (Claude's keeps the plan read from the sign-in record,
/// Codex's carries none) is each provider's own.
struct HTTPStatusMapping {
  static ProviderStatus limitsStatus(int statusCode);
};

}  // namespace brimlog
