#include "daemon/Daemon.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <set>
#include <thread>
#include <vector>

#include "daemon/DesktopNotifier.hpp"
#include "daemon/LimitAlerts.hpp"
#include "daemon/LogWatcher.hpp"
#include "daemon/MetricsServer.hpp"
#include "daemon/ShareTask.hpp"
#include "daemon/Wakeup.hpp"
#include "display/LimitOutlook.hpp"
#include "display/WidgetDisplay.hpp"
#include "ingest/UsageIngestor.hpp"
#include "platform/RefreshRequest.hpp"
#include "platform/WholeFile.hpp"
#include "state/ClaudeCodeReading.hpp"
#include "state/DaemonLock.hpp"
#include "store/UsageStore.hpp"
#include "sync/LimitsFetcher.hpp"
#include "sync/SnapshotPublisher.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

// Passes after a change are at least this far apart, so a burst of writes makes one pass.
constexpr double kCoalesce = 1;
// Usage rows older than this are pruned, once a day.
constexpr double kKeepDays = 400;

template <typename... Args>
void say(fmt::format_string<Args...> format, Args&&... args) {
  fmt::print(stderr, "brimlog daemon: {}\n", fmt::format(format, std::forward<Args>(args)...));
  std::fflush(stderr);
}

std::string newReplies(const IngestResult& result) {
  std::string parts;
  for (ProviderID provider : ProviderID::allCases) {
    if (result.newEvents[provider] == 0) continue;
    parts += fmt::format("{}{} {}", parts.empty() ? "" : ", ", provider.displayName(),
                         result.newEvents[provider]);
  }
  return parts;
}

// One tool's fetch running on its own thread; the loop collects the answer when it is done.
struct Fetch {
  LimitsProvider* provider = nullptr;
  std::thread thread;
  std::shared_ptr<std::atomic<bool>> done = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<ProviderLimits> answer = std::make_shared<ProviderLimits>();
};

}  // namespace

struct Daemon::Loop {
  Loop(HostSettings& settings, DaemonOptions options) : settings(settings), options(options) {}

  HostSettings& settings;
  DaemonOptions options;
  std::shared_ptr<UsageStore> store;
  Wakeup wakeup;
  std::vector<std::unique_ptr<LimitsProvider>> providers;
  std::vector<Fetch> fetches;
  RefreshState refresh;
  std::filesystem::path refreshPath;
  std::optional<DesktopNotifier> notifier;
  std::optional<LimitAlerts> alerts;
  std::optional<MetricsServer> metrics;
  int64_t dataVersion = 0;
  std::string publishedDay;
  std::string prunedDay;
  std::string checkedDay;
  Date lastPass{};
  Date lastPublish{};
  std::set<std::string> toldSkipped;
  bool passWanted = false;
  bool changed = true;
  ShareTask share{settings.share, [](const std::string& text) { say("{}", text); }};

  void pass(Date now) {
    StoreIngestSink sink{*store};
    UsageIngestor ingestor{sink, settings.tools.logFolders(), IngestOptions{}};
    const auto started = std::chrono::steady_clock::now();
    const IngestResult result = ingestor.run(now);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    lastPass = now;
    passWanted = false;
    share.passed();
    if (result.codexLimitsStored) tellDesktop(ProviderID::codex, *result.codexLimits, now);
    if (result.codexLimitsStored) share.changed();
    if (ClaudeCodeReading::takeInto(*store, refresh, settings.stateFolder)) {
      changed = true;
      share.changed();
      saveRefresh();
    }
    if (result.totalNewEvents() > 0) {
      changed = true;
      share.changed();
      say("{} new {} ({}) from {} {}", result.totalNewEvents(),
          result.totalNewEvents() == 1 ? "reply" : "replies", newReplies(result), result.filesRead,
          result.filesRead == 1 ? "file" : "files");
    }
    // A file that cannot be read is told once, not at every pass.
    for (const SkippedFile& file : result.skipped) {
      if (toldSkipped.insert(file.path + '\n' + file.reason).second) {
        say("skipped {}: {}", file.path, file.reason);
      }
    }
    if (metrics) {
      metrics->passed(*store, now, took.count(), static_cast<int64_t>(result.skipped.size()),
                      result.totalNewEvents() > 0);
    }
  }

  Fetch* inFlight(ProviderID id) {
    for (Fetch& fetch : fetches) {
      if (fetch.provider->id() == id) return &fetch;
    }
    return nullptr;
  }

  void startFetch(LimitsProvider& provider, Date now) {
    Fetch fetch;
    fetch.provider = &provider;
    fetch.thread =
        std::thread{[&provider, now, done = fetch.done, answer = fetch.answer, &wakeup = wakeup] {
          *answer = provider.fetch(now);
          done->store(true);
          wakeup.wake();
        }};
    fetches.push_back(std::move(fetch));
  }

