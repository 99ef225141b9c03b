#include "ingest/grok/GrokSource.hpp"

#include "ingest/grok/GrokLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

ToolPlaces places(const fs::path& home, const ToolVariables&) {
  const fs::path sessions = home / ".grok" / "sessions";
  return {{home / ".grok"}, {{sessions, ProviderID::grok, {".json"}}}, {sessions}};
}

std::unique_ptr<LogReader> reader(const IngestOptions&) {
  return std::make_unique<GrokLogReader>();
}

}  // namespace

constinit const ToolSource grokSource{ProviderID::grok, {}, &places, &reader};

}  // namespace brimlog
