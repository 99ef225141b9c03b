#include "cli/Commands.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdlib>
#include <map>
#include <string>

#include "cli/ReportBuilder.hpp"
#include "cli/WatchLoop.hpp"
#include "display/LimitOutlook.hpp"
#include "display/SnapshotStore.hpp"
#include "display/WidgetDisplay.hpp"
#include "output/ClaudeCodeStatus.hpp"
#include "output/Dashboard.hpp"
#include "output/LimitHistoryReport.hpp"
#include "output/LimitsReport.hpp"
#include "output/ProgressBar.hpp"
#include "output/ReportFormatter.hpp"
#include "output/ReportJson.hpp"
#include "output/Terminal.hpp"
#include "output/TextTable.hpp"
#include "platform/CommandLineMistake.hpp"
#include "share/SharedLedger.hpp"
#include "state/BackgroundSync.hpp"
#include "state/ClaudeCodeReading.hpp"
#include "store/PriceTable.hpp"
#include "store/SummaryBuilder.hpp"
#include "store/UsageReport.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

std::string plural(int64_t count, const char* one, const char* many) {
  return formatCount(count) + " " + (count == 1 ? one : many);
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

// The report's days: from --since, or --days back from --until or today, to --until or today.
SummaryWindow reportDays(const ReportOptions& options, Date now, const Calendar& calendar) {
  const Date today = calendar.startOfDay(now);
  auto start = [&](const CalendarDay& day, const char* option) {
    const std::optional<Date> date = calendar.startOfDay(day);
    if (!date)
      throw CommandError(
          fmt::format("{}: no such day in {}; give another day", option, calendar.zoneName()));
    return *date;
  };
  const Date last = options.until ? start(*options.until, "--until") : today;
  if (options.since) {
    const Date first = start(*options.since, "--since");
    if (first > last) {
      throw CommandError(fmt::format(
          "--since {} comes after {}; give a day up to it", calendar.dayKey(first),
          options.until ? "--until " + calendar.dayKey(last) : "today, " + calendar.dayKey(today)));
    }
    return SummaryWindow::between(first, last, calendar);
  }
  return SummaryWindow::between(calendar.addingDays(1 - options.days, last).value_or(last), last,
                                calendar);
}

// Whether a status line of `snapshot` may tell a time: a window forecast to run out.
bool tellsATime(const Snapshot& snapshot) {
  for (const Snapshot::Provider& provider : snapshot.providers) {
    for (const LimitForecast& forecast : provider.forecasts) {
      if (forecast.runsOutAt) return true;
    }
  }
  return false;
}

// The zone the status line tells a time in, resolved only when it tells one: loading the zones
// costs more than the rest of the line. A line never fails: an unknown --tz falls back to TZ.
Calendar lineCalendar(const std::optional<std::string>& zone) {
  try {
    return HostSettings::calendarFor(zone);
  } catch (const CommandLineMistake&) {
    return HostSettings::calendarFor(std::nullopt);
  }
}

}  // namespace

int Commands::sync(const SyncOptions& options) {
  const std::optional<SyncLock> lock = context_.lockForSync(options.lockFd);
  context_.store();
  // The endpoints are checked before anything is read, so a bad setting costs no time or secret.
  std::optional<LimitsEndpoints> endpoints;
  if (!options.offline) endpoints = LimitsEndpoints::from(context_.settings());
  const IngestResult result = context_.ingest();
  std::vector<FetchOutcome> outcomes;
  if (endpoints) outcomes = context_.fetchLimits(std::move(*endpoints), options.refresh);
  // The widgets' snapshot; a failure is told after the pass's own result, which stands.
  std::optional<std::string> unpublished;
  try {
    context_.publish();
  } catch (const CommandError& error) {
    unpublished = error.what();
  }

  std::FILE* out = context_.out();
  if (options.json) {
    Json limits = Json::object();
    for (const FetchOutcome& outcome : outcomes) {
      Json entry = {{"fetched", outcome.fetched}};
      if (outcome.limits) entry["status"] = caseName(outcome.limits->status);
      limits[std::string(outcome.provider.rawValue())] = entry;
    }
    fmt::print(out, "{}\n", Json{{"ingest", result.toJson()}, {"limits", limits}}.dump(2));
  } else {
    fmt::print(out, "Read {} from {} in {:.2f} s\n",
               plural(result.totalNewEvents(), "new reply", "new replies"),
               plural(static_cast<int64_t>(result.filesRead), "file", "files"),
               result.elapsedSeconds);
    std::string fetched;
    for (const FetchOutcome& outcome : outcomes) {
      if (!outcome.limits) continue;
      fetched += fmt::format("{}{} {}", fetched.empty() ? "" : ", ", outcome.provider.displayName(),
                             WidgetDisplay::statusText(outcome.limits->status));
    }
    if (!fetched.empty()) fmt::print(out, "Limits: {}\n", fetched);
  }
  if (unpublished) {
    fmt::print(stderr, "brimlog: {}\n", *unpublished);
    return 1;
  }
  return 0;
}

