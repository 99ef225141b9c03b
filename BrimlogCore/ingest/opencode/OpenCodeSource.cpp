#include "ingest/opencode/OpenCodeSource.hpp"

#include "ingest/opencode/OpenCodeLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kOpenCodeVariables[] = {"XDG_DATA_HOME", "OPENCODE_DB"};
constexpr std::string_view kKiloVariables[] = {"XDG_DATA_HOME", "KILO_DB"};

ToolPlaces places(ProviderID tool, std::string_view databaseVariable, const fs::path& home,
                  const ToolVariables& variables) {
  // The XDG rule: a relative XDG_DATA_HOME is invalid and ignored.
  fs::path dataHome = home / ".local" / "share";
  if (const auto set = variables.find("XDG_DATA_HOME");
      set != variables.end() && fs::path(set->second).is_absolute()) {
    dataHome = set->second;
  }
  const fs::path data = dataHome / std::string(tool.rawValue());

  ToolPlaces places;
  places.homes = {data};
  places.marks = {data};
  // The database lies in the data folder itself; only its own files are looked at, never the
  // thousands of folders of the old JSON store and the tool's snapshots beside it. Channels'
  // databases (`opencode-beta.db`) are found by their ending.
  LogFolder databases{data, tool, {".db"}, 0};
  if (const auto set = variables.find(databaseVariable);
      set != variables.end() && set->second != ":memory:") {
    const fs::path file =
        fs::path(set->second).is_absolute() ? fs::path(set->second) : data / set->second;
    // A name of the variable's own choosing is found by its extension (a name without one is
    // not found); the reader leaves out a database holding none of the tool's tables.
    const std::string ending = file.has_extension() ? file.extension().string() : ".db";
    databases = {file.parent_path(), tool, {ending}, 0};
    places.marks.push_back(file);
  }
  places.logFolders = {databases, {data / "storage" / "message", tool, {".json"}, 1}};
  return places;
}

ToolPlaces opencodePlaces(const fs::path& home, const ToolVariables& variables) {
  return places(ProviderID::opencode, "OPENCODE_DB", home, variables);
}

ToolPlaces kiloPlaces(const fs::path& home, const ToolVariables& variables) {
  return places(ProviderID::kilo, "KILO_DB", home, variables);
}

std::unique_ptr<LogReader> reader(const IngestOptions&) {
  return std::make_unique<OpenCodeLogReader>();
}

}  // namespace

constinit const ToolSource opencodeSource{ProviderID::opencode, kOpenCodeVariables, &opencodePlaces,
                                          &reader};
constinit const ToolSource kiloSource{ProviderID::kilo, kKiloVariables, &kiloPlaces, &reader};

}  // namespace brimlog
