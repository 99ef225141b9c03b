#include "cli/ReportCommandLine.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "platform/CommandLineMistake.hpp"

namespace brimlog {
namespace {

using Mistake = CommandLineMistake;

// A day as --since and --until take it.
CalendarDay dayNamed(std::string_view option, const std::string& text) {
  if (std::optional<CalendarDay> day = CalendarDay::fromKey(text)) return *day;
  throw Mistake::wrongValue(option, text, "a day", "write it as YYYY-MM-DD, such as 2026-11-24");
}

std::vector<std::string> readableTools() {
  std::vector<std::string> tools;
  for (ProviderID tool : ProviderID::readableCases) tools.emplace_back(tool.rawValue());
  return tools;
}

}  // namespace

ReportCommandLine::ReportCommandLine(CLI::App& app)
    : command_(app.add_subcommand(
          "report", "Show the usage and cost of a run of days (reads new replies first)")) {
  CLI::App& report = *command_;
  viewOption_ = report.add_option("view", view_,
                                  "daily, weekly (from Monday), monthly, models, tools, sessions, "
                                  "projects, blocks (five-hour windows of activity) or machines "
                                  "(with --from) (default: daily)");
  daysOption_ =
      report.add_option("--days", days_, "How many days up to --until or today (default: 30)")
          ->type_name("N");
  sinceOption_ = report.add_option("--since", since_, "The first day, in --tz (instead of --days)")
                     ->type_name("DATE");
  untilOption_ = report.add_option("--until", until_, "The last day, in --tz (default: today)")
                     ->type_name("DATE");
  toolOption_ =
      report
          .add_option("--tool", tool_, "Only this tool's usage: " + ProviderID::readableChoices())
          ->type_name("TOOL");
  projectOption_ =
      report
          .add_option("--project", project_,
                      "Only sessions run in this folder, as the sessions view names it")
          ->type_name("DIR");
  report.add_flag("--json", json_, "Print the report as JSON");
  report.add_flag("--csv", csv_, "Print the rows as comma-separated values");
  report.add_flag("--no-sync", report_.noSync, "Report what is stored; read no logs");
  fromOption_ = report
                    .add_option("--from", from_,
                                "Report every machine's usage from the shared ledger at URL "
                                "(default: [share] to of the config file); reads no logs")
                    ->expected(0, 1)
                    ->type_name("URL");
  machineOption_ =
      report.add_option("--machine", machine_, "With --from: only this machine's usage")
          ->type_name("NAME");
  userOption_ = report.add_option("--user", user_, "With --from: only this user's machines")
                    ->type_name("NAME");
}

ReportOptions ReportCommandLine::understand() const {
  ReportOptions report = report_;
  // Options that say the same thing twice are a mistake in the command line (2); values that
  // are not allowed, days in the wrong order among them, are wrong values (1).
  if (sinceOption_->count() > 0 && daysOption_->count() > 0) {
    throw Mistake(Mistake::Kind::unparsable,
                  "--since and --days cannot be used together; give the first day or how many "
                  "days");
  }
  if (json_ && csv_) {
    throw Mistake(Mistake::Kind::unparsable,
                  "--json and --csv cannot be used together; choose one form");
  }
  const std::vector<std::string> views(ReportContent::kViewNames.begin(),
                                       ReportContent::kViewNames.end());
  std::string view = view_;
  if (fromOption_->count() > 0) {
    // `report --from machines`: a bare --from takes the word after it, which is the view.
    if (viewOption_->count() == 0 && std::find(views.begin(), views.end(), from_) != views.end()) {
      view = from_;
      report.from = "";
    } else {
      report.from = from_;
    }
  }
  for (const CLI::Option* option : {machineOption_, userOption_}) {
    if (option->count() > 0 && !report.from) {
      throw Mistake(Mistake::Kind::unparsable,
                    fmt::format("{} is for the shared ledger; add --from", option->get_name()));
    }
  }
  report.view = *ReportContent::viewNamed(Mistake::choice("report", view, views, "a view"));
  if (report.view == ReportContent::View::machines && !report.from) {
    throw Mistake(Mistake::Kind::unparsable,
                  "the machines view is of the shared ledger; add --from");
  }
  if (daysOption_->count() > 0) {
    report.days =
        static_cast<int>(Mistake::wholeNumber("--days", days_, 1, 3650, "a number of days"));
  }
  report.form = json_  ? ReportOptions::Form::json
                : csv_ ? ReportOptions::Form::csv
                       : ReportOptions::Form::table;
  if (sinceOption_->count() > 0) report.since = dayNamed("--since", since_);
  if (untilOption_->count() > 0) report.until = dayNamed("--until", until_);
  if (report.since && report.until && until_ < since_) {
    throw Mistake(Mistake::Kind::wrongValue,
                  fmt::format("--until {} comes before --since {}; give the first day first",
                              until_, since_));
  }
  if (toolOption_->count() > 0) {
    report.tool = ProviderID::readableNamed(
        Mistake::choice("--tool", tool_, readableTools(), "a tool Brimlog reads"));
  }
  if (projectOption_->count() > 0) report.project = project_;
  if (machineOption_->count() > 0) report.machine = machine_;
  if (userOption_->count() > 0) report.user = user_;
  return report;
}

}  // namespace brimlog
