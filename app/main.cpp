// brimlog: reads the AI coding tools' logs into the usage database and reports on them.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "Commands.hpp"
#include "Daemon.hpp"
#include "platform/AppVersion.hpp"

namespace {

using namespace brimlog;

std::optional<std::string> given(const CLI::Option* option, const std::string& value) {
  if (option->count() == 0) return std::nullopt;
  return value;
}

constexpr const char* kSharedDirHelp =
    "Where the snapshot for the widgets is written (default: "
    "$XDG_DATA_HOME/brimlog/containers/K7QX2M9T4B.app.brimlog, else under ~/.local/share)";

// The options every command takes, before or after its name.
struct SharedOptions {
  std::string home, database, zone, now, sharedDir;
  CLI::Option* homeOption = nullptr;
  CLI::Option* databaseOption = nullptr;
  CLI::Option* zoneOption = nullptr;
  CLI::Option* nowOption = nullptr;
  // --shared-dir, on the program and on each command that writes or reads the snapshot.
  std::vector<CLI::Option*> sharedDirOptions;

  void addTo(CLI::App& app) {
    homeOption =
        app.add_option("--home", home, "Where the tools' data lives (default: your home directory)")
            ->type_name("DIR");
    databaseOption = app.add_option("--db", database,
                                    "The usage database (default: $XDG_DATA_HOME/brimlog/usage.db, "
                                    "else ~/.local/share/brimlog/usage.db)")
                         ->type_name("FILE");
    zoneOption =
        app.add_option("--tz", zone, "IANA time zone of the report's days (default: local zone)")
            ->type_name("ZONE");
    nowOption = app.add_option("--now", now,
                               "An ISO 8601 instant taken as now, for reproducible reports "
                               "(default: the clock)")
                    ->type_name("TIME");
    addSharedDir(app);
  }

  void addSharedDir(CLI::App& command) {
    sharedDirOptions.push_back(
        command.add_option("--shared-dir", sharedDir, kSharedDirHelp)->type_name("DIR"));
  }

  CommandLine given(bool needsCalendar) const {
    std::optional<std::string> sharedDirGiven;
    for (const CLI::Option* option : sharedDirOptions) {
      if (option->count() > 0) sharedDirGiven = sharedDir;
    }
    return {::given(homeOption, home),
            ::given(databaseOption, database),
            ::given(zoneOption, zone),
            ::given(nowOption, now),
            sharedDirGiven,
            needsCalendar};
  }
};

struct LineArguments {
  std::string format = "plain";
  std::string provider;
  CLI::Option* providerOption = nullptr;
};

CLI::App* addLineCommand(CLI::App& app, SharedOptions& shared, LineArguments& line) {
  CLI::App* command = app.add_subcommand(
      "line",
      "Print one line for a status bar from the widgets' snapshot: the tightest limit, its reset "
      "and today's cost; starts a background sync when the snapshot is over a minute old");
  command
      ->add_option("--format", line.format,
                   "plain, claude-code (reads Claude Code's status input), tmux, waybar (JSON) "
                   "or polybar (default: plain)")
      ->check(CLI::IsMember({"plain", "claude-code", "tmux", "waybar", "polybar"}));
  std::vector<std::string> tools;
  for (ProviderID tool : ProviderID::readableCases) tools.emplace_back(tool.rawValue());
  line.providerOption =
      command
          ->add_option("--provider", line.provider,
                       "Show this tool's tightest limit: " + ProviderID::readableChoices() +
                           " (default: the tightest of all; Claude's for "
                           "claude-code)")
          ->check(CLI::IsMember(tools));
  shared.addSharedDir(*command);
  return command;
}

// The exit status of a command line that asks for help or the version, or does not parse.
int parseFailure(CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::CallForHelp*>(&error) != nullptr ||
      dynamic_cast<const CLI::CallForAllHelp*>(&error) != nullptr ||
      dynamic_cast<const CLI::CallForVersion*>(&error) != nullptr) {
    return app.exit(error);
  }
  // A value that parses but is not allowed is the user's setting to fix (1); a command line
  // that does not parse at all is a usage mistake (2).
  const bool wrongValue = dynamic_cast<const CLI::ValidationError*>(&error) != nullptr ||
                          dynamic_cast<const CLI::ConversionError*>(&error) != nullptr;
  fmt::print(stderr, "brimlog: {} (see brimlog --help)\n", error.what());
  return wrongValue ? 1 : 2;
}

