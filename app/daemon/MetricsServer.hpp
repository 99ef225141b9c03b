#pragma once

#include <httplib.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "daemon/MetricsEndpoint.hpp"
#include "output/MetricsText.hpp"
#include "platform/Date.hpp"

namespace brimlog {

class UsageStore;

/// Serves the daemon's figures at `GET /metrics` for Prometheus, from a thread of its own, from
/// construction until destruction; every other path is not found. A scrape reads the text made
/// when the figures last changed, so it never touches the database: the usage counters are
/// summed from the ledger after a pass that added replies, the limits re-read after a pass or a
/// fetch.
///
///     MetricsServer metrics{MetricsEndpoint::parse("127.0.0.1:9464"), now};
///     metrics.passed(store, now, 0.25, 0, true);
class MetricsServer {
 public:
  /// Listens at once; throws CommandError naming the address when it cannot (in use, not this
  /// machine's).
  MetricsServer(const MetricsEndpoint& endpoint, Date startTime);
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  /// After a pass of `seconds` that could not read `skippedFiles` files: the pass's figures, the
  /// limits, and the usage when `newReplies` (or when they were never read).
  void passed(UsageStore& store, Date now, double seconds, int64_t skippedFiles, bool newReplies);
  /// After the limits changed: their figures and forecasts again.
  void limitsChanged(UsageStore& store, Date now);

  /// The usage over the whole ledger, a row per tool and model.
  // Each series of `now`, but never below what `before` said of it; series gone from the ledger
  // keep their last figures.
  static std::vector<MetricsFigures::Usage> neverLower(
      const std::vector<MetricsFigures::Usage>& before, std::vector<MetricsFigures::Usage> now);
  static std::vector<MetricsFigures::Usage> usageOf(UsageStore& store, Date now);
  /// Every stored limit window with its forecast.
  static std::vector<MetricsFigures::Limit> limitsOf(UsageStore& store, Date now);

 private:
  void publish();

  httplib::Server server_;
  std::thread thread_;
  std::atomic<bool> ended_ = false;  // the serving thread is done
  std::mutex mutex_;
  MetricsFigures figures_;  // the daemon's thread alone
  bool usageRead_ = false;
  std::string text_;  // under `mutex_`
};

}  // namespace brimlog
