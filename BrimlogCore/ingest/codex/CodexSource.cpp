#include "ingest/codex/CodexSource.hpp"

#include "ingest/UsageIngestor.hpp"
#include "ingest/codex/CodexLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;

ToolPlaces CodexSource::places(const fs::path& home, const ToolVariables& variables) {
  const auto set = variables.find(homeVariable);
  const fs::path codexHome = set != variables.end() ? fs::path(set->second) : home / ".codex";
  ToolPlaces places;
  places.homes = {codexHome};
  places.logFolders = {{codexHome / "sessions", ProviderID::codex, ".jsonl"},
                       {codexHome / "archived_sessions", ProviderID::codex, ".jsonl"}};
  places.marks = {codexHome / "sessions", authFile(places)};
  return places;
}

fs::path CodexSource::authFile(const ToolPlaces& codex) {
  return codex.homes.front() / "auth.json";
}

std::unique_ptr<LogReader> CodexSource::reader(const IngestOptions& options) {
  return std::make_unique<CodexLogReader>(options.chunkBytes);
}

}  // namespace brimlog