// The status line works without days, and so without the tz database's load.
int runLine(const CommandLine& given, const LineOptions& line) {
  try {
    return Commands{HostSettings::resolve(given)}.line(line);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return 1;
}

// `brimlog line` as a status bar runs it, many times a minute: its few options are read here
// directly, since building the whole parser would cost more than everything else the line does.
// Whatever is not a plain, valid `line` command line (help, an unknown or repeated option, a
// value outside its set, a missing one) gives nothing, and the parser decides.
std::optional<std::pair<CommandLine, LineOptions>> quickLine(int argc, char** argv) {
  static constexpr std::string_view kNames[] = {"--home",       "--db",     "--tz",      "--now",
                                                "--shared-dir", "--format", "--provider"};
  std::optional<std::string> values[std::size(kNames)];
  bool named = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "line" && !named) {
      named = true;
      continue;
    }
    const size_t equals = argument.find('=');
    const auto* found = std::find(std::begin(kNames), std::end(kNames), argument.substr(0, equals));
    const auto index = static_cast<size_t>(found - std::begin(kNames));
    // --format and --provider belong to the command, so they come after its name.
    if (found == std::end(kNames) || values[index] || (index >= 5 && !named)) return std::nullopt;
    const std::string_view value = equals != std::string_view::npos ? argument.substr(equals + 1)
                                   : i + 1 < argc                   ? std::string_view(argv[++i])
                                                                    : std::string_view();
    if (value.empty() || value.front() == '-') return std::nullopt;
    values[index] = std::string(value);
  }
  LineOptions line;
  if (values[5]) {
    const std::optional<StatusLine::Format> format = StatusLine::formatNamed(*values[5]);
    if (!format) return std::nullopt;
    line.format = *format;
  }
  if (values[6] && !(line.provider = ProviderID::readableNamed(*values[6]))) return std::nullopt;
  line.zone = values[2];
  if (!named) return std::nullopt;
  return std::pair{CommandLine{values[0], values[1], values[2], values[3], values[4], false}, line};
}

}  // namespace

