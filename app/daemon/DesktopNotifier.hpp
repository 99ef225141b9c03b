#pragma once

#include <memory>
#include <optional>
#include <string>

#include "daemon/LimitAlerts.hpp"

struct sd_bus;

namespace brimlog {

/// Shows limit alerts as desktop notifications: calls `Notify` of the desktop's notification
/// service (org.freedesktop.Notifications) over the user's session bus. Every call gives up
/// after `timeout`, so a hung notification service never holds up its caller.
///
///     std::string why;
///     if (auto notifier = DesktopNotifier::connect(settings.sessionBusAddress, &why)) {
///       for (const LimitAlert& alert : alerts) notifier->notify(alert);
///     } else {
///       std::cerr << why << '\n';
///     }
///
/// Movable, not copyable; one thread at a time.
class DesktopNotifier {
 public:
  /// How long connecting, and each notification, may take.
  static constexpr double timeoutSeconds = 2.0;

  /// Connects to the bus at `busAddress` (a D-Bus address such as "unix:path=/run/user/1000/bus"),
  /// or to the user's session bus when none is given. Nothing when the bus cannot be reached in
  /// time; `failure`, when given, then receives what failed and why.
  static std::optional<DesktopNotifier> connect(std::optional<std::string> busAddress,
                                                std::string* failure = nullptr);

  /// Shows `summary` and `body` under the application name "Brimlog". False when the service did
  /// not take it (`lastError` says why); never throws.
  bool notify(const std::string& summary, const std::string& body);
  bool notify(const LimitAlert& alert) { return notify(alert.summary, alert.body); }

  /// Why the last failed `notify` failed.
  const std::string& lastError() const { return lastError_; }

 private:
  struct BusRelease {
    void operator()(sd_bus* bus) const;
  };
  using Bus = std::unique_ptr<sd_bus, BusRelease>;

  DesktopNotifier(Bus bus, std::string address)
      : bus_(std::move(bus)), address_(std::move(address)) {}

  Bus bus_;
  std::string address_;  // for messages
  std::string lastError_;
};

}  // namespace brimlog