  // Starts the fetches that are due: on their schedule, or as the refresh button allows.
  void fetchDue(Date now, bool buttonPressed) {
    if (options.offline) return;
    for (const auto& provider : providers) {
      if (inFlight(provider->id())) continue;
      const RefreshState::Entry& entry = refresh[provider->id()];
      if (entry.isDue(now, buttonPressed ? RefreshState::Entry::Trigger::asked
                                         : RefreshState::Entry::Trigger::schedule)) {
        startFetch(*provider, now);
      }
    }
  }

  // Stores the answers of the fetches that finished.
  void collectFetches(Date now) {
    for (auto it = fetches.begin(); it != fetches.end();) {
      if (!it->done->load()) {
        ++it;
        continue;
      }
      it->thread.join();
      const ProviderID id = it->provider->id();
      const ProviderLimits& limits = *it->answer;
      store->setLimits(limits, id);
      refresh[id].record(limits.status, limits.fetchedAt);
      if (limits.status != ProviderStatus::ok) {
        say("{} limits: {} (next try in {:.0f} s)", id.displayName(), caseName(limits.status),
            *refresh[id].delay);
      }
      tellDesktop(id, limits, now);
      if (metrics) metrics->limitsChanged(*store, now);
      changed = true;
      share.changed();
      it = fetches.erase(it);
      saveRefresh();
    }
  }

  void saveRefresh() {
    try {
      refresh.save(refreshPath);
    } catch (const std::filesystem::filesystem_error& error) {
      say("{}", error.what());
    }
  }

  // A limit that got tight, will run out early or came back, once per window period, also across
  // restarts; whether its figures came from the service or from the tool's logs.
  void tellDesktop(ProviderID id, const ProviderLimits& limits, Date now) {
    if (!alerts) return;
    const std::vector<LimitForecast> forecasts = LimitOutlook::forecasts(*store, id, limits, now);
    for (const LimitAlert& alert : alerts->update(id, limits, now, forecasts)) {
      if (notifier && !notifier->notify(alert)) {
        say("cannot show \"{}\": {}", alert.summary, notifier->lastError());
      }
    }
    if (alerts->saveError()) say("{}", *alerts->saveError());
  }

  void publishIfDue(Date now) {
    const std::string today = settings.calendar.dayKey(now);
    const int64_t version = store->dataVersion();
    const bool due = changed || version != dataVersion || today != publishedDay ||
                     now - lastPublish >= Seconds{WidgetDisplay::reloadInterval};
    if (!due) return;
    try {
      SnapshotPublisher::publish(*store, settings, now);
      changed = false;
    } catch (const CommandError& error) {
      say("{}", error.what());
    }
    // Either way, try again on the next change or at the next quarter hour, not in a loop.
    dataVersion = version;
    publishedDay = today;
    lastPublish = now;
  }

  // A damaged file can answer with rows missing rather than fail, so the totals would quietly be
  // wrong: the file is checked at start and once a day, and damage told in the journal and on
  // the desktop, each time, with how to rebuild it.
  void checkIfDue(Date now) {
    const std::string today = settings.calendar.dayKey(now);
    if (today == checkedDay) return;
    checkedDay = today;
    std::string damage;
    try {
      const std::vector<std::string> problems = store->damage();
      if (problems.empty()) return;
      damage = UsageStoreError::damaged(settings.database.string(), problems).what();
    } catch (const UsageStoreError& error) {
      damage = error.what();
    }
    say("{}", damage);
    if (notifier && !notifier->notify("Brimlog's database is damaged", damage)) {
      say("cannot show the damage on the desktop: {}", notifier->lastError());
    }
  }

  void pruneIfDue(Date now) {
    const std::string today = settings.calendar.dayKey(now);
    if (today == prunedDay) return;
    store->prune(now - Seconds{kKeepDays * 86400}, settings.calendar);
    prunedDay = today;
  }

  // Milliseconds until the loop has something to do without being woken.
  int timeout(Date now) const {
    Date next = lastPass + Seconds{options.interval};
    if (passWanted) next = std::min(next, lastPass + Seconds{kCoalesce});
    next = std::min(next, lastPublish + Seconds{WidgetDisplay::reloadInterval});
    if (!options.offline) {
      for (const auto& provider : providers) {
        const ProviderID id = provider->id();
        const bool running = std::any_of(fetches.begin(), fetches.end(),
                                         [&](const Fetch& f) { return f.provider->id() == id; });
        if (!running) next = std::min(next, refresh[id].nextFetch(now));
      }
    }
    const double seconds = std::clamp((next - now).count(), 0.0, 3600.0);
    return static_cast<int>(std::ceil(seconds * 1000));
  }

  // The time now; a test moves it through `BRIMLOG_CLOCK_FILE` (see `HostSettings`).
  Date clock() const {
    if (!settings.clockFile) return currentDate();
    try {
      const std::string text = WholeFile::read(*settings.clockFile, 64).bytes;
      if (const auto date = parseISO8601(text.substr(0, text.find_first_of("\r\n")))) {
        return *date;
      }
    } catch (const std::exception&) {
    }
    return currentDate();
  }