int main(int argc, char** argv) {
  if (auto quick = quickLine(argc, argv)) return runLine(quick->first, quick->second);

  CLI::App app{
      "Brimlog meters how you use AI coding tools (Claude Code, Codex, Grok Build): it reads the "
      "tools' own logs, counts every model reply once, and reports tokens and what they would "
      "cost at API list prices. Without a command it reads new replies, writes the widgets' "
      "snapshot and shows the dashboard, as brimlog status does.",
      "brimlog"};
  app.set_version_flag("--version", std::string(appVersion()));
  app.require_subcommand(0, 1);

  SharedOptions shared;
  shared.addTo(app);
  StatusOptions bare;
  app.add_flag("--offline", bare.offline, "Fetch nothing from the tools' services");
  app.add_flag("--json", bare.json, "Print the snapshot as JSON instead of the dashboard");

  SyncOptions sync;
  CLI::App* syncCommand =
      app.add_subcommand("sync", "Read the replies logged since the last run into the database");
  syncCommand->add_flag("--offline", sync.offline, "Fetch nothing from the tools' services");
  syncCommand->add_flag("--refresh", sync.refresh,
                        "Fetch every tool's limits now, however recent the last fetch");
  syncCommand->add_flag("--json", sync.json, "Print the pass's result as JSON");
  shared.addSharedDir(*syncCommand);
  // Not for people: how `brimlog line` hands the background sync the lock it took for it.
  syncCommand->add_option("--lock-fd", sync.lockFd)->group("");

  StatusOptions status;
  double watchSeconds = 5;
  CLI::App* statusCommand = app.add_subcommand(
      "status", "Read new replies, then show each tool's limits and costs at a glance");
  statusCommand->add_flag("--offline", status.offline, "Fetch nothing from the tools' services");
  statusCommand->add_flag("--json", status.json,
                          "Print the snapshot as JSON instead of the dashboard");
  CLI::Option* watchOption =
      statusCommand
          ->add_option("--watch", watchSeconds,
                       "Keep the dashboard on screen, passing every SECONDS (default 5) until "
                       "Ctrl-C")
          ->expected(0, 1)
          ->type_name("SECONDS")
          ->check(CLI::Range(1.0, 86400.0));
  shared.addSharedDir(*statusCommand);

  ReportOptions report;
  std::string view = "daily";
  CLI::App* reportCommand = app.add_subcommand(
      "report", "Show the usage and cost of the last days (reads new replies first)");
  reportCommand->add_option("view", view, "daily, models or tools (default: daily)")
      ->check(CLI::IsMember({"daily", "models", "tools"}));
  reportCommand->add_option("--days", report.days, "How many days up to today (default: 30)")
      ->check(CLI::Range(1, 3650));
  reportCommand->add_flag("--json", report.json, "Print the summary as JSON");
  reportCommand->add_flag("--no-sync", report.noSync, "Report what is stored; read no logs");

  LimitsOptions limits;
  CLI::App* limitsCommand =
      app.add_subcommand("limits", "Show each tool's plan, status and limits as last fetched");
  limitsCommand->add_flag("--json", limits.json, "Print the stored limits as JSON");

  DaemonOptions daemon;
  CLI::App* daemonCommand = app.add_subcommand(
      "daemon",
      "Keep the database and the widgets' snapshot current until stopped: a pass soon after a "
      "log changes, each tool's limits on their schedule, the widgets' refresh button answered");
  daemonCommand
      ->add_option("--interval", daemon.interval,
                   "Seconds between passes when no change was seen (default 60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(1.0, 86400.0));
  daemonCommand->add_flag("--offline", daemon.offline, "Fetch nothing from the tools' services");
  bool noNotify = false;
  daemonCommand->add_flag("--no-notify", noNotify,
                          "No desktop notifications when a limit gets tight or resets");
  shared.addSharedDir(*daemonCommand);

  LineArguments lineArguments;
  CLI::App* lineCommand = addLineCommand(app, shared, lineArguments);

  for (CLI::App* command :
       {syncCommand, statusCommand, reportCommand, limitsCommand, daemonCommand, lineCommand}) {
    command->fallthrough();
    command->footer(
        "Shared options, before or after the subcommand: --home DIR, --db FILE, --tz ZONE, "
        "--now TIME (see brimlog --help).");
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return parseFailure(app, error);
  }
  if (lineCommand->parsed()) {
    LineOptions line;
    line.format = *StatusLine::formatNamed(lineArguments.format);
    if (lineArguments.providerOption->count() > 0) {
      line.provider = ProviderID::readableNamed(lineArguments.provider);
    }
    line.zone = given(shared.zoneOption, shared.zone);
    return runLine(shared.given(false), line);
  }

  try {
    const HostSettings settings = HostSettings::resolve(shared.given(true));
    Calendar::setCurrent(settings.calendar);
    Commands commands{settings};
    if (syncCommand->parsed()) return commands.sync(sync);
    if (daemonCommand->parsed()) {
      daemon.notify = !noNotify;
      return Daemon{settings, daemon}.run();
    }
    if (limitsCommand->parsed()) return commands.limits(limits);
    if (reportCommand->parsed()) {
      report.view = *ReportFormatter::viewNamed(view);
      return commands.report(report);
    }
    if (statusCommand->parsed()) {
      if (watchOption->count() > 0) status.watch = watchSeconds;
      return commands.status(status);
    }
    return commands.status(bare);
  } catch (const CommandError& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return 1;
}
