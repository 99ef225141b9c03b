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

}  // namespace brimlog
