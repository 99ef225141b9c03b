#include "ingest/codex/CodexSource.hpp"

#include "ingest/UsageIngestor.hpp"
#include "ingest/codex/CodexLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kVariables[] = {"CODEX_HOME"};

ToolPlaces places(const fs::path& home, const ToolVariables& variables) {
  const auto set = variables.find(kVariables[0]);
  const fs::path codexHome = set != variables.end() ? fs::path(set->second) : home / ".codex";
  ToolPlaces places;
  places.homes = {codexHome};
  places.logFolders = {{codexHome / "sessions", ProviderID::codex, {".jsonl"}},
                       {codexHome / "archived_sessions", ProviderID::codex, {".jsonl"}}};
  places.marks = {codexHome / "sessions", codexAuthFile(places)};
  return places;
}

std::unique_ptr<LogReader> reader(const IngestOptions& options) {
  return std::make_unique<CodexLogReader>(options.chunkBytes);
}

}  // namespace

constinit const ToolSource codexSource{ProviderID::codex, kVariables, &places, &reader};

fs::path codexAuthFile(const ToolPlaces& codex) { return codex.homes.front() / "auth.json"; }

}  // namespace brimlog
