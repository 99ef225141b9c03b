#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "daemon/MetricsEndpoint.hpp"
#include "platform/Date.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {

struct DaemonOptions {
  /// Seconds between passes when no change was seen: the net under what a watch can miss.
  double interval = 60;
  /// Fetch nothing from the tools' services.
  bool offline = false;
  /// Tell the desktop when a limit gets tight or comes back.
  bool notify = true;
  /// Serve Prometheus metrics there.
  std::optional<MetricsEndpoint> metrics;
};

/// The host's cycle as a service, until SIGINT or SIGTERM: passes soon after a log changes and
/// every `interval` seconds; each tool's limits on its own schedule, concurrently; a pass and a
/// fetch when the widgets' refresh button is pressed; the snapshot after every change and at
/// least every 15 minutes; old rows pruned once a day; with `metrics`, Prometheus metrics served
/// from the start (`MetricsServer`); with `[share] to` set in the config file, the ledger shared
/// after the changes (`ShareTask`). One daemon per database and per state folder.
///
/// It tells standard error one line per thing worth knowing (start, a pass with new replies, a
/// fetch that is not ok, a snapshot that cannot be written) and is quiet otherwise.
class Daemon {
 public:
  Daemon(HostSettings settings, DaemonOptions options);
  ~Daemon();

  /// Runs until stopped; returns the exit status. Throws CommandError when it cannot start (a
  /// second daemon on the same database, a bad endpoint), UsageStoreError for the database.
  int run();

 private:
  struct Loop;
  HostSettings settings_;
  DaemonOptions options_;
};

}  // namespace brimlog
