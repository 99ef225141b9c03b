#include "state/ShareSettings.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "state/HostSettings.hpp"

namespace brimlog {
namespace {

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r");
  return text.substr(first, last - first + 1);
}

}  // namespace

ShareSettings ShareSettings::overriddenBy(const ShareSettings& given) const {
  return {given.to ? given.to : to, given.machine ? given.machine : machine,
          given.user ? given.user : user};
}

std::string ShareSettings::target(std::string_view option,
                                  const std::filesystem::path& configFile) const {
  if (to) return *to;
  throw CommandError(
      fmt::format("no shared ledger is set; give {} postgresql://USER@HOST/DATABASE, or set "
                  "`to = postgresql://…` under [share] in {}",
                  option, configFile.string()));
}

std::optional<ShareSettings> ShareSettings::parse(std::string_view text, std::string& mistake) {
  ShareSettings settings;
  std::string section;
  int number = 0;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    ++number;
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[') {
      if (line.back() != ']') {
        mistake = fmt::format("line {}: a section's name ends with ]", number);
        return std::nullopt;
      }
      section = trimmed(line.substr(1, line.size() - 2));
      if (section != "share") {
        mistake =
            fmt::format("line {}: unknown section [{}]; the only one is [share]", number, section);
        return std::nullopt;
      }
      continue;
    }
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
      mistake = fmt::format("line {}: write a setting as key = value", number);
      return std::nullopt;
    }
    if (section.empty()) {
      mistake = fmt::format("line {}: a setting outside a section; put it under [share]", number);
      return std::nullopt;
    }
    const std::string_view key = trimmed(line.substr(0, equals));
    std::string value(trimmed(line.substr(equals + 1)));
    std::optional<std::string>* slot = key == "to"        ? &settings.to
                                       : key == "machine" ? &settings.machine
                                       : key == "user"    ? &settings.user
                                                          : nullptr;
    if (slot == nullptr) {
      mistake = fmt::format("line {}: unknown key {} in [share]; choose to, machine or user",
                            number, key);
      return std::nullopt;
    }
    if (value.empty()) {
      mistake = fmt::format("line {}: {} has no value", number, key);
      return std::nullopt;
    }
    *slot = std::move(value);
  }
  return settings;
}

ShareSettings ShareSettings::load(const std::filesystem::path& path) {
  std::error_code missing;
  if (!std::filesystem::exists(path, missing) && !missing) return {};
  std::ifstream file(path);
  if (!file) {
    throw CommandError(fmt::format("cannot read the config file {} ({}); fix or remove it",
                                   path.string(), std::strerror(errno)));
  }
  std::ostringstream text;
  text << file.rdbuf();
  std::string mistake;
  std::optional<ShareSettings> settings = parse(text.str(), mistake);
  if (!settings) {
    throw CommandError(fmt::format("the config file {}, {}", path.string(), mistake));
  }
  return *settings;
}

}  // namespace brimlog
