// brimlog: reads the AI coding tools' logs into the usage database and reports on them.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "Commands.hpp"
#include "Daemon.hpp"
#include "platform/AppVersion.hpp"

namespace {

std::optional<std::string> given(const CLI::Option* option, const std::string& value) {
  if (option->count() == 0) return std::nullopt;
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace brimlog;

  CLI::App app{
      "Brimlog meters how you use AI coding tools (Claude Code, Codex, Grok Build): it reads the "
      "tools' own logs, counts every model reply once, and reports tokens and what they would "
      "cost at API list prices. Without a command it reads new replies, writes the widgets' "
      "snapshot and shows the dashboard, as brimlog status does.",
      "brimlog"};
  app.set_version_flag("--version", std::string(appVersion()));
  app.require_subcommand(0, 1);

  std::string home, database, zone, now;
  CLI::Option* homeOption =
      app.add_option("--home", home, "Where the tools' data lives (default: your home directory)")
          ->type_name("DIR");
  CLI::Option* databaseOption =
      app.add_option("--db", database,
                     "The usage database (default: $XDG_DATA_HOME/brimlog/usage.db, else "
                     "~/.local/share/brimlog/usage.db)")
          ->type_name("FILE");
  CLI::Option* zoneOption =
      app.add_option("--tz", zone, "IANA time zone of the report's days (default: local zone)")
          ->type_name("ZONE");
  CLI::Option* nowOption =
      app.add_option("--now", now,
                     "An ISO 8601 instant taken as now, for reproducible reports (default: the "
                     "clock)")
          ->type_name("TIME");

  std::string sharedDir;
  const char* sharedDirHelp =
      "Where the snapshot for the widgets is written (default: "
      "$XDG_DATA_HOME/brimlog/containers/K7QX2M9T4B.app.brimlog, else under ~/.local/share)";
  std::vector<CLI::Option*> sharedDirOptions = {
      app.add_option("--shared-dir", sharedDir, sharedDirHelp)->type_name("DIR")};
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
  sharedDirOptions.push_back(
      syncCommand->add_option("--shared-dir", sharedDir, sharedDirHelp)->type_name("DIR"));
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
  sharedDirOptions.push_back(
      statusCommand->add_option("--shared-dir", sharedDir, sharedDirHelp)->type_name("DIR"));

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
  sharedDirOptions.push_back(
      daemonCommand->add_option("--shared-dir", sharedDir, sharedDirHelp)->type_name("DIR"));

  LineOptions line;
  std::string format = "plain", provider;
  CLI::App* lineCommand = app.add_subcommand(
      "line",
      "Print one line for a status bar from the widgets' snapshot: the tightest limit, its reset "
      "and today's cost; starts a background sync when the snapshot is over a minute old");
  lineCommand
      ->add_option("--format", format,
                   "plain, claude-code (reads Claude Code's status input), tmux, waybar (JSON) "
                   "or polybar (default: plain)")
      ->check(CLI::IsMember({"plain", "claude-code", "tmux", "waybar", "polybar"}));
  CLI::Option* providerOption =
      lineCommand
          ->add_option("--provider", provider,
                       "Show this tool's tightest limit: claude, codex, grok or cursor (default: "
                       "the tightest of all; Claude's for claude-code)")
          ->check(CLI::IsMember({"claude", "codex", "grok", "cursor"}));
  sharedDirOptions.push_back(
      lineCommand->add_option("--shared-dir", sharedDir, sharedDirHelp)->type_name("DIR"));

  for (CLI::App* command :
       {syncCommand, statusCommand, reportCommand, limitsCommand, daemonCommand, lineCommand}) {
    command->fallthrough();
    command->footer(
        "Shared options, before or after the subcommand: --home DIR, --db FILE, --tz ZONE, "
        "--now TIME (see brimlog --help).");
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForAllHelp& request) {
    return app.exit(request);
  } catch (const CLI::CallForVersion& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& error) {
    // A value that parses but is not allowed is the user's setting to fix (1); a command line
    // that does not parse at all is a usage mistake (2).
    const bool wrongValue = dynamic_cast<const CLI::ValidationError*>(&error) != nullptr ||
                            dynamic_cast<const CLI::ConversionError*>(&error) != nullptr;
    fmt::print(stderr, "brimlog: {} (see brimlog --help)\n", error.what());
    return wrongValue ? 1 : 2;
  }

  try {
    std::optional<std::string> sharedDirGiven;
    for (const CLI::Option* option : sharedDirOptions) {
      if (option->count() > 0) sharedDirGiven = sharedDir;
    }
    // The status line works without days, and so without the tz database's load.
    const bool lineOnly = lineCommand->parsed();
    const HostSettings settings = HostSettings::resolve(
        {given(homeOption, home), given(databaseOption, database), given(zoneOption, zone),
         given(nowOption, now), sharedDirGiven, !lineOnly});
    if (lineOnly) {
      line.format = *StatusLine::formatNamed(format);
      if (providerOption->count() > 0) line.provider = ProviderID::fromRawValue(provider);
      line.zone = given(zoneOption, zone);
      return Commands{settings}.line(line);
    }
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
