// brimlog: reads the AI coding tools' logs into the usage database and reports on them.

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <optional>
#include <string>

#include "Commands.hpp"
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
      "cost at API list prices. Without a command it syncs and shows your limits and the last "
      "30 days per tool.",
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

  SyncOptions sync;
  CLI::App* syncCommand =
      app.add_subcommand("sync", "Read the replies logged since the last run into the database");
  syncCommand->add_flag("--offline", sync.offline, "Fetch nothing from the tools' services");
  syncCommand->add_flag("--refresh", sync.refresh,
                        "Fetch every tool's limits now, however recent the last fetch");
  syncCommand->add_flag("--json", sync.json, "Print the pass's result as JSON");

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

  for (CLI::App* command : {syncCommand, reportCommand, limitsCommand}) {
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
    const HostSettings settings =
        HostSettings::resolve({given(homeOption, home), given(databaseOption, database),
                               given(zoneOption, zone), given(nowOption, now)});
    Calendar::setCurrent(settings.calendar);
    Commands commands{settings};
    if (syncCommand->parsed()) return commands.sync(sync);
    if (limitsCommand->parsed()) return commands.limits(limits);
    if (reportCommand->parsed()) {
      report.view = *ReportFormatter::viewNamed(view);
      return commands.report(report);
    }
    return commands.overview(SyncOptions{});
  } catch (const CommandError& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return 1;
}
