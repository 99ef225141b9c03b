#include "cli/CommandParser.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "cli/HelpFormatter.hpp"
#include "cli/OptionNames.hpp"
#include "cli/ReportCommandLine.hpp"
#include "platform/AppVersion.hpp"
#include "platform/CommandLineMistake.hpp"

namespace brimlog {
namespace {

std::optional<std::string> given(const CLI::Option* option, const std::string& value) {
  if (option->count() == 0) return std::nullopt;
  return value;
}

std::string name(std::string_view option) { return std::string(option); }

constexpr const char* kSharedDirHelp =
    "The state folder, which holds the widgets' snapshot and the refresh timing (default: the "
    "folder of a --db other than the default, else $XDG_STATE_HOME/brimlog, else "
    "~/.local/state/brimlog)";

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
    homeOption = app.add_option(name(option::home), home,
                                "Where the tools' data lives (default: your home directory)")
                     ->type_name("DIR");
    databaseOption = app.add_option(name(option::database), database,
                                    "The usage database (default: $XDG_DATA_HOME/brimlog/usage.db, "
                                    "else ~/.local/share/brimlog/usage.db)")
                         ->type_name("FILE");
    zoneOption = app.add_option(name(option::zone), zone,
                                "IANA time zone of the report's days (default: local zone)")
                     ->type_name("ZONE");
    nowOption = app.add_option(name(option::now), now,
                               "An ISO 8601 instant taken as now, for reproducible reports "
                               "(default: the clock)")
                    ->type_name("TIME");
    addSharedDir(app);
  }

  void addSharedDir(CLI::App& command) {
    sharedDirOptions.push_back(
        command.add_option(name(option::sharedDir), sharedDir, kSharedDirHelp)->type_name("DIR"));
  }

  CommandLine given(bool needsCalendar) const {
    std::optional<std::string> sharedDirGiven;
    for (const CLI::Option* each : sharedDirOptions) {
      if (each->count() > 0) sharedDirGiven = sharedDir;
    }
    return {brimlog::given(homeOption, home), brimlog::given(databaseOption, database),
            brimlog::given(zoneOption, zone), brimlog::given(nowOption, now), sharedDirGiven,
            needsCalendar,
            // The status line, the one command without days, shares nothing either.
            needsCalendar};
  }
};

using Mistake = CommandLineMistake;

std::vector<std::string> readableTools() {
  std::vector<std::string> tools;
  for (ProviderID tool : ProviderID::readableCases) tools.emplace_back(tool.rawValue());
  return tools;
}

// The tools whose limits Brimlog asks for, as --tool of the history takes them.
std::vector<std::string> limitedTools() {
  std::vector<std::string> tools;
  for (ProviderID tool : ProviderID::readableCases) {
    if (tool.hasLimits()) tools.emplace_back(tool.rawValue());
  }
  return tools;
}

std::string limitedChoices() { return Mistake::sentence(limitedTools()); }

// A window id as the tools name them: "session", "weekly", or "weekly." and a model.
std::string windowNamed(const std::string& text) {
  if (text == "session" || text == "weekly" || (text.starts_with("weekly.") && text.size() > 7)) {
    return text;
  }
  throw Mistake::wrongValue("--window", text, "a limit window",
                            "give session, weekly or weekly.MODEL, as limits --json names them");
}

// --watch as given, without a value or with SECONDS between passes.
double watchSeconds(const std::string& text) {
  return text.empty() ? 5 : Mistake::number("--watch", text, 1, 86400, "a number of seconds");
}

}  // namespace

