#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// An eventfd that other threads write to, to wake a loop that polls it.
class Wakeup {
 public:
  Wakeup() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!fd_) throw std::system_error(errno, std::generic_category(), "Cannot make an eventfd");
  }
  int fd() const { return fd_.get(); }
  void wake() const {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t n = ::write(fd_.get(), &one, sizeof one);
  }
  void clear() const {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t n = ::read(fd_.get(), &count, sizeof count);
  }

 private:
  FileDescriptor fd_;
};

}  // namespace brimlog