int Commands::report(const ReportOptions& options) {
  const HostSettings& settings = context_.settings();
  const Calendar& calendar = settings.calendar;
  ReportContent content;
  content.view = options.view;
  content.now = settings.now;
  content.tool = options.tool;
  content.project = options.project;
  content.window = reportDays(options, settings.now, calendar);
  content.endsToday = content.window.lastKey == calendar.dayKey(settings.now);

  const PriceTable prices = PriceTable::bundled();
  if (options.from) {
    // Every machine's rows from the shared ledger; this machine's logs and store are not read.
    ShareSettings given;
    if (!options.from->empty()) given.to = options.from;
    const std::string target =
        settings.share.overriddenBy(given).target("--from", settings.configFile);
    const SharedFilter filter{options.machine, options.user};
    SharedLedger shared{target, filter};
    content.source = shared.name();
    if (options.view == ReportContent::View::machines) {
      ReportBuilder::fillMachines(content, shared, target, filter, calendar, prices);
    } else {
      ReportBuilder::fill(content, shared, calendar, prices);
    }
  } else {
    std::optional<SyncLock> lock;
    if (!options.noSync) lock = context_.lockForSync();
    std::shared_ptr<UsageStore> opened = context_.store(
        options.noSync ? CommandContext::Access::read : CommandContext::Access::write);
    if (!options.noSync) context_.ingest();
    ReportBuilder::fill(content, *opened, calendar, prices);
  }

  std::FILE* out = context_.out();
  switch (options.form) {
    case ReportOptions::Form::json:
      fmt::print(out, "{}", ReportJson::write(content, calendar));
      break;
    case ReportOptions::Form::csv:
      fmt::print(out, "{}", ReportFormatter::sheet(content, calendar).csv());
      break;
    case ReportOptions::Form::table:
      fmt::print(
          out, "{}",
          ReportFormatter::render(content, calendar, Terminal::tableWidth(out, settings.columns)));
  }
  return 0;
}

int Commands::share(const ShareOptions& options) {
  const HostSettings& settings = context_.settings();
  const ShareSettings share =
      settings.share.overriddenBy({options.to, options.machine, options.user});
  const std::string target = share.target("--to", settings.configFile);
  std::shared_ptr<UsageStore> opened;
  {
    std::optional<SyncLock> lock;
    if (!options.noSync) lock = context_.lockForSync();
    opened = context_.store(options.noSync ? CommandContext::Access::read
                                           : CommandContext::Access::write);
    if (!options.noSync) context_.ingest();
  }
  SharedLedger shared{target};
  ProgressBar bar;
  const std::string machine = share.machine.value();  // the host name unless set
  const ShareResult result =
      shared.share(*opened, machine, share.user.value_or(""), [&](const ShareProgress& progress) {
        bar.update(progress.daysSent, progress.daysToSend, "days");
      });
  bar.finish();
  std::FILE* out = context_.out();
  if (!result.sentAnything()) {
    fmt::print(out, "Nothing new to share to {} as {}\n", shared.name(), machine);
    return 0;
  }
  std::vector<std::string> sent;
  if (result.days > 0) {
    sent.push_back(fmt::format("{} of usage ({}, {})", plural(result.days, "day", "days"),
                               plural(result.usageRows, "row", "rows"),
                               plural(result.sessions, "session", "sessions")));
  }
  if (result.readingDays > 0) {
    sent.push_back(plural(result.readingDays, "day", "days") + " of limit readings");
  }
  fmt::print(out, "Shared {} to {} as {}\n", fmt::join(sent, " and "), shared.name(), machine);
  return 0;
}

int Commands::limits(const LimitsOptions& options) {
  if (options.history) return limitHistory(options);
  std::shared_ptr<UsageStore> opened = context_.store(CommandContext::Access::read);
  const HostSettings& settings = context_.settings();
  std::vector<std::pair<ProviderID, ProviderLimits>> all;
  std::map<ProviderID, std::vector<LimitForecast>> forecasts;
  for (ProviderID provider : ProviderID::readableCases) {
    if (!provider.hasLimits()) continue;
    std::optional<ProviderLimits> stored;
    try {
      stored = opened->limits(provider);
    } catch (const JsonDecodeError& error) {
      fmt::print(stderr, "brimlog: the stored limits of {} are damaged: {}\n",
                 provider.displayName(), error.what());
    }
    if (!stored) continue;
    forecasts[provider] = LimitOutlook::forecasts(*opened, provider, *stored, settings.now);
    all.emplace_back(provider, std::move(*stored));
  }
  std::FILE* out = context_.out();
  if (options.form == LimitsOptions::Form::json) {
    fmt::print(out, "{}\n", LimitsReport::json(all, forecasts).dump(2));
    return 0;
  }
  if (all.empty()) {
    fmt::print(out, "No limits stored yet; `brimlog sync` fetches them.\n");
    return 0;
  }
  const Dashboard dashboard{Terminal::width(out), Terminal::isTerminal(out) && !settings.noColor};
  fmt::print(out, "{}",
             LimitsReport::render(all, forecasts, dashboard, settings.now, settings.calendar));
  return 0;
}

