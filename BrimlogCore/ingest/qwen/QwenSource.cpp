#include "ingest/qwen/QwenSource.hpp"

#include <fstream>
#include <string>

#include "ingest/LogJson.hpp"
#include "ingest/UsageIngestor.hpp"
#include "ingest/qwen/QwenLogReader.hpp"

namespace brimlog {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view kVariables[] = {"QWEN_RUNTIME_DIR"};

// A settings file is a few kilobytes; anything far larger is not one, and is not read whole.
constexpr std::streamsize kMaxSettingsBytes = 1 << 20;

// Chat logs lie at most three folders down: projects/<folder>/chats/archive/<session>.jsonl and
// tmp/<hash>/chats/archive/<session>.jsonl. The bound keeps the walk out of deeper trees the tool
// keeps under tmp/.
constexpr int kChatDepth = 3;

// `text` with its // and /* */ comments blanked out, strings left alone.
std::string withoutComments(std::string text) {
  bool inString = false;
  for (size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (inString) {
      if (c == '\\') {
        ++at;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '/' && at + 1 < text.size() && text[at + 1] == '/') {
      for (; at < text.size() && text[at] != '\n'; ++at) text[at] = ' ';
    } else if (c == '/' && at + 1 < text.size() && text[at + 1] == '*') {
      const size_t close = text.find("*/", at + 2);
      const size_t end = close == std::string::npos ? text.size() : close + 2;
      for (; at < end; ++at) {
        if (text[at] != '\n') text[at] = ' ';
      }
      --at;
    }
  }
  return text;
}

ToolPlaces places(const fs::path& home, const ToolVariables& variables) {
  const fs::path qwenHome = home / ".qwen";
  std::optional<fs::path> base;
  if (const auto set = variables.find(kVariables[0]); set != variables.end()) {
    base = qwenRuntimeBase(set->second, home);
  }
  if (!base) {
    if (const auto setting = qwenRuntimeOutputSetting(qwenHome / "settings.json")) {
      base = qwenRuntimeBase(*setting, home);
    }
  }
  ToolPlaces places;
  places.homes = {qwenHome};
  std::vector<fs::path> bases = {base.value_or(qwenHome)};
  if (bases.front() != qwenHome) bases.push_back(qwenHome);
  for (const fs::path& each : bases) {
    places.logFolders.push_back({each / "projects", ProviderID::qwen, {".jsonl"}, kChatDepth});
    places.logFolders.push_back({each / "tmp", ProviderID::qwen, {".jsonl"}, kChatDepth});
    places.marks.push_back(each);
  }
  return places;
}

std::unique_ptr<LogReader> reader(const IngestOptions& options) {
  return std::make_unique<QwenLogReader>(options.chunkBytes);
}

}  // namespace

constinit const ToolSource qwenSource{ProviderID::qwen, kVariables, &places, &reader};

std::optional<fs::path> qwenRuntimeBase(std::string_view value, const fs::path& home) {
  fs::path path{value};
  if (value == "~" || value.starts_with("~/")) {
    path = home / fs::path(value.substr(1)).relative_path();
  } else if (!path.is_absolute()) {
    return std::nullopt;
  }
  // One spelling per folder, so that a base equal to the tool's own folder is known as such.
  path = path.lexically_normal();
  return path.has_filename() || path == path.root_path() ? path : path.parent_path();
}

std::optional<std::string> qwenRuntimeOutputSetting(const fs::path& settingsFile) {
  std::ifstream in{settingsFile, std::ios::binary};
  if (!in) return std::nullopt;
  std::string text(static_cast<size_t>(kMaxSettingsBytes), '\0');
  in.read(text.data(), kMaxSettingsBytes);
  if (in.gcount() >= kMaxSettingsBytes) return std::nullopt;
  text.resize(static_cast<size_t>(in.gcount()));

  const auto root = logjson::parseObject(withoutComments(std::move(text)));
  if (!root) return std::nullopt;
  const auto advanced = logjson::objectField(*root, "advanced");
  if (!advanced) return std::nullopt;
  const auto value = logjson::string(*advanced, "runtimeOutputDir");
  if (!value) return std::nullopt;
  return std::string(*value);
}

}  // namespace brimlog
