#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace brimlog {

/// A command line that a program cannot follow, and the one way both of Brimlog's programs tell
/// it: one line on standard error with the program's name, what was wrong and what to do,
///
///     brimlog: --days: "abc" is not a number of days; give 1 to 3650
///     brimlog-widgets: unknown option --colour; see brimlog-widgets serve --help
///
/// and the exit status 2 for a line that does not parse (an unknown option or command, a missing
/// value, options that exclude each other) or 1 for a value that is not allowed.
class CommandLineMistake : public std::runtime_error {
 public:
  enum class Kind { unparsable, wrongValue };

  CommandLineMistake(Kind kind, const std::string& message)
      : std::runtime_error(message), kind_(kind) {}
  Kind kind() const { return kind_; }
  int exitStatus() const { return kind_ == Kind::unparsable ? 2 : 1; }

  /// `OPTION: "VALUE" is not WHAT; REMEDY`.
  static CommandLineMistake wrongValue(std::string_view option, std::string_view value,
                                       std::string_view isNot, std::string_view remedy);

  /// The whole number `text` holds, from `low` to `high`; else a wrong value "is not ISNOT;
  /// give LOW to HIGH".
  static int64_t wholeNumber(std::string_view option, const std::string& text, int64_t low,
                             int64_t high, std::string_view isNot);
  /// The same for a number that may have a fraction.
  static double number(std::string_view option, const std::string& text, double low, double high,
                       std::string_view isNot);
  /// `text` when it is one of `choices`; else a wrong value "is not NOUN; choose a, b or c".
  static const std::string& choice(std::string_view option, const std::string& text,
                                   const std::vector<std::string>& choices, std::string_view noun);
  /// "a, b or c".
  static std::string sentence(const std::vector<std::string>& words);

  /// Parses the command line into `app` (whose own options take their values as text), then
  /// runs `check`, which turns those texts into the program's values and throws a
  /// CommandLineMistake for one that is not allowed. Unknown options and arguments are told
  /// before any value is checked, so that a mistyped option is named as such and not taken for
  /// the value of what follows it. Returns nothing when the line can be followed; otherwise the
  /// exit status, after printing the help or the version (0) or telling the mistake.
  static std::optional<int> parse(CLI::App& app, int argc, char** argv,
                                  const std::function<void()>& check);

 private:
  Kind kind_;
};

}  // namespace brimlog
