#include "ToolHomeWriters.hpp"

#include <array>

namespace brimlog {

ToolTotals writeGeminiHome(const std::filesystem::path& home, uint64_t bytes, uint64_t seed,
                           int64_t endDay);
// OpenCode's and Kilo's: one database each (OpenCodeHomeWriter.cpp).
ToolTotals writeOpenCodeHome(const std::filesystem::path& home, uint64_t bytes, uint64_t seed,
                             int64_t endDay);
ToolTotals writeKiloHome(const std::filesystem::path& home, uint64_t bytes, uint64_t seed,
                         int64_t endDay);
extern const ToolHomeWriterEntry qwenHomeWriter;

std::span<const ToolHomeWriterEntry> toolHomeWriters() {
  // One line a tool, each writer in a file of its own.
  static const std::array writers = {
      ToolHomeWriterEntry{"gemini", &writeGeminiHome},
      ToolHomeWriterEntry{"opencode", &writeOpenCodeHome},
      ToolHomeWriterEntry{"kilo", &writeKiloHome},
      qwenHomeWriter,
  };
  return writers;
}

}  // namespace brimlog
