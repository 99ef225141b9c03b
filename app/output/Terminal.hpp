#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>

namespace brimlog {

/// What the output needs to know of the stream it writes to.
struct Terminal {
  /// Whether the stream is a terminal (and not a pipe or a file).
  static bool isTerminal(std::FILE* stream);
  /// The stream's width in columns when it is a terminal; 80 otherwise.
  static int width(std::FILE* stream);
  /// The stream's height in lines when it is a terminal; 24 otherwise.
  static int rows(std::FILE* stream);
  /// The width a table written to the stream is fitted to: a terminal's own width, else
  /// `columns` (the COLUMNS variable), else 80. Nothing when the stream is not a terminal: a pipe
  /// or a file gets whole values.
  static std::optional<size_t> tableWidth(std::FILE* stream, std::optional<int> columns);
};

}  // namespace brimlog
