#include "ingest/gemini/GeminiSource.hpp"

#include "ingest/UsageIngestor.hpp"
#include "ingest/gemini/GeminiLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kVariables[] = {"GEMINI_CLI_HOME"};

ToolPlaces places(const fs::path& home, const ToolVariables& variables) {
  const auto set = variables.find(kVariables[0]);
  const fs::path gemini = (set != variables.end() ? fs::path(set->second) : home) / ".gemini";
  // tmp/<project>/ also holds the tool's own logs.json, checkpoints and tool output, some of them
  // JSON: only what lies in a project's chats folder is a session (subagents one folder below).
  LogFolder sessions{gemini / "tmp", ProviderID::gemini, {".jsonl", ".json"}, 3};
  sessions.within = "chats";
  sessions.withinLevel = 2;
  ToolPlaces places;
  places.homes = {gemini};
  places.logFolders = {std::move(sessions)};
  // ~/.gemini alone may be another program's (the folder of a Gemini API tool, say): the CLI
  // writes its settings, its registry of projects or its temporary folder.
  places.marks = {gemini / "tmp", gemini / "settings.json", gemini / "projects.json"};
  return places;
}

std::unique_ptr<LogReader> reader(const IngestOptions& options) {
  return std::make_unique<GeminiLogReader>(options.chunkBytes);
}

}  // namespace

constinit const ToolSource geminiSource{ProviderID::gemini, kVariables, &places, &reader};

}  // namespace brimlog
