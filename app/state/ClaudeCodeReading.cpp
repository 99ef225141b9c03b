#include "state/ClaudeCodeReading.hpp"

#include "platform/AtomicFile.hpp"
#include "platform/Json.hpp"
#include "platform/WholeFile.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// The figures a reading is judged by; the time it was read does not make it new.
bool sameFigures(const std::vector<LimitWindow>& a, const std::vector<LimitWindow>& b) {
  return std::equal(
      a.begin(), a.end(), b.begin(), b.end(), [](const LimitWindow& x, const LimitWindow& y) {
        return x.id == y.id && x.usedFraction == y.usedFraction && x.resetsAt == y.resetsAt;
      });
}

}  // namespace

bool ClaudeCodeReading::handOver(const fs::path& folder) const {
  if (const std::optional<ClaudeCodeReading> last = read(folder);
      last && sameFigures(last->windows, windows)) {
    return false;
  }
  Json json = {{"readAt", formatISO8601(readAt)}, {"windows", Json::array()}};
  for (const LimitWindow& window : windows) {
    json["windows"].push_back(window.toJson(DateForm::iso8601));
  }
  // Losing the file in a power cut costs one reading, which the next line hands over again;
  // flushing it to disk would cost the line more than everything else it does.
  AtomicFile::replace(folder / fileName, json.dump(), AtomicFile::Durability::visible);
  return true;
}

std::optional<ClaudeCodeReading> ClaudeCodeReading::read(const fs::path& folder) {
  try {
    const Json json = Json::parse(WholeFile::read(folder / fileName, WholeFile::kSmallFileLimit).bytes);
    ClaudeCodeReading reading;
    const std::optional<Date> readAt = parseISO8601(json.at("readAt").get<std::string>());
    if (!readAt) return std::nullopt;
    reading.readAt = *readAt;
    for (const Json& window : json.at("windows")) {
      reading.windows.push_back(LimitWindow::fromJson(window, DateForm::iso8601));
    }
    return reading;
  } catch (const std::exception&) {
    // Missing, unreadable or damaged: there is simply no reading to take.
    return std::nullopt;
  }
}

std::optional<ProviderLimits> ClaudeCodeReading::over(
    const std::optional<ProviderLimits>& stored) const {
  if (windows.empty() || (stored && stored->fetchedAt >= readAt)) return std::nullopt;
  ProviderLimits limits;
  if (stored) {
    limits.plan = stored->plan;
    limits.credits = stored->credits;
  }
  limits.windows = windows;
  limits.status = ProviderStatus::ok;
  limits.fetchedAt = readAt;
  return limits;
}

bool ClaudeCodeReading::takeInto(UsageStore& store, RefreshState& refresh, const fs::path& folder) {
  const std::optional<ClaudeCodeReading> reading = read(folder);
  if (!reading) return false;
  std::optional<ProviderLimits> stored;
  try {
    stored = store.limits(ProviderID::claude);
  } catch (const JsonDecodeError&) {
    // A damaged record is what the reading replaces.
  }
  const std::optional<ProviderLimits> limits = reading->over(stored);
  if (!limits) return false;
  store.setLimits(*limits, ProviderID::claude);
  refresh[ProviderID::claude].record(ProviderStatus::ok, reading->readAt);
  return true;
}

}  // namespace brimlog
