#include "ingest/ToolSource.hpp"

#include <array>

#include "ingest/claude/ClaudeSource.hpp"
#include "ingest/codex/CodexSource.hpp"
#include "ingest/grok/GrokSource.hpp"

namespace brimlog {

namespace {

// One line a tool, in the tools' usual order.
constexpr std::array kSources = {ClaudeSource::source, CodexSource::source, GrokSource::source};

// Exactly the tools the model calls readable, each once, in their order: every list the user sees
// follows `ProviderID::readableCases`, and nothing is read that is not shown.
static_assert([] {
  if (kSources.size() != ProviderID::readableCases.size()) return false;
  for (size_t i = 0; i < kSources.size(); ++i) {
    if (kSources[i].provider != ProviderID::readableCases[i]) return false;
  }
  return true;
}());

}  // namespace

std::span<const ToolSource> ToolSource::all() { return kSources; }

}  // namespace brimlog