int Commands::limitHistory(const LimitsOptions& options) {
  std::shared_ptr<UsageStore> opened = context_.store(CommandContext::Access::read);
  const HostSettings& settings = context_.settings();
  const Date since = settings.now - Seconds{options.days * 86400.0};
  LimitHistoryReport report{opened->readings({options.tool, options.window, since, settings.now}),
                            options.days, settings.now};
  if (options.window && report.readings.empty() &&
      opened->readings({options.tool, options.window}).empty()) {
    // A window no reading ever named is a mistake in the name, not a quiet stretch.
    throw CommandError(fmt::format(
        "--window {}: no readings of that window are kept{}; brimlog limits --json names the "
        "windows",
        *options.window,
        options.tool ? fmt::format(" for {}", options.tool->displayName()) : std::string()));
  }
  std::FILE* out = context_.out();
  switch (options.form) {
    case LimitsOptions::Form::json:
      fmt::print(out, "{}", report.json());
      break;
    case LimitsOptions::Form::csv:
      fmt::print(out, "{}", report.csv());
      break;
    case LimitsOptions::Form::table:
      fmt::print(out, "{}",
                 report.table(settings.calendar, Terminal::tableWidth(out, settings.columns)));
  }
  return 0;
}

int Commands::check() {
  const HostSettings& settings = context_.settings();
  std::error_code error;
  if (!std::filesystem::exists(settings.database, error)) {
    throw CommandError(fmt::format("no database at {} yet; run `brimlog sync` to make it",
                                   settings.database.string()));
  }
  const std::vector<std::string> problems = context_.store(CommandContext::Access::read)->damage();
  if (!problems.empty()) {
    throw UsageStoreError::damaged(settings.database.string(), problems);
  }
  fmt::print(context_.out(),
             "The database {} is sound: every page, index and constraint checks out.\n",
             settings.database.string());
  return 0;
}

int Commands::status(const StatusOptions& options) {
  HostSettings& settings = context_.settings();
  if (options.watch) {
    const WatchLoop loop{context_.out(), *options.watch, !settings.noColor};
    return loop.run(
        [&] {
          settings.now = currentDate();
          return context_.refresh(options.offline);
        },
        settings.calendar);
  }
  // What was read is shown even when the widgets' copy cannot be written; the failure is told
  // after it, and the status says the run did not do all it should.
  std::string writeError;
  const Snapshot snapshot = context_.refresh(options.offline, &writeError);
  std::FILE* out = context_.out();
  if (options.json) {
    fmt::print(out, "{}\n", snapshot.toJson().dump());
  } else {
    const Dashboard dashboard{Terminal::width(out), Terminal::isTerminal(out) && !settings.noColor};
    fmt::print(out, "{}", dashboard.render(snapshot, settings.now, settings.calendar));
  }
  if (writeError.empty()) return 0;
  std::fflush(out);
  fmt::print(stderr, "brimlog: {}; the widgets show the last snapshot written\n", writeError);
  return 1;
}

int Commands::line(const LineOptions& options) {
  const HostSettings& settings = context_.settings();
  const std::optional<Snapshot> snapshot = SnapshotStore{settings.stateFolder}.read();
  std::optional<ClaudeCodeStatus> input;
  if (options.format == StatusLine::Format::claudeCode && options.input != nullptr &&
      !Terminal::isTerminal(options.input)) {
    input = ClaudeCodeStatus::parse(readInput(options.input), settings.now);
  }
  if (input && !input->limits.empty()) {
    // For the next pass, which stores it and shows it everywhere else; the line stands either way.
    try {
      settings.prepareStateFolder();
      ClaudeCodeReading{settings.now, input->limits}.handOver(settings.stateFolder);
    } catch (const std::exception& error) {
      fmt::print(stderr, "brimlog: cannot keep Claude Code's limits: {}\n", error.what());
    }
  }
  StatusLine line{options.format, options.provider, !settings.noColor};
  if (snapshot && tellsATime(*snapshot)) line.calendar = lineCalendar(options.zone);
  fmt::print(context_.out(), "{}", line.render(snapshot, settings.now, input));
  std::fflush(context_.out());

  const std::optional<Date> generatedAt =
      snapshot ? std::optional<Date>(snapshot->generatedAt) : std::nullopt;
  if (!BackgroundSync::isDue(generatedAt, settings.now)) return 0;
  // A bar shows what we print, never an error box: a sync that cannot start is told on standard
  // error alone, and the line stands.
  try {
    settings.prepareDatabaseDirectory();
    BackgroundSync::forSettings(settings, options.zone).start();
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: no background sync: {}\n", error.what());
  }
  return 0;
}

}  // namespace brimlog