std::variant<ParsedCommand, int> CommandParser::parse(int argc, char** argv) {
  CLI::App app{
      "Brimlog meters how you use AI coding tools (Claude Code, Codex, Grok Build, Gemini CLI, "
      "OpenCode, Kilo CLI, Qwen Code): it reads the tools' own logs, counts every model reply "
      "once, and reports tokens and what they would "
      "cost at API list prices. Without a command it reads new replies, writes the widgets' "
      "snapshot and shows the dashboard, as brimlog status does.",
      "brimlog"};
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_version_flag("--version", std::string(appVersion()));
  app.require_subcommand(0, 1);

  // Values are taken as text and checked once the whole line is known (see CommandLineMistake).
  ParsedCommand command;
  SharedOptions shared;
  shared.addTo(app);
  // Bare `brimlog` is `brimlog status`, with the same options.
  StatusOptions bare;
  std::string bareWatch, watch;
  const auto addStatusOptions = [](CLI::App& to, StatusOptions& options, std::string& watchText) {
    std::vector<CLI::Option*> added = {
        to.add_flag("--offline", options.offline, "Fetch nothing from the tools' services"),
        to.add_flag("--json", options.json, "Print the snapshot as JSON instead of the dashboard"),
        to.add_option("--watch", watchText,
                      "Keep the dashboard on screen, passing every SECONDS (default 5), until q "
                      "or Ctrl-C")
            ->expected(0, 1)
            ->type_name("SECONDS")};
    return added;
  };
  const std::vector<CLI::Option*> bareOptions = addStatusOptions(app, bare, bareWatch);

  SyncOptions& sync = command.sync;
  CLI::App* syncCommand =
      app.add_subcommand("sync", "Read the replies logged since the last run into the database");
  syncCommand->add_flag("--offline", sync.offline, "Fetch nothing from the tools' services");
  syncCommand->add_flag("--refresh", sync.refresh,
                        "Fetch every tool's limits now, however recent the last fetch");
  syncCommand->add_flag("--json", sync.json, "Print the pass's result as JSON");
  shared.addSharedDir(*syncCommand);
  // Not for people: how `brimlog line` hands the background sync the lock it took for it.
  std::string lockFd;
  CLI::Option* lockFdOption = syncCommand->add_option("--lock-fd", lockFd)->group("");

  CLI::App* statusCommand = app.add_subcommand(
      "status", "Read new replies, then show each tool's limits and costs at a glance");
  CLI::Option* watchOption = addStatusOptions(*statusCommand, command.status, watch).back();
  shared.addSharedDir(*statusCommand);

  const ReportCommandLine reportLine{app};
  CLI::App* reportCommand = reportLine.command();

  CLI::App* limitsCommand =
      app.add_subcommand("limits", "Show each tool's plan, status and limits as last fetched");
  bool limitsJson = false, limitsCsv = false;
  std::string limitsTool, limitsWindow, limitsDays;
  limitsCommand->add_flag("--json", limitsJson, "Print the stored limits (or the history) as JSON");
  limitsCommand->add_flag("--history", command.limits.history,
                          "Show the readings kept, and per finished window its peak share used "
                          "and whether it ran out");
  CLI::Option* limitsToolOption =
      limitsCommand
          ->add_option("--tool", limitsTool, "Only this tool's history: " + limitedChoices())
          ->type_name("TOOL");
  CLI::Option* limitsWindowOption =
      limitsCommand
          ->add_option("--window", limitsWindow,
                       "Only this window's history: session, weekly or weekly.MODEL")
          ->type_name("WINDOW");
  CLI::Option* limitsDaysOption =
      limitsCommand->add_option("--days", limitsDays, "How many days of history (default: 30)")
          ->type_name("N");
  limitsCommand->add_flag("--csv", limitsCsv,
                          "Print the history's readings as comma-separated values");

  CLI::App* checkCommand = app.add_subcommand(
      "check", "Check the database for damage: every page, index and constraint of it is read");

  DaemonOptions& daemon = command.daemon;
  CLI::App* daemonCommand = app.add_subcommand(
      "daemon",
      "Keep the database and the widgets' snapshot current until stopped: a pass soon after a "
      "log changes, each tool's limits on their schedule, the widgets' refresh button answered");
  std::string interval;
  CLI::Option* intervalOption =
      daemonCommand
          ->add_option("--interval", interval,
                       "Seconds between passes when no change was seen (default 60)")
          ->type_name("SECONDS");
  daemonCommand->add_flag("--offline", daemon.offline, "Fetch nothing from the tools' services");
  bool noNotify = false;
  daemonCommand->add_flag("--no-notify", noNotify,
                          "No desktop notifications when a limit gets tight or resets");
  std::string metrics;
  CLI::Option* metricsOption =
      daemonCommand->add_option("--metrics", metrics, std::string{MetricsEndpoint::help})
          ->type_name("ADDRESS:PORT");
  shared.addSharedDir(*daemonCommand);

  ShareOptions& share = command.share;
  std::string shareTo, shareMachine, shareUser;
  CLI::App* shareCommand = app.add_subcommand(
      "share",
      "Read new replies, then send this machine's ledger to a shared one in PostgreSQL, which "
      "report --from reads across machines");
  CLI::Option* toOption =
      shareCommand
          ->add_option("--to", shareTo,
                       "The shared ledger: a postgresql:// URL (default: [share] to of the "
                       "config file)")
          ->type_name("URL");
  CLI::Option* machineOption =
      shareCommand
          ->add_option("--machine", shareMachine, "Share under this name (default: host name)")
          ->type_name("NAME");
  CLI::Option* userOption =
      shareCommand->add_option("--user", shareUser, "And this user's name (default: none)")
          ->type_name("NAME");
  shareCommand->add_flag("--no-sync", share.noSync, "Share what is stored; read no logs");

  const std::vector<std::string> lineFormats = {"plain", "claude-code", "tmux", "waybar",
                                                "polybar"};
  std::string lineFormat = "plain";
  std::string lineProvider;
  CLI::App* lineCommand = app.add_subcommand(
      "line",
      "Print one line for a status bar from the widgets' snapshot: the tightest limit, its reset "
      "and today's cost; starts a background sync when the snapshot is over a minute old");
  lineCommand->add_option(name(option::format), lineFormat,
                          "plain, claude-code (reads Claude Code's status input), tmux, waybar "
                          "(JSON) or polybar (default: plain)");
  CLI::Option* providerOption =
      lineCommand->add_option(name(option::provider), lineProvider,
                              "Show this tool's tightest limit: " + ProviderID::readableChoices() +
                                  " (default: the tightest of all; Claude's for claude-code)");
  shared.addSharedDir(*lineCommand);

  for (CLI::App* each : {syncCommand, statusCommand, reportCommand, limitsCommand, checkCommand,
                         daemonCommand, shareCommand, lineCommand}) {
    each->fallthrough();
    each->footer(
        "Shared options, before or after the subcommand: --home DIR, --db FILE, --tz ZONE, "
        "--now TIME (see brimlog --help).");
  }

  // Turns the texts into the command, or throws the first mistake in them.
  const auto understand = [&] {
    const std::vector<CLI::App*> named = app.get_subcommands();
    for (const CLI::Option* option : bareOptions) {
      if (named.empty() || option->count() == 0) continue;
      // Given with a command, an option of bare `brimlog` is misplaced or unknown there.
      const std::string& command = named.front()->get_name();
      throw Mistake(Mistake::Kind::unparsable,
                    named.front()->get_option_no_throw(option->get_name()) != nullptr
                        ? fmt::format("{0} before {1} is for brimlog without a command; put it "
                                      "after {1}",
                                      option->get_name(), command)
                        : fmt::format("unknown option {}; see brimlog {} --help",
                                      option->get_name(), command));
    }
    if (lineCommand->parsed()) {
      command.kind = ParsedCommand::Kind::line;
      command.line.format = *StatusLine::formatNamed(
          Mistake::choice(option::format, lineFormat, lineFormats, "a line format"));
      if (providerOption->count() > 0) {
        command.line.provider = ProviderID::readableNamed(Mistake::choice(
            option::provider, lineProvider, readableTools(), "a tool Brimlog reads"));
      }
      command.line.zone = given(shared.zoneOption, shared.zone);
      // The status line works without days, and so without the tz database's load.
      command.shared = shared.given(false);
      return;
    }
    command.shared = shared.given(true);
    if (syncCommand->parsed()) {
      command.kind = ParsedCommand::Kind::sync;
      if (lockFdOption->count() > 0) {
        sync.lockFd =
            static_cast<int>(Mistake::wholeNumber("--lock-fd", lockFd, 0, 1 << 30, "a descriptor"));
      }
    } else if (daemonCommand->parsed()) {
      command.kind = ParsedCommand::Kind::daemon;
      daemon.notify = !noNotify;
      if (metricsOption->count() > 0 && !(daemon.metrics = MetricsEndpoint::parse(metrics))) {
        throw Mistake::wrongValue("--metrics", metrics, "an address to serve metrics at",
                                  MetricsEndpoint::remedy);
      }
      if (intervalOption->count() > 0) {
        daemon.interval = Mistake::number("--interval", interval, 1, 86400, "a number of seconds");
      }
    } else if (limitsCommand->parsed()) {
      command.kind = ParsedCommand::Kind::limits;
      LimitsOptions& limits = command.limits;
      if (limitsJson && limitsCsv) {
        throw Mistake(Mistake::Kind::unparsable,
                      "--json and --csv cannot be used together; choose one form");
      }
      for (const CLI::Option* option : {limitsToolOption, limitsWindowOption, limitsDaysOption}) {
        if (option->count() > 0 && !limits.history) {
          throw Mistake(Mistake::Kind::unparsable,
                        fmt::format("{} is for the history; add --history", option->get_name()));
        }
      }
      if (limitsCsv && !limits.history) {
        throw Mistake(Mistake::Kind::unparsable,
                      "--csv is for the history; add --history, or use --json");
      }
      limits.form = limitsJson  ? LimitsOptions::Form::json
                    : limitsCsv ? LimitsOptions::Form::csv
                                : LimitsOptions::Form::table;
      if (limitsToolOption->count() > 0) {
        limits.tool = ProviderID::readableNamed(
            Mistake::choice("--tool", limitsTool, limitedTools(), "a tool with limits"));
      }
      if (limitsWindowOption->count() > 0) limits.window = windowNamed(limitsWindow);
      if (limitsDaysOption->count() > 0) {
        limits.days = static_cast<int>(
            Mistake::wholeNumber("--days", limitsDays, 1, 3650, "a number of days"));
      }
    } else if (checkCommand->parsed()) {
      command.kind = ParsedCommand::Kind::check;
    } else if (reportCommand->parsed()) {
      command.kind = ParsedCommand::Kind::report;
      command.report = reportLine.understand();
    } else if (shareCommand->parsed()) {
      command.kind = ParsedCommand::Kind::share;
      share.to = given(toOption, shareTo);
      share.machine = given(machineOption, shareMachine);
      share.user = given(userOption, shareUser);
    } else if (statusCommand->parsed()) {
      command.kind = ParsedCommand::Kind::status;
      if (watchOption->count() > 0) command.status.watch = watchSeconds(watch);
    } else {
      command.kind = ParsedCommand::Kind::status;
      command.status = bare;
      if (bareOptions.back()->count() > 0) command.status.watch = watchSeconds(bareWatch);
    }
  };
  if (const std::optional<int> status = Mistake::parse(app, argc, argv, understand)) {
    return *status;
  }
  return command;
}

}  // namespace brimlog
