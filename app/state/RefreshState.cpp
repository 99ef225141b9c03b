#include "state/RefreshState.hpp"

#include "limits/RefreshPolicy.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace fs = std::filesystem;

Json RefreshState::toJson() const {
  Json json = Json::object();
  for (ProviderID provider : ProviderID::allCases) {
    const Entry& entry = (*this)[provider];
    if (!entry.lastFetch && !entry.lastAttempt && !entry.delay) continue;
    Json item = Json::object();
    if (entry.lastFetch) item["lastFetch"] = formatISO8601(*entry.lastFetch);
    if (entry.lastAttempt) item["lastAttempt"] = formatISO8601(*entry.lastAttempt);
    if (entry.delay) item["delay"] = *entry.delay;
    json[std::string(provider.rawValue())] = item;
  }
  return json;
}

RefreshState RefreshState::fromJson(const Json& json) {
  RefreshState state;
  if (!json.is_object()) return state;
  for (ProviderID provider : ProviderID::allCases) {
    auto found = json.find(std::string(provider.rawValue()));
    if (found == json.end() || !found->is_object()) continue;
    Entry& entry = state[provider];
    // Each field on its own: one damaged value does not cost the others.
    auto date = [&](const char* key) -> std::optional<Date> {
      auto value = found->find(key);
      if (value == found->end() || !value->is_string()) return std::nullopt;
      return parseISO8601(value->get<std::string>());
    };
    entry.lastFetch = date("lastFetch");
    entry.lastAttempt = date("lastAttempt");
    auto delay = found->find("delay");
    if (delay != found->end() && delay->is_number()) entry.delay = delay->get<double>();
  }
  return state;
}

bool RefreshState::Entry::isDue(Date now, Trigger trigger) const {
  switch (trigger) {
    case Trigger::schedule:
      return nextFetch(now) <= now;
    case Trigger::asked:
      return RefreshPolicy::shouldRefreshOnOpen(lastFetch, lastAttempt, now);
    case Trigger::forced:
      break;
  }
  return true;
}

fs::path RefreshState::pathIn(const fs::path& stateFolder) { return stateFolder / "refresh.json"; }

RefreshState RefreshState::load(const fs::path& path) {
  try {
    return fromJson(Json::parse(WholeFile::read(path, WholeFile::kSmallFileLimit).bytes));
  } catch (const fs::filesystem_error&) {
    return {};
  } catch (const Json::exception&) {
    return {};
  }
}

void RefreshState::save(const fs::path& path) const {
  AtomicFile::replace(path, toJson().dump(2) + "\n");
}

void RefreshState::Entry::record(ProviderStatus status, Date now) {
  lastAttempt = now;
  if (status == ProviderStatus::ok) lastFetch = now;
  delay = RefreshPolicy::nextDelay(status, delay.value_or(RefreshPolicy::minInterval));
}

Date RefreshState::Entry::nextFetch(Date now) const {
  if (!lastAttempt || *lastAttempt > now) return now;
  return *lastAttempt + Seconds{delay.value_or(RefreshPolicy::minInterval)};
}

}  // namespace brimlog
