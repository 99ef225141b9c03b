#include "platform/CommandLineMistake.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>

namespace brimlog {
namespace {

// The program and the command it was asked for, as its help is asked for: "brimlog report".
std::string commandPath(const CLI::App& app) {
  std::string path = app.get_name();
  for (const CLI::App* command = &app;;) {
    const std::vector<CLI::App*> parsed = command->get_subcommands();
    if (parsed.empty()) return path;
    command = parsed.front();
    path += " " + command->get_name();
  }
}

std::string seeHelp(const CLI::App& app) { return "see " + commandPath(app) + " --help"; }

// Every command the program has, parsed or not.
std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

void allowExtras(CLI::App& app) {
  app.allow_extras();
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
    allowExtras(*command);
  }
}

// The first word the parser did not take: an unknown option (named without a value given with
// `=`), or an argument where there is none, which is a command where none was given yet.
void tellUnknown(const CLI::App& app) {
  const std::vector<std::string> left = app.remaining(true);
  if (left.empty()) return;
  const std::string& word = left.front();
  if (word.size() > 1 && word[0] == '-') {
    throw CommandLineMistake(
        CommandLineMistake::Kind::unparsable,
        fmt::format("unknown option {}; {}", word.substr(0, word.find('=')), seeHelp(app)));
  }
  if (app.get_subcommands().empty() && !commandsOf(app).empty()) {
    std::vector<std::string> commands;
    for (const CLI::App* command : commandsOf(app)) {
      if (!command->get_group().empty()) commands.push_back(command->get_name());
    }
    throw CommandLineMistake(
        CommandLineMistake::Kind::unparsable,
        fmt::format("unknown command {}; choose {}", word, CommandLineMistake::sentence(commands)));
  }
  throw CommandLineMistake(CommandLineMistake::Kind::unparsable,
                           fmt::format("unexpected argument {}; {}", word, seeHelp(app)));
}

// What the parser itself could not follow, in the same words.
CommandLineMistake fromParseError(const CLI::App& app, const CLI::ParseError& error) {
  const std::string what = error.what();
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr &&
      what.find(" missing") != std::string::npos) {
    // "--days: 1 required TEXT missing": the option comes first.
    return {CommandLineMistake::Kind::unparsable,
            fmt::format("{} needs a value; {}", what.substr(0, what.find(':')), seeHelp(app))};
  }
  return {CommandLineMistake::Kind::unparsable, fmt::format("{}; {}", what, seeHelp(app))};
}

}  // namespace

CommandLineMistake CommandLineMistake::wrongValue(std::string_view option, std::string_view value,
                                                  std::string_view isNot, std::string_view remedy) {
  return {Kind::wrongValue, fmt::format("{}: \"{}\" is not {}; {}", option, value, isNot, remedy)};
}

int64_t CommandLineMistake::wholeNumber(std::string_view option, const std::string& text,
                                        int64_t low, int64_t high, std::string_view isNot) {
  int64_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || value < low || value > high) {
    throw wrongValue(option, text, isNot, fmt::format("give {} to {}", low, high));
  }
  return value;
}

double CommandLineMistake::number(std::string_view option, const std::string& text, double low,
                                  double high, std::string_view isNot) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || !std::isfinite(value) || value < low || value > high) {
    throw wrongValue(option, text, isNot, fmt::format("give {} to {}", low, high));
  }
  return value;
}

const std::string& CommandLineMistake::choice(std::string_view option, const std::string& text,
                                              const std::vector<std::string>& choices,
                                              std::string_view noun) {
  for (const std::string& each : choices) {
    if (each == text) return each;
  }
  throw wrongValue(option, text, noun, "choose " + sentence(choices));
}

std::string CommandLineMistake::sentence(const std::vector<std::string>& words) {
  std::string out;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i > 0) out += i + 1 == words.size() ? " or " : ", ";
    out += words[i];
  }
  return out;
}

std::optional<int> CommandLineMistake::parse(CLI::App& app, int argc, char** argv,
                                             const std::function<void()>& check) {
  allowExtras(app);
  std::optional<CommandLineMistake> mistake;
  try {
    app.parse(argc, argv);
    tellUnknown(app);
    if (check) check();
    return std::nullopt;
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    mistake = fromParseError(app, error);
  } catch (const CommandLineMistake& told) {
    mistake = told;
  }
  fmt::print(stderr, "{}: {}\n", app.get_name(), mistake->what());
  return mistake->exitStatus();
}

}  // namespace brimlog