  void joinFetches() {
    for (Fetch& fetch : fetches) fetch.thread.join();
    fetches.clear();
  }
};

Daemon::Daemon(HostSettings settings, DaemonOptions options)
    : settings_(std::move(settings)), options_(options) {}

Daemon::~Daemon() = default;

int Daemon::run() {
  settings_.prepareDatabaseDirectory();
  settings_.prepareStateFolder();
  const std::optional<DaemonLock> lock = DaemonLock::acquire(settings_.database);
  if (!lock) {
    const std::optional<pid_t> holder = DaemonLock::holder(settings_.database);
    throw CommandError(fmt::format(
        "another brimlog daemon{} is already running on {}; stop it first",
        holder ? fmt::format(" (process {})", *holder) : "", settings_.database.string()));
  }
  // The widgets' refresh requests: listened for from here on, answered by the first pass.
  std::optional<RefreshRequest::Listener> listener = RefreshRequest::listen(settings_.stateFolder);
  if (!listener) {
    throw CommandError(fmt::format(
        "another brimlog daemon answers the widgets in {}; stop it or give --shared-dir",
        settings_.stateFolder.string()));
  }
  std::optional<LimitsEndpoints> endpoints;
  if (!options_.offline) endpoints = LimitsEndpoints::from(settings_);

  // SIGINT and SIGTERM are read from a descriptor, so that a stop never cuts into a commit.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  const FileDescriptor signals{::signalfd(-1, &stopSignals, SFD_NONBLOCK | SFD_CLOEXEC)};

  Loop loop{settings_, options_};
  loop.store = std::make_shared<UsageStore>(settings_.database);
  loop.refreshPath = RefreshState::pathIn(settings_.stateFolder);
  loop.refresh = RefreshState::load(loop.refreshPath);
  if (endpoints) {
    loop.providers = LimitsFetcher::forTools(loop.store, settings_.tools, *endpoints).providers();
  }
  // Offline, limits still arrive through the tools' logs, and alert like fetched ones.
  if (options_.notify) {
    std::string why;
    loop.notifier = DesktopNotifier::connect(settings_.sessionBusAddress, &why);
    if (loop.notifier) {
      loop.alerts.emplace(settings_.stateFolder / "alerts.json", settings_.calendar);
    } else {
      say("no desktop notifications: {}", why);
    }
  }
  if (options_.metrics) loop.metrics.emplace(*options_.metrics, loop.clock());
  const std::vector<LogFolder> roots = settings_.tools.possibleLogRoots();
  LogWatcher watcher{roots};

  say("started: database {}, snapshot in {}, {} log folders ({} watched), a pass every {:g} s{}{}",
      settings_.database.string(), settings_.stateFolder.string(), roots.size(),
      watcher.watchCount(), options_.interval, options_.offline ? ", offline" : "",
      options_.metrics ? ", metrics at http://" + options_.metrics->text() + "/metrics" : "");

  // At start: a pass, the fetches the timing allows, the snapshot.
  Date now = loop.clock();
  loop.checkIfDue(now);
  loop.pruneIfDue(now);
  loop.pass(now);
  loop.fetchDue(now, true);
  loop.dataVersion = loop.store->dataVersion();
  loop.publishIfDue(now);
  loop.share.runIfDue(*loop.store);

  for (;;) {
    pollfd ready[] = {{signals.get(), POLLIN, 0},
                      {watcher.fd(), POLLIN, 0},
                      {loop.wakeup.fd(), POLLIN, 0},
                      {listener->fd(), POLLIN, 0}};
    if (::poll(ready, 4, loop.timeout(loop.clock())) < 0 && errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "poll");
    }
    if (ready[0].revents & POLLIN) break;
    if ((ready[1].revents & POLLIN) && watcher.drain()) loop.passWanted = true;
    if (ready[2].revents & POLLIN) loop.wakeup.clear();
    const bool buttonPressed = (ready[3].revents & POLLIN) && listener->take();
    if (buttonPressed) {
      // The widgets asked: whatever the pass finds, a new snapshot says the data is current.
      say("refresh asked for by the widgets");
      loop.changed = true;
    }

    // Every step below takes the same `now`: the pass, the fetches and the snapshot agree.
    now = loop.clock();
    loop.collectFetches(now);
    const bool passDue = buttonPressed || now - loop.lastPass >= Seconds{options_.interval} ||
                         (loop.passWanted && now - loop.lastPass >= Seconds{kCoalesce});
    if (passDue) loop.pass(now);
    loop.fetchDue(now, buttonPressed);
    loop.checkIfDue(now);
    loop.pruneIfDue(now);
    loop.publishIfDue(now);
    loop.share.runIfDue(*loop.store);
  }
  say("stopping{}", loop.fetches.empty() ? "" : " after the fetches under way");
  loop.joinFetches();
  loop.collectFetches(loop.clock());
  return 0;
}

}  // namespace brimlog
