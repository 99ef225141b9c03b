#include "ToolHomeWriters.hpp"

#include <array>

namespace brimlog {

extern const ToolHomeWriterEntry qwenHomeWriter;

std::span<const ToolHomeWriterEntry> toolHomeWriters() {
  // One line a tool, each writer in a file of its own.
  static const std::array writers = {qwenHomeWriter};
  return writers;
}

}  // namespace brimlog
