#include "ToolHomeWriters.hpp"

#include <array>

namespace brimlog {

std::span<const ToolHomeWriterEntry> toolHomeWriters() {
  // One line a tool, each writer in a file of its own.
  static const std::array writers = {
      ToolHomeWriterEntry{"opencode", &writeOpenCodeHome},
      ToolHomeWriterEntry{"kilo", &writeKiloHome},
  };
  return writers;
}

}  // namespace brimlog
