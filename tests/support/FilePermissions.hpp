#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace brimlog::testing {

/// While alive, file permissions stop this thread (and the threads it starts) even when the tests
/// run as root: the capabilities that let root past them are lowered from the thread's effective
/// set, and raised again at the end. Tests of unreadable files and folders use it, so that they
/// test something in a root container too.
class FilePermissionsEnforced {
 public:
  FilePermissionsEnforced() {
    if (::syscall(SYS_capget, &header_, saved_) != 0) return;
    __user_cap_data_struct lowered[2] = {saved_[0], saved_[1]};
    lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
    active_ = ::syscall(SYS_capset, &header_, lowered) == 0;
  }
  ~FilePermissionsEnforced() {
    if (active_) ::syscall(SYS_capset, &header_, saved_);
  }
  FilePermissionsEnforced(const FilePermissionsEnforced&) = delete;
  FilePermissionsEnforced& operator=(const FilePermissionsEnforced&) = delete;

  /// False when the permissions could not be made to count (the test should skip that part).
  bool active() const { return active_ || ::geteuid() != 0; }

 private:
  __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct saved_[2]{};
  bool active_ = false;
};

}  // namespace brimlog::testing
