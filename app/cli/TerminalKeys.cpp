#include "cli/TerminalKeys.hpp"

#include <poll.h>
#include <unistd.h>

namespace brimlog {

TerminalKeys::TerminalKeys(int fd) : fd_(fd) {
  termios mode{};
  if (::isatty(fd) == 0 || ::tcgetattr(fd, &mode) != 0) return;
  saved_ = mode;
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  if (::tcsetattr(fd, TCSANOW, &mode) != 0) saved_.reset();
}

TerminalKeys::~TerminalKeys() {
  if (saved_) ::tcsetattr(fd_, TCSANOW, &*saved_);
}

std::optional<char> TerminalKeys::next(std::chrono::milliseconds timeout) const {
  if (!saved_) {
    // No terminal to read: only the wait, which a signal cuts short as it does a read.
    ::poll(nullptr, 0, static_cast<int>(timeout.count()));
    return std::nullopt;
  }
  pollfd ready{fd_, POLLIN, 0};
  if (::poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
  char key = 0;
  if ((ready.revents & POLLIN) != 0 && ::read(fd_, &key, 1) == 1) return key;
  // A terminal that hung up: the wait still lasts its time, so the caller does not spin.
  ::poll(nullptr, 0, static_cast<int>(timeout.count()));
  return std::nullopt;
}

}  // namespace brimlog
