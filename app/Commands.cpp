#include "Commands.hpp"

#include <fmt/format.h>

#include <cmath>
#include <memory>

#include "ProgressBar.hpp"
#include "StoreIngestSink.hpp"
#include "TextTable.hpp"
#include "ingest/UsageIngestor.hpp"
#include "limits/ClaudeConfigCredentialSource.hpp"
#include "limits/CodexLimitsProvider.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

IngestResult ingest(UsageStore& store, const HostSettings& settings) {
  ProgressBar bar;
  IngestOptions options;
  options.progress = [&bar](const IngestProgress& progress) { bar.update(progress); };
  StoreIngestSink sink{store, settings.calendar};
  UsageIngestor ingestor{sink, settings.tools.logFolders(), options};
  IngestResult result = ingestor.run(settings.now);
  bar.finish();
  for (const SkippedFile& file : result.skipped) {
    fmt::print(stderr, "brimlog: skipped {}: {}\n", file.path, file.reason);
  }
  return result;
}

std::string plural(int64_t count, const char* one, const char* many) {
  return formatCount(count) + " " + (count == 1 ? one : many);
}

std::string statusText(ProviderStatus status) {
  switch (status) {
    case ProviderStatus::ok:
      return "ok";
    case ProviderStatus::signInNeeded:
      return "sign-in needed";
    case ProviderStatus::unreachable:
      return "unreachable";
    case ProviderStatus::rateLimited:
      return "rate limited";
    case ProviderStatus::accessDenied:
      return "access denied";
    case ProviderStatus::unavailable:
      return "unavailable";
  }
  return "unknown";
}

// "in 2 h 05 min" / "in 3 d 4 h"; "now" once passed.
std::string untilText(Date when, Date now) {
  const double seconds = unixSeconds(when) - unixSeconds(now);
  if (seconds <= 0) return "reset";
  const auto minutes = static_cast<int64_t>(std::ceil(seconds / 60));
  if (minutes < 60) return fmt::format("in {} min", minutes);
  if (minutes < 24 * 60) return fmt::format("in {} h {:02} min", minutes / 60, minutes % 60);
  return fmt::format("in {} d {} h", minutes / (24 * 60), minutes % (24 * 60) / 60);
}

std::string localTime(Date when, const Calendar& calendar) {
  const CalendarDay day = calendar.day(when);
  const double sinceMidnight = unixSeconds(when) - unixSeconds(calendar.startOfDay(when));
  const auto minutes = static_cast<int64_t>(sinceMidnight / 60);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", day.year, day.month, day.day, minutes / 60,
                     minutes % 60);
}

std::string limitsTable(const std::vector<std::pair<ProviderID, ProviderLimits>>& all,
                        const HostSettings& settings) {
  TextTable table{{{"Tool", TextTable::left},
                   {"Plan", TextTable::left},
                   {"Status", TextTable::left},
                   {"Limit", TextTable::left},
                   {"Used", TextTable::right},
                   {"Resets", TextTable::left}}};
  for (const auto& [provider, limits] : all) {
    std::vector<std::string> first{std::string(provider.toolName()), limits.plan.value_or("-"),
                                   statusText(limits.status)};
    if (limits.windows.empty() && !limits.credits) table.addRow(first);
    bool leading = true;
    for (const LimitWindow& window : limits.windows) {
      std::vector<std::string> row = leading ? first : std::vector<std::string>{"", "", ""};
      leading = false;
      row.push_back(window.label);
      std::string used = fmt::format("{:.0f}%", window.effectiveUsedFraction(settings.now) * 100);
      if (window.source.isStale()) used = "~" + used;
      row.push_back(used);
      row.push_back(window.resetsAt
                        ? fmt::format("{} ({})", untilText(*window.resetsAt, settings.now),
                                      localTime(*window.resetsAt, settings.calendar))
                        : "");
      table.addRow(std::move(row));
    }
    if (limits.credits) {
      std::vector<std::string> row = leading ? first : std::vector<std::string>{"", "", ""};
      row.push_back(limits.credits->label);
      row.push_back(limits.credits->unlimited    ? "unlimited"
                    : limits.credits->balanceUSD ? formatUSD(*limits.credits->balanceUSD) + " left"
                                                 : "");
      table.addRow(std::move(row));
    }
  }
  std::string out = table.render();
  bool stale = false;
  for (const auto& entry : all) {
    for (const LimitWindow& window : entry.second.windows) stale = stale || window.source.isStale();
  }
  if (stale) out += "\n~ kept from an earlier answer: the last fetch failed.\n";
  return out;
}

}  // namespace

Commands::Commands(HostSettings settings, std::FILE* out)
    : out_(out), settings_(std::move(settings)) {}

std::shared_ptr<UsageStore> Commands::store(Access access) {
  if (store_) return store_;
  if (access == Access::read) {
    // Reading creates nothing: with no database yet there is simply nothing stored.
    std::error_code error;
    const bool exists = fs::exists(settings_.database, error);
    store_ = std::make_shared<UsageStore>(exists ? settings_.database : fs::path(":memory:"),
                                          UsageStoreOptions{.readOnly = exists});
    return store_;
  }
  settings_.prepareDatabaseDirectory();
  store_ = std::make_shared<UsageStore>(settings_.database);
  return store_;
}

