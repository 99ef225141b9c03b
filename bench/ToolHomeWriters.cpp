#include "ToolHomeWriters.hpp"

#include <array>

namespace brimlog {

ToolTotals writeGeminiHome(const std::filesystem::path& home, uint64_t bytes, uint64_t seed,
                           int64_t endDay);
extern const ToolHomeWriterEntry qwenHomeWriter;

std::span<const ToolHomeWriterEntry> toolHomeWriters() {
  // One line a tool, each writer in a file of its own.
  static const std::array writers = {
      ToolHomeWriterEntry{"gemini", &writeGeminiHome},
      qwenHomeWriter,
  };
  return writers;
}

}  // namespace brimlog
