#pragma once

#include <cstdio>

namespace brimlog {

/// What the output needs to know of the stream it writes to.
struct Terminal {
  /// Whether the stream is a terminal (and not a pipe or a file).
  static bool isTerminal(std::FILE* stream);
  /// The stream's width in columns when it is a terminal; 80 otherwise.
  static int width(std::FILE* stream);
};

}  // namespace brimlog
