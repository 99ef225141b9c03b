#include "limits/ClaudeLimitsProvider.hpp"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "limits/HTTPStatusMapping.hpp"
#include "platform/AppVersion.hpp"
#include "platform/AsciiCase.hpp"
#include "platform/Json.hpp"

namespace brimlog {
namespace {

constexpr double kSessionSeconds = 18000;
constexpr double kWeekSeconds = 604800;

// The sign-in record Claude Code keeps in the keychain.
struct OAuth {
  std::string accessToken;  // never empty
  std::optional<Date> expiresAt;
  std::optional<std::string> subscriptionType;
};

// The usage response, decoded strictly: every key may be missing or null, but a value of the
// wrong type makes the whole response undecodable (JsonDecodeError).
struct WindowObject {
  std::optional<double> utilization;
  std::optional<std::string> resetsAt;
};

struct LimitObject {
  std::optional<std::string> kind;
  std::optional<double> percent;
  std::optional<std::string> resetsAt;
  std::optional<std::string> displayName;  // scope.model.display_name
};

struct ExtraObject {
  std::optional<bool> isEnabled;
  std::optional<double> monthlyLimit;
  std::optional<double> usedCredits;
  std::optional<int64_t> decimalPlaces;
};

struct UsageResponse {
  std::optional<WindowObject> fiveHour;
  std::optional<WindowObject> sevenDay;
  std::optional<WindowObject> sevenDayOpus;
  std::optional<WindowObject> sevenDaySonnet;
  std::vector<LimitObject> limits;
  std::optional<ExtraObject> extraUsage;
};

using json::optionalNumber;
using json::optionalObject;
using json::optionalString;

std::optional<OAuth> decodeOAuth(std::string_view secret) {
  try {
    const Json document = json::parse(secret);
    json::object(document, "credentials");
    const Json* oauth = optionalObject(document, "claudeAiOauth");
    if (!oauth) return std::nullopt;
    OAuth result;
    result.accessToken = optionalString(*oauth, "accessToken").value_or("");
    if (const auto millis = optionalNumber(*oauth, "expiresAt")) {
      result.expiresAt = dateFromUnixSeconds(*millis / 1000);
    }
    result.subscriptionType = optionalString(*oauth, "subscriptionType");
    if (result.accessToken.empty()) return std::nullopt;
    return result;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<WindowObject> decodeWindow(const Json& parent, std::string_view key) {
  const Json* object = optionalObject(parent, key);
  if (!object) return std::nullopt;
  return WindowObject{optionalNumber(*object, "utilization"), optionalString(*object, "resets_at")};
}

LimitObject decodeLimit(const Json& value) {
  const Json& object = json::object(value, "limits");
  LimitObject limit{optionalString(object, "kind"), optionalNumber(object, "percent"),
                    optionalString(object, "resets_at"), std::nullopt};
  if (const Json* scope = optionalObject(object, "scope")) {
    if (const Json* model = optionalObject(*scope, "model")) {
      limit.displayName = optionalString(*model, "display_name");
    }
  }
  return limit;
}

// Throws JsonDecodeError when the body is not a usage response.
UsageResponse usageResponse(std::string_view body) {
  const Json document = json::parse(body);
  json::object(document, "usage");
  UsageResponse usage;
  usage.fiveHour = decodeWindow(document, "five_hour");
  usage.sevenDay = decodeWindow(document, "seven_day");
  usage.sevenDayOpus = decodeWindow(document, "seven_day_opus");
  usage.sevenDaySonnet = decodeWindow(document, "seven_day_sonnet");
  if (const Json* limits = json::optional(document, "limits")) {
    for (const Json& each : json::array(*limits, "limits"))
      usage.limits.push_back(decodeLimit(each));
  }
  if (const Json* extra = optionalObject(document, "extra_usage")) {
    ExtraObject decoded;
    if (const Json* enabled = json::optional(*extra, "is_enabled")) {
      decoded.isEnabled = json::boolean(*enabled, "is_enabled");
    }
    decoded.monthlyLimit = optionalNumber(*extra, "monthly_limit");
    decoded.usedCredits = optionalNumber(*extra, "used_credits");
    if (const Json* places = json::optional(*extra, "decimal_places")) {
      decoded.decimalPlaces = json::integer(*places, "decimal_places");
    }
    usage.extraUsage = decoded;
  }
  return usage;
}

std::optional<Date> resetTime(const std::optional<std::string>& text) {
  return text ? parseISO8601(*text) : std::nullopt;
}

// The first limit of exactly that kind.
const LimitObject* firstOfKind(const std::vector<LimitObject>& limits, std::string_view kind) {
  const auto found = std::find_if(limits.begin(), limits.end(),
                                  [kind](const LimitObject& limit) { return limit.kind == kind; });
  return found == limits.end() ? nullptr : &*found;
}

// The session or all-models weekly window: the fixed field wins, the "limits" entry of the same
// kind stands in for it. A fixed field without a utilization counts as missing.
void appendOverallWindow(std::vector<LimitWindow>& windows, std::optional<WindowObject> fixed,
                         const LimitObject* fromList, const char* id, const char* label,
                         double duration) {
  if (fixed && !fixed->utilization) fixed.reset();
  std::optional<double> percent = fixed ? fixed->utilization : std::nullopt;
  if (!percent && fromList) percent = fromList->percent;
  std::optional<std::string> resetText = fixed ? fixed->resetsAt : std::nullopt;
  if (!resetText && fromList) resetText = fromList->resetsAt;
  if (!percent) return;
  windows.emplace_back(id, label, *percent / 100, duration, resetTime(resetText),
                       LimitSource::live());
}

bool anyStartsWith(const std::vector<std::string>& ids, std::string_view prefix) {
  return std::any_of(ids.begin(), ids.end(),
                     [prefix](const std::string& id) { return id.starts_with(prefix); });
}

std::vector<LimitWindow> windowsOf(const UsageResponse& usage) {
  std::vector<LimitWindow> windows;
  appendOverallWindow(windows, usage.fiveHour, firstOfKind(usage.limits, "session"), "session",
                      "Session", kSessionSeconds);
  appendOverallWindow(windows, usage.sevenDay, firstOfKind(usage.limits, "weekly_all"), "weekly",
                      "Weekly", kWeekSeconds);

  // Per-model weeks listed by the service. Display names that differ only in case are one model;
  // the first entry wins even when it has no figure.
  std::vector<std::string> modelIds;
  for (const LimitObject& limit : usage.limits) {
    if (limit.kind != "weekly_scoped" || !limit.displayName || limit.displayName->empty()) {
      continue;
    }
    std::string id = "weekly." + asciiLowercased(*limit.displayName);
    std::replace(id.begin(), id.end(), ' ', '-');
    if (std::find(modelIds.begin(), modelIds.end(), id) != modelIds.end()) continue;
    modelIds.push_back(id);
    if (!limit.percent) continue;
    windows.emplace_back(std::move(id), "Weekly · " + *limit.displayName, *limit.percent / 100,
                         kWeekSeconds, resetTime(limit.resetsAt), LimitSource::live());
  }

  // The older fixed per-model fields, unless a listed entry already covers the model (a listed
  // "Opus 4.1" gives "weekly.opus-4.1", which covers "weekly.opus").
  const std::pair<const char*, const std::optional<WindowObject>*> fixedModels[] = {
      {"Opus", &usage.sevenDayOpus}, {"Sonnet", &usage.sevenDaySonnet}};
  for (const auto& [name, window] : fixedModels) {
    if (!*window || !(*window)->utilization) continue;
    const std::string key = "weekly." + asciiLowercased(name);
    if (anyStartsWith(modelIds, key)) continue;
    modelIds.push_back(key);
    windows.emplace_back(key, std::string("Weekly · ") + name, *(*window)->utilization / 100,
                         kWeekSeconds, resetTime((*window)->resetsAt), LimitSource::live());
  }
  return windows;
}

// Extra usage is reported in minor units ("decimal_places" of them per dollar, cents by default).
std::optional<Credits> creditsOf(const UsageResponse& usage) {
  if (!usage.extraUsage || usage.extraUsage->isEnabled != true) return std::nullopt;
  const ExtraObject& extra = *usage.extraUsage;
  if (!extra.monthlyLimit && !extra.usedCredits) return std::nullopt;
  const double divisor =
      extra.decimalPlaces ? std::pow(10.0, static_cast<double>(*extra.decimalPlaces)) : 100.0;
  Credits credits{"Extra usage", std::nullopt, std::nullopt, std::nullopt, false};
  if (extra.usedCredits) credits.spentUSD = *extra.usedCredits / divisor;
  if (extra.monthlyLimit) credits.limitUSD = *extra.monthlyLimit / divisor;
  return credits;
}

ProviderLimits answer(ProviderStatus status, std::optional<std::string> plan, Date now) {
  return ProviderLimits{std::move(plan), {}, std::nullopt, status, now};
}

}  // namespace

ClaudeLimitsProvider::ClaudeLimitsProvider(std::shared_ptr<const CredentialSource> credentials,
                                           std::shared_ptr<const HTTPClient> http,
                                           std::string endpoint)
    : credentials_(std::move(credentials)),
      http_(std::move(http)),
      endpoint_(std::move(endpoint)) {}

std::optional<ProviderLimits> ClaudeLimitsProvider::decodeUsage(std::string_view body, Date now) {
  try {
    const UsageResponse usage = usageResponse(body);
    return ProviderLimits{std::nullopt, windowsOf(usage), creditsOf(usage), ProviderStatus::ok,
                          now};
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

ProviderLimits ClaudeLimitsProvider::fetch(Date now) {
  // Without a credential source or a client nothing can be asked: the same as having no sign-in.
  if (!credentials_ || !http_) return answer(ProviderStatus::unavailable, std::nullopt, now);

  std::string secret;
  try {
    secret = credentials_->keychainSecret(std::string(claudeKeychainService));
  } catch (const CredentialError& error) {
    return answer(error.kind() == CredentialError::Kind::denied ? ProviderStatus::accessDenied
                                                                : ProviderStatus::unavailable,
                  std::nullopt, now);
  } catch (...) {
    return answer(ProviderStatus::unavailable, std::nullopt, now);
  }

  std::optional<std::string> plan;
  try {
    const std::optional<OAuth> oauth = decodeOAuth(secret);
    if (!oauth) return answer(ProviderStatus::unavailable, std::nullopt, now);
    if (oauth->subscriptionType && !oauth->subscriptionType->empty()) {
      plan = asciiCapitalized(*oauth->subscriptionType);
    }
    if (oauth->expiresAt && *oauth->expiresAt <= now) {
      return answer(ProviderStatus::signInNeeded, plan, now);
    }

    HTTPRequest request;
    request.method = "GET";
    request.url = endpoint_;
    request.timeout = 60;
    request.headers = {{"Authorization", "Bearer " + oauth->accessToken},
                       {"anthropic-beta", "oauth-2025-04-20"},
                       {"User-Agent", "Brimlog/" + std::string(appVersion())}};

    HTTPResponse response;
    try {
      response = http_->send(request);
    } catch (...) {
      return answer(ProviderStatus::unreachable, plan, now);
    }

    // Every answer from here on carries the plan, a failed one included.
    const ProviderStatus status = HTTPStatusMapping::limitsStatus(response.statusCode);
    if (status != ProviderStatus::ok) return answer(status, plan, now);
    std::optional<ProviderLimits> limits = decodeUsage(response.body, now);
    if (!limits) return answer(ProviderStatus::unreachable, plan, now);
    limits->plan = std::move(plan);
    return std::move(*limits);
  } catch (...) {
    // Nothing above throws but memory exhaustion; the answer is then "cannot tell right now",
    // which is retried at the regular pace.
    return answer(ProviderStatus::unavailable, plan, now);
  }
}

}  // namespace brimlog
