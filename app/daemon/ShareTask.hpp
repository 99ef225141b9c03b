#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "state/ShareSettings.hpp"

namespace brimlog {

class SharedLedger;
class UsageStore;

/// The daemon's shares to the shared ledger the config file names (`[share] to`): after a pass
/// that added replies and after limit readings were stored, what changed is sent. A share that
/// fails never stops the daemon: each kind of failure (its message, which never holds the
/// password) is told once, and the share is tried again after the next pass, on a new
/// connection. Without a target it does nothing.
class ShareTask {
 public:
  using Tell = std::function<void(const std::string&)>;

  ShareTask(const ShareSettings& settings, Tell tell);
  ~ShareTask();
  ShareTask(const ShareTask&) = delete;
  ShareTask& operator=(const ShareTask&) = delete;

  /// The ledger changed: the next `runIfDue` shares.
  void changed() { due_ = true; }
  /// A pass ran: a share that failed is tried again.
  void passed() { due_ = due_ || failed_; }

  /// Shares `store` when it changed since the last share that went through, or when a share
  /// failed and a pass ran since.
  void runIfDue(UsageStore& store);

 private:
  ShareSettings settings_;
  Tell tell_;
  std::unique_ptr<SharedLedger> ledger_;
  bool due_ = true;
  bool failed_ = false;
  std::string lastFailure_;
};

}  // namespace brimlog
