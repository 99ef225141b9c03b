#include "cli/HelpFormatter.hpp"

#include <sstream>

#include "output/TextTable.hpp"

namespace brimlog {
namespace {

// `line` broken between words into lines of at most `width` columns; a line of an indented list
// goes on under its description (column `hang`), any other under its own start. A word longer
// than a line stands alone.
std::string wrapped(const std::string& line, size_t width, size_t hang) {
  if (textWidth(line) <= width) return line + '\n';
  const bool listed = line.front() == ' ' && line.size() > hang;
  const size_t indent = listed ? hang : 0;
  std::string out = line.substr(0, indent);
  size_t used = indent;
  bool first = true;
  std::istringstream words(line.substr(indent));
  for (std::string word; words >> word;) {
    const size_t length = textWidth(word);
    if (!first && used + 1 + length > width) {
      out += '\n' + std::string(indent, ' ');
      used = indent;
      first = true;
    }
    if (!first) {
      out += ' ';
      ++used;
    }
    out += word;
    used += length;
    first = false;
  }
  return out + '\n';
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string name,
                                     CLI::AppFormatMode mode) const {
  std::istringstream help(CLI::Formatter::make_help(app, std::move(name), mode));
  std::string out;
  for (std::string line; std::getline(help, line);) {
    out += line.empty() ? "\n" : wrapped(line, kWidth, get_column_width());
  }
  return out;
}

}  // namespace brimlog
