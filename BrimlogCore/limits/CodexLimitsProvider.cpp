#include "limits/CodexLimitsProvider.hpp"

#include <utility>
#include <vector>

#include "limits/HTTPStatusMapping.hpp"
#include "platform/AppVersion.hpp"
#include "platform/AsciiCase.hpp"
#include "platform/Base64.hpp"
#include "platform/Json.hpp"

namespace brimlog {
namespace {

// The tokens of auth.json.
struct AuthTokens {
  std::string accessToken;  // never empty
  std::optional<std::string> accountID;
};

using json::optionalNumber;
using json::optionalObject;
using json::optionalString;

// Nothing unless auth.json is JSON of the expected shape with a non-empty access token.
std::optional<AuthTokens> decodeAuth(std::string_view contents) {
  try {
    const Json document = json::parse(contents);
    json::object(document, "auth.json");
    const Json* tokens = optionalObject(document, "tokens");
    if (!tokens) return std::nullopt;
    AuthTokens result{optionalString(*tokens, "access_token").value_or(""),
                      optionalString(*tokens, "account_id")};
    if (result.accessToken.empty()) return std::nullopt;
    return result;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// One window of the usage response; nothing when the service gave no "used_percent".
std::optional<LimitWindow> decodeWindow(const Json& rateLimit, std::string_view key, const char* id,
                                        const char* label) {
  const Json* object = optionalObject(rateLimit, key);
  if (!object) return std::nullopt;
  const auto usedPercent = optionalNumber(*object, "used_percent");
  const auto length = optionalNumber(*object, "limit_window_seconds");
  const auto resetAt = optionalNumber(*object, "reset_at");
  if (!usedPercent) return std::nullopt;
  return LimitWindow{id,
                     label,
                     *usedPercent / 100,
                     length,
                     resetAt ? std::optional<Date>(dateFromUnixSeconds(*resetAt)) : std::nullopt,
                     LimitSource::live()};
}

// The record of a 2xx answer. Throws JsonDecodeError when the body is not a usage response.
ProviderLimits usageLimits(std::string_view body, Date now) {
  const Json document = json::parse(body);
  json::object(document, "usage");
  ProviderLimits limits{std::nullopt, {}, std::nullopt, ProviderStatus::ok, now};
  if (const auto plan = optionalString(document, "plan_type"); plan && !plan->empty()) {
    limits.plan = asciiCapitalized(*plan);
  }
  if (const Json* rateLimit = optionalObject(document, "rate_limit")) {
    // Both are decoded before either is kept, so a malformed second window fails the whole body.
    auto session = decodeWindow(*rateLimit, "primary_window", "session", "Session");
    auto weekly = decodeWindow(*rateLimit, "secondary_window", "weekly", "Weekly");
    if (session) limits.windows.push_back(std::move(*session));
    if (weekly) limits.windows.push_back(std::move(*weekly));
  }
  return limits;
}

ProviderLimits answer(ProviderStatus status, Date now) {
  return ProviderLimits{std::nullopt, {}, std::nullopt, status, now};
}

}  // namespace

CodexLimitsProvider::CodexLimitsProvider(StoredLimits storedLimits,
                                         std::shared_ptr<const CredentialSource> credentials,
                                         std::shared_ptr<const HTTPClient> http,
                                         std::filesystem::path authFile, std::string endpoint)
    : storedLimits_(std::move(storedLimits)),
      credentials_(std::move(credentials)),
      http_(std::move(http)),
      authFile_(std::move(authFile)),
      endpoint_(std::move(endpoint)) {}

std::optional<ProviderLimits> CodexLimitsProvider::decodeUsage(std::string_view body, Date now) {
  try {
    return usageLimits(body, now);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<Date> CodexLimitsProvider::tokenExpiry(std::string_view token) {
  const size_t firstDot = token.find('.');
  if (firstDot == std::string_view::npos) return std::nullopt;
  const std::string_view rest = token.substr(firstDot + 1);
  const std::string_view payload = rest.substr(0, rest.find('.'));

  const auto bytes = base64URLDecode(payload);
  if (!bytes) return std::nullopt;
  try {
    const Json claims = json::parse(*bytes);
    if (!claims.is_object() || claims.empty()) return std::nullopt;
    const auto exp = claims.find("exp");
    if (exp == claims.end() || !exp->is_number()) return std::nullopt;
    return dateFromUnixSeconds(exp->get<double>());
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

ProviderLimits CodexLimitsProvider::fetch(Date now) {
  // A reader that fails counts as one that has nothing stored.
  std::optional<ProviderLimits> stored;
  if (storedLimits_) {
    try {
      stored = storedLimits_();
    } catch (...) {
      stored.reset();
    }
  }
  if (stored && (now - stored->fetchedAt).count() <= reuseInterval) return *stored;

  ProviderLimits live = [&] {
    try {
      return fetchLive(now);
    } catch (...) {
      // Nothing in the live fetch throws but memory exhaustion; "cannot tell right now" is the
      // closest answer, and it lets the stored record stand with its own status.
      return answer(ProviderStatus::unavailable, now);
    }
  }();

  if (!stored) return live;
  if (live.status == ProviderStatus::ok) {
    // The newer record wins. (A stored record dated after `now` was already answered above as
    // fresh; this only keeps the rule whole.)
    return stored->fetchedAt > live.fetchedAt ? stored->markedStale() : live;
  }
  if (!http_) return *stored;
  ProviderLimits fallback = stored->markedStale();
  if (live.status != ProviderStatus::unavailable) fallback.status = live.status;
  return fallback;
}

ProviderLimits CodexLimitsProvider::fetchLive(Date now) const {
  if (!http_ || !credentials_) return answer(ProviderStatus::unavailable, now);

  std::string contents;
  try {
    contents = credentials_->file(authFile_);
  } catch (...) {
    return answer(ProviderStatus::unavailable, now);
  }
  const std::optional<AuthTokens> auth = decodeAuth(contents);
  if (!auth) return answer(ProviderStatus::unavailable, now);

  if (const auto expiry = tokenExpiry(auth->accessToken); expiry && *expiry <= now) {
    return answer(ProviderStatus::signInNeeded, now);
  }

  HTTPRequest request;
  request.method = "GET";
  request.url = endpoint_;
  request.timeout = 60;
  request.headers.emplace_back("Authorization", "Bearer " + auth->accessToken);
  if (auth->accountID && !auth->accountID->empty()) {
    request.headers.emplace_back("ChatGPT-Account-Id", *auth->accountID);
  }
  request.headers.emplace_back("User-Agent", "Brimlog/" + std::string(appVersion()));

  HTTPResponse response;
  try {
    response = http_->send(request);
  } catch (...) {
    return answer(ProviderStatus::unreachable, now);
  }

  // A failed answer carries no plan: the plan comes from the body alone.
  const ProviderStatus status = HTTPStatusMapping::limitsStatus(response.statusCode);
  if (status != ProviderStatus::ok) return answer(status, now);
  std::optional<ProviderLimits> limits = decodeUsage(response.body, now);
  if (!limits) return answer(ProviderStatus::unreachable, now);
  return std::move(*limits);
}

}  // namespace brimlog
