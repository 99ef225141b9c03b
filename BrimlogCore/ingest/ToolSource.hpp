#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ingest/LogReader.hpp"
#include "ingest/TreeWalker.hpp"
#include "model/ProviderID.hpp"

namespace brimlog {

struct IngestOptions;

/// The values of the variables the tools honour, as the host read them from its environment:
/// only those set to something other than the empty text, by name.
using ToolVariables = std::map<std::string, std::string, std::less<>>;

/// Where one tool keeps its data on this machine.
struct ToolPlaces {
  /// The tool's own folders, in the order the tool looks in them: where its settings and its
  /// sign-in are.
  std::vector<std::filesystem::path> homes;
  /// The folders its logs are written to, whether or not they exist yet.
  std::vector<LogFolder> logFolders;
  /// The tool is installed when any of these exists, as a file or a folder.
  std::vector<std::filesystem::path> marks;
};

/// How Brimlog finds and reads one tool's logs: the ingest half of a tool, beside the facts every
/// layer knows (`ProviderTraits`). Each tool's folder under ingest/ defines its source (such as
/// `claudeSource`) with its reader and parser, and `all` lists them: a tool Brimlog reads is a
/// folder and a line there.
///
///     for (const ToolSource& tool : ToolSource::all()) {
///       ToolPlaces places = tool.places(home, variables);
///       std::unique_ptr<LogReader> reader = tool.reader(options);
///     }
struct ToolSource {
  ProviderID provider;
  /// The environment variables that move the tool's places (CODEX_HOME, ...). The host reads
  /// them; `places` gets their values.
  std::span<const std::string_view> variables;
  /// The tool's places under `home`, or where its variables put them.
  ToolPlaces (*places)(const std::filesystem::path& home, const ToolVariables& variables);
  /// A reader of its logs, set up from the pass's options.
  std::unique_ptr<LogReader> (*reader)(const IngestOptions& options);

  /// Every tool Brimlog reads on this system, in the tools' usual order: the tools whose
  /// `ProviderID` is readable, and those alone.
  static std::span<const ToolSource> all();
};

}  // namespace brimlog
