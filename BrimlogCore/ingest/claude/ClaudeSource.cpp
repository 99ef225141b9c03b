#include "ingest/claude/ClaudeSource.hpp"

#include "ingest/UsageIngestor.hpp"
#include "ingest/claude/ClaudeLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kVariables[] = {"CLAUDE_CONFIG_DIR"};

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

ToolPlaces places(const fs::path& home, const ToolVariables& variables) {
  ToolPlaces places;
  if (const auto set = variables.find(kVariables[0]); set != variables.end()) {
    std::string_view rest = set->second;
    while (!rest.empty()) {
      const auto comma = rest.find(',');
      if (const std::string_view entry = trimmed(rest.substr(0, comma)); !entry.empty()) {
        places.homes.emplace_back(entry);
      }
      rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
    }
  }
  if (places.homes.empty()) places.homes = {home / ".claude", home / ".config" / "claude"};
  for (const fs::path& dir : places.homes) {
    places.logFolders.push_back({dir / "projects", ProviderID::claude, {".jsonl"}});
    places.marks.push_back(dir / "projects");
  }
  return places;
}

std::unique_ptr<LogReader> reader(const IngestOptions& options) {
  return std::make_unique<ClaudeLogReader>(options.chunkBytes);
}

}  // namespace

constinit const ToolSource claudeSource{ProviderID::claude, kVariables, &places, &reader};

}  // namespace brimlog
