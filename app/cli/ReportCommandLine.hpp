#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "cli/CommandOptions.hpp"

namespace brimlog {

/// `brimlog report`'s own options: added to the program's command line, then, once the whole
/// line is known, checked and turned into `ReportOptions`.
class ReportCommandLine {
 public:
  /// Adds the `report` subcommand and its options to `app`.
  explicit ReportCommandLine(CLI::App& app);

  CLI::App* command() const { return command_; }

  /// The options as given; throws CommandLineMistake for the first mistake in them.
  ReportOptions understand() const;

 private:
  CLI::App* command_;
  ReportOptions report_;
  std::string view_ = "daily";
  std::string days_, since_, until_, tool_, project_, from_, machine_, user_;
  bool json_ = false, csv_ = false;
  CLI::Option* viewOption_;
  CLI::Option* daysOption_;
  CLI::Option* sinceOption_;
  CLI::Option* untilOption_;
  CLI::Option* toolOption_;
  CLI::Option* projectOption_;
  CLI::Option* fromOption_;
  CLI::Option* machineOption_;
  CLI::Option* userOption_;
};

}  // namespace brimlog
