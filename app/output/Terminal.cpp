#include "output/Terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

namespace brimlog {

bool Terminal::isTerminal(std::FILE* stream) { return ::isatty(::fileno(stream)) != 0; }

int Terminal::width(std::FILE* stream) {
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return 80;
}

int Terminal::rows(std::FILE* stream) {
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_row > 0) return size.ws_row;
  return 24;
}

std::optional<size_t> Terminal::tableWidth(std::FILE* stream, std::optional<int> columns) {
  if (!isTerminal(stream)) return std::nullopt;
  winsize size{};
  if (::ioctl(::fileno(stream), TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  return static_cast<size_t>(columns.value_or(80));
}

}  // namespace brimlog