std::vector<FetchOutcome> Commands::fetchLimits(LimitsEndpoints endpoints, bool force) {
  LimitsFetcher fetcher{store(), settings_.tools,
                        std::make_shared<ClaudeConfigCredentialSource>(settings_.tools.claudeDirs),
                        std::make_shared<CurlHTTPClient>(), std::move(endpoints)};
  const std::filesystem::path statePath = RefreshState::pathFor(settings_.database);
  RefreshState state = RefreshState::load(statePath);
  std::vector<FetchOutcome> outcomes = fetcher.run(settings_.now, state, force);
  try {
    state.save(statePath);
  } catch (const std::filesystem::filesystem_error& error) {
    // The limits are stored; only the timing of the next run is lost.
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return outcomes;
}

int Commands::sync(const SyncOptions& options) {
  std::shared_ptr<UsageStore> opened = store();
  // The endpoints are checked before anything is read, so a bad setting costs no time or secret.
  std::optional<LimitsEndpoints> endpoints;
  if (!options.offline) endpoints = LimitsEndpoints::from(settings_);
  const IngestResult result = ingest(*opened, settings_);
  std::vector<FetchOutcome> outcomes;
  if (endpoints) outcomes = fetchLimits(std::move(*endpoints), options.refresh);

  if (options.json) {
    Json limits = Json::object();
    for (const FetchOutcome& outcome : outcomes) {
      Json entry = {{"fetched", outcome.fetched}};
      if (outcome.limits) entry["status"] = caseName(outcome.limits->status);
      limits[std::string(outcome.provider.rawValue())] = entry;
    }
    fmt::print(out_, "{}\n", Json{{"ingest", result.toJson()}, {"limits", limits}}.dump(2));
    return 0;
  }
  fmt::print(out_, "Read {} from {} in {:.2f} s\n",
             plural(result.totalNewEvents(), "new reply", "new replies"),
             plural(static_cast<int64_t>(result.filesRead), "file", "files"),
             result.elapsedSeconds);
  std::string fetched;
  for (const FetchOutcome& outcome : outcomes) {
    if (!outcome.limits) continue;
    fetched += fmt::format("{}{} {}", fetched.empty() ? "" : ", ", outcome.provider.displayName(),
                           statusText(outcome.limits->status));
  }
  if (!fetched.empty()) fmt::print(out_, "Limits: {}\n", fetched);
  return 0;
}

int Commands::report(const ReportOptions& options) {
  std::shared_ptr<UsageStore> opened = store(options.noSync ? Access::read : Access::write);
  if (!options.noSync) ingest(*opened, settings_);
  const UsageSummary summary =
      opened->summary(options.days, settings_.now, settings_.calendar, PriceTable::bundled());
  if (options.json) {
    fmt::print(out_, "{}\n", summary.toJson(DateForm::iso8601).dump(2));
  } else {
    fmt::print(out_, "{}", ReportFormatter::render(summary, options.view, settings_.calendar));
  }
  return 0;
}

int Commands::limits(const LimitsOptions& options) {
  std::shared_ptr<UsageStore> opened = store(Access::read);
  std::vector<std::pair<ProviderID, ProviderLimits>> all;
  for (ProviderID provider : ProviderID::allCases) {
    try {
      if (auto stored = opened->limits(provider)) all.emplace_back(provider, std::move(*stored));
    } catch (const JsonDecodeError& error) {
      fmt::print(stderr, "brimlog: the stored limits of {} are damaged: {}\n",
                 provider.displayName(), error.what());
    }
  }
  if (options.json) {
    Json json = Json::object();
    for (const auto& [provider, limits] : all) {
      json[std::string(provider.rawValue())] = limits.toJson(DateForm::iso8601);
    }
    fmt::print(out_, "{}\n", json.dump(2));
    return 0;
  }
  if (all.empty()) {
    fmt::print(out_, "No limits stored yet; `brimlog sync` fetches them.\n");
    return 0;
  }
  fmt::print(out_, "{}", limitsTable(all, settings_));
  return 0;
}

int Commands::overview(const SyncOptions& options) {
  std::shared_ptr<UsageStore> opened = store();
  std::optional<LimitsEndpoints> endpoints;
  if (!options.offline) endpoints = LimitsEndpoints::from(settings_);
  ingest(*opened, settings_);
  if (endpoints) fetchLimits(std::move(*endpoints), options.refresh);
  limits({});
  fmt::print(out_, "\n");
  const UsageSummary summary =
      opened->summary(30, settings_.now, settings_.calendar, PriceTable::bundled());
  fmt::print(out_, "{}",
             ReportFormatter::render(summary, ReportFormatter::View::tools, settings_.calendar));
  return 0;
}

}  // namespace brimlog
