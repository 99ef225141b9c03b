#include "ingest/grok/GrokSource.hpp"

#include "ingest/grok/GrokLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;

ToolPlaces GrokSource::places(const fs::path& home, const ToolVariables&) {
  const fs::path grokHome = home / ".grok";
  return {
      {grokHome}, {{grokHome / "sessions", ProviderID::grok, ".json"}}, {grokHome / "sessions"}};
}

std::unique_ptr<LogReader> GrokSource::reader(const IngestOptions&) {
  return std::make_unique<GrokLogReader>();
}

}  // namespace brimlog
