#pragma once

#include <termios.h>

#include <chrono>
#include <optional>

namespace brimlog {

/// The keys typed at a terminal, one at a time and not echoed: for its life the object puts the
/// terminal in non-canonical mode without echo, and gives it back as it was when it goes. The
/// terminal still turns Ctrl-C into SIGINT. When the descriptor is not a terminal nothing is
/// changed and no key ever comes.
class TerminalKeys {
 public:
  explicit TerminalKeys(int fd);
  ~TerminalKeys();
  TerminalKeys(const TerminalKeys&) = delete;
  TerminalKeys& operator=(const TerminalKeys&) = delete;

  /// The next key typed within `timeout`; nothing when none is, or when a signal comes first.
  std::optional<char> next(std::chrono::milliseconds timeout) const;

 private:
  int fd_;
  std::optional<termios> saved_;
};

}  // namespace brimlog
