#pragma once

#include <optional>

#include "cli/ParsedCommand.hpp"

namespace brimlog {

/// `brimlog line` as a status bar runs it, many times a minute: its few options are read here
/// directly, since building the whole parser would cost more than everything else the line
/// does. Whatever is not a plain, valid `line` command line (help, an unknown or repeated
/// option, a value outside its set, a missing one) gives nothing, and the full parser decides.
struct QuickLine {
  static std::optional<ParsedCommand> parse(int argc, char** argv);
};

}  // namespace brimlog
