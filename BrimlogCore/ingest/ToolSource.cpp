#include "ingest/ToolSource.hpp"

#include <array>

#include "ingest/claude/ClaudeSource.hpp"
#include "ingest/codex/CodexSource.hpp"
#include "ingest/gemini/GeminiSource.hpp"
#include "ingest/grok/GrokSource.hpp"
#include "ingest/opencode/OpenCodeSource.hpp"
#include "ingest/qwen/QwenSource.hpp"

namespace brimlog {

std::span<const ToolSource> ToolSource::all() {
  // One line a tool, in the tools' usual order. Copied on first use, after every source is
  // constant-initialized.
  static const std::array sources = {claudeSource,   codexSource, grokSource, geminiSource,
                                     opencodeSource, kiloSource,  qwenSource};
  return sources;
}

}  // namespace brimlog
