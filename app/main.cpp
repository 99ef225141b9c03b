// brimlog: reads the AI coding tools' logs into the usage database and reports on them.

#include <fmt/format.h>

#include <exception>
#include <variant>

#include "cli/CommandParser.hpp"
#include "cli/Commands.hpp"
#include "cli/QuickLine.hpp"
#include "daemon/Daemon.hpp"

namespace {

using namespace brimlog;

int run(const ParsedCommand& command) {
  const HostSettings settings = HostSettings::resolve(command.shared);
  if (command.kind == ParsedCommand::Kind::line) return Commands{settings}.line(command.line);
  Calendar::setCurrent(settings.calendar);
  switch (command.kind) {
    case ParsedCommand::Kind::sync:
      return Commands{settings}.sync(command.sync);
    case ParsedCommand::Kind::daemon:
      return Daemon{settings, command.daemon}.run();
    case ParsedCommand::Kind::limits:
      return Commands{settings}.limits(command.limits);
    case ParsedCommand::Kind::check:
      return Commands{settings}.check();
    case ParsedCommand::Kind::report:
      return Commands{settings}.report(command.report);
    case ParsedCommand::Kind::share:
      return Commands{settings}.share(command.share);
    case ParsedCommand::Kind::status:
    case ParsedCommand::Kind::line:
      break;
  }
  return Commands{settings}.status(command.status);
}

}  // namespace

int main(int argc, char** argv) {
  // The status line's quick path first: a status bar runs it many times a minute.
  std::optional<ParsedCommand> command = QuickLine::parse(argc, argv);
  if (!command) {
    std::variant<ParsedCommand, int> parsed = CommandParser::parse(argc, argv);
    if (const int* status = std::get_if<int>(&parsed)) return *status;
    command = std::move(std::get<ParsedCommand>(parsed));
  }
  try {
    return run(*command);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog: {}\n", error.what());
  }
  return 1;
}
