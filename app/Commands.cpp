#include "Commands.hpp"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <csignal>
#include <memory>
#include <thread>

#include "BackgroundSync.hpp"
#include "ClaudeCodeStatus.hpp"
#include "Dashboard.hpp"
#include "ProgressBar.hpp"
#include "SnapshotPublisher.hpp"
#include "StoreIngestSink.hpp"
#include "TextTable.hpp"
#include "display/SnapshotStore.hpp"
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

// The stream's width in columns when it is a terminal; 80 otherwise.
int terminalWidth(std::FILE* stream) {
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

volatile std::sig_atomic_t stopRequested = 0;
volatile std::sig_atomic_t resized = 0;
extern "C" void onStop(int) { stopRequested = 1; }
extern "C" void onResize(int) { resized = 1; }

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

// Standard input to its end, at most 1 MiB: Claude Code's status input is a small object.
std::string readInput(std::FILE* input) {
  std::string text;
  char buffer[8192];
  size_t count = 0;
  while (text.size() < (1u << 20) && (count = std::fread(buffer, 1, sizeof buffer, input)) > 0) {
    text.append(buffer, count);
  }
  return text;
}

std::string localTime(Date when, const Calendar& calendar) {
  const CalendarDay day = calendar.day(when);
  const double sinceMidnight = unixSeconds(when) - unixSeconds(calendar.startOfDay(when));
  const auto minutes = static_cast<int64_t>(sinceMidnight / 60);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", day.year, day.month, day.day, minutes / 60,
                     minutes % 60);
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
                        std::make_shared<ClaudeConfigCredentialSource>(
                            settings_.tools.places(ProviderID::claude).homes),
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

std::optional<SyncLock> Commands::lockForSync(std::optional<int> inherited) {
  if (settings_.database.filename() == ":memory:") return std::nullopt;
  if (inherited) {
    if (std::optional<SyncLock> adopted = SyncLock::adopt(*inherited, settings_.database)) {
      return adopted;
    }
  }
  settings_.prepareDatabaseDirectory();
  if (std::optional<SyncLock> lock = SyncLock::tryAcquire(settings_.database)) return lock;
  fmt::print(stderr, "brimlog: another sync is reading the logs; waiting for it to finish\n");
  return SyncLock::acquire(settings_.database);
}

int Commands::sync(const SyncOptions& options) {
  const std::optional<SyncLock> lock = lockForSync(options.lockFd);
  std::shared_ptr<UsageStore> opened = store();
  // The endpoints are checked before anything is read, so a bad setting costs no time or secret.
  std::optional<LimitsEndpoints> endpoints;
  if (!options.offline) endpoints = LimitsEndpoints::from(settings_);
  const IngestResult result = ingest(*opened, settings_);
  std::vector<FetchOutcome> outcomes;
  if (endpoints) outcomes = fetchLimits(std::move(*endpoints), options.refresh);
  // The widgets' snapshot; a failure is told after the pass's own result, which stands.
  std::optional<std::string> unpublished;
  try {
    publish();
  } catch (const CommandError& error) {
    unpublished = error.what();
  }

  if (options.json) {
    Json limits = Json::object();
    for (const FetchOutcome& outcome : outcomes) {
      Json entry = {{"fetched", outcome.fetched}};
      if (outcome.limits) entry["status"] = caseName(outcome.limits->status);
      limits[std::string(outcome.provider.rawValue())] = entry;
    }
    fmt::print(out_, "{}\n", Json{{"ingest", result.toJson()}, {"limits", limits}}.dump(2));
  } else {
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
  }
  if (unpublished) {
    fmt::print(stderr, "brimlog: {}\n", *unpublished);
    return 1;
  }
  return 0;
}

int Commands::report(const ReportOptions& options) {
  std::optional<SyncLock> lock;
  if (!options.noSync) lock = lockForSync();
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
  for (ProviderID provider : ProviderID::readableCases) {
    if (!provider.hasLimits()) continue;
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
  const bool terminal = ::isatty(::fileno(out_)) != 0;
  const Dashboard dashboard{terminalWidth(out_), terminal && !settings_.noColor};
  bool stale = false;
  for (const auto& [provider, limits] : all) {
    const Snapshot::Provider entry{
        provider, limits.plan, limits.windows, limits.credits, limits.status, 0, 0, false};
    std::string heading = std::string(provider.displayName());
    if (limits.plan) heading += " · " + *limits.plan;
    heading += " · " + statusText(limits.status);
    fmt::print(out_, "{}{}  (asked {})\n{}", &provider == &all.front().first ? "" : "\n", heading,
               localTime(limits.fetchedAt, settings_.calendar),
               dashboard.windows(entry, settings_.now));
    for (const LimitWindow& window : limits.windows) stale = stale || window.source.isStale();
  }
  if (stale) fmt::print(out_, "\n~ kept from an earlier answer: the last fetch failed.\n");
  return 0;
}

Snapshot Commands::publish() {
  return SnapshotPublisher::publish(*store(), settings_, settings_.now);
}

Snapshot Commands::refresh(bool offline) {
  const std::optional<SyncLock> lock = lockForSync();
  std::shared_ptr<UsageStore> opened = store();
  std::optional<LimitsEndpoints> endpoints;
  if (!offline) endpoints = LimitsEndpoints::from(settings_);
  ingest(*opened, settings_);
  if (endpoints) fetchLimits(std::move(*endpoints), false);
  return publish();
}

int Commands::watch(const StatusOptions& options) {
  if (::isatty(::fileno(out_)) == 0) {
    throw CommandError(
        "status --watch redraws a terminal; standard output is not one (use "
        "status --json for scripts)");
  }
  const auto seconds = std::chrono::duration<double>(std::max(*options.watch, 1.0));
  struct sigaction stop {
  }, resize{}, oldInterrupt{}, oldTerminate{}, oldResize{};
  stop.sa_handler = onStop;
  resize.sa_handler = onResize;
  ::sigaction(SIGINT, &stop, &oldInterrupt);
  ::sigaction(SIGTERM, &stop, &oldTerminate);
  ::sigaction(SIGWINCH, &resize, &oldResize);
  stopRequested = 0;
  fmt::print(out_, "\x1b[?1049h\x1b[?25l");  // the alternate screen, no cursor
  auto restore = [&] {
    fmt::print(out_, "\x1b[?25h\x1b[?1049l");
    std::fflush(out_);
    ::sigaction(SIGINT, &oldInterrupt, nullptr);
    ::sigaction(SIGTERM, &oldTerminate, nullptr);
    ::sigaction(SIGWINCH, &oldResize, nullptr);
  };
  try {
    while (!stopRequested) {
      settings_.now = currentDate();
      const Snapshot snapshot = refresh(options.offline);
      const auto passed = std::chrono::steady_clock::now();
      // Between passes only the clock moves: countdowns are redrawn every second.
      while (!stopRequested && std::chrono::steady_clock::now() - passed < seconds) {
        resized = 0;
        const Dashboard dashboard{terminalWidth(out_), !settings_.noColor};
        fmt::print(out_, "\x1b[H\x1b[2J{}",
                   dashboard.render(snapshot, currentDate(), settings_.calendar));
        std::fflush(out_);
        for (int tick = 0; tick < 10 && !stopRequested && !resized; ++tick) {
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
      }
    }
  } catch (...) {
    restore();
    throw;
  }
  restore();
  return 0;
}

int Commands::status(const StatusOptions& options) {
  if (options.watch) return watch(options);
  const Snapshot snapshot = refresh(options.offline);
  if (options.json) {
    fmt::print(out_, "{}\n", snapshot.toJson().dump());
    return 0;
  }
  const bool terminal = ::isatty(::fileno(out_)) != 0;
  const Dashboard dashboard{terminalWidth(out_), terminal && !settings_.noColor};
  fmt::print(out_, "{}", dashboard.render(snapshot, settings_.now, settings_.calendar));
  return 0;
}

int Commands::line(const LineOptions& options) {
  const std::optional<Snapshot> snapshot = SnapshotStore{settings_.sharedDir}.read();
  std::optional<ClaudeCodeStatus> input;
  if (options.format == StatusLine::Format::claudeCode && options.input != nullptr &&
      ::isatty(::fileno(options.input)) == 0) {
    input = ClaudeCodeStatus::parse(readInput(options.input));
  }
  const StatusLine line{options.format, options.provider, !settings_.noColor};
  fmt::print(out_, "{}", line.render(snapshot, settings_.now, input));
  std::fflush(out_);

  const std::optional<Date> generatedAt =
      snapshot ? std::optional<Date>(snapshot->generatedAt) : std::nullopt;
  if (!BackgroundSync::isDue(generatedAt, settings_.now)) return 0;
  // A bar shows what we print, never an error box: a sync that cannot start is told on standard
  // error alone, and the line stands.
  try {
    std::vector<std::string> arguments = {"--home", settings_.home.string(), "--db",
                                          settings_.database.string()};
    if (settings_.sharedDir)
      arguments.insert(arguments.end(), {"--shared-dir", settings_.sharedDir->string()});
    if (options.zone) arguments.insert(arguments.end(), {"--tz", *options.zone});
    arguments.push_back("sync");
    settings_.prepareDatabaseDirectory();
    BackgroundSync{settings_.executable, std::move(arguments), settings_.database}.start();
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: no background sync: {}\n", error.what());
  }
  return 0;
}

}  // namespace brimlog
