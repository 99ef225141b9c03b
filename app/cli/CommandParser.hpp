#pragma once

#include <variant>

#include "cli/ParsedCommand.hpp"

namespace brimlog {

/// The whole `brimlog` command line: every command, its options and its help texts.
struct CommandParser {
  /// The command the line asks for, or the exit status when it asked for help or the version
  /// (printed, 0) or does not parse (told on standard error: 2 for a line that does not parse,
  /// 1 for a value that is not allowed).
  static std::variant<ParsedCommand, int> parse(int argc, char** argv);
};

}  // namespace brimlog
