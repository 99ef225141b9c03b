#include "cli/QuickLine.hpp"

#include <string>
#include <string_view>

#include "cli/OptionNames.hpp"

namespace brimlog {
namespace {

struct Given {
  std::optional<std::string> home, database, zone, now, sharedDir, format, provider;
};

struct Known {
  std::string_view name;
  std::optional<std::string> Given::*field;
  // --format and --provider belong to the command, so they come after its name.
  bool afterCommand;
};

constexpr Known kKnown[] = {
    {option::home, &Given::home, false},           {option::database, &Given::database, false},
    {option::zone, &Given::zone, false},           {option::now, &Given::now, false},
    {option::sharedDir, &Given::sharedDir, false}, {option::format, &Given::format, true},
    {option::provider, &Given::provider, true},
};

}  // namespace

std::optional<ParsedCommand> QuickLine::parse(int argc, char** argv) {
  Given given;
  bool named = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "line" && !named) {
      named = true;
      continue;
    }
    const size_t equals = argument.find('=');
    const Known* known = nullptr;
    for (const Known& each : kKnown) {
      if (each.name == argument.substr(0, equals)) known = &each;
    }
    if (known == nullptr || given.*known->field || (known->afterCommand && !named)) {
      return std::nullopt;
    }
    const std::string_view value = equals != std::string_view::npos ? argument.substr(equals + 1)
                                   : i + 1 < argc                   ? std::string_view(argv[++i])
                                                                    : std::string_view();
    if (value.empty() || value.front() == '-') return std::nullopt;
    given.*known->field = std::string(value);
  }
  if (!named) return std::nullopt;

  ParsedCommand command;
  command.kind = ParsedCommand::Kind::line;
  if (given.format) {
    const std::optional<StatusLine::Format> format = StatusLine::formatNamed(*given.format);
    if (!format) return std::nullopt;
    command.line.format = *format;
  }
  if (given.provider && !(command.line.provider = ProviderID::readableNamed(*given.provider))) {
    return std::nullopt;
  }
  command.line.zone = given.zone;
  command.shared =
      CommandLine{given.home, given.database, given.zone, given.now, given.sharedDir, false, false};
  return command;
}

}  // namespace brimlog
