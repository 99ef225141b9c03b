#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brimlog {

/// Where the metrics are served.
struct MetricsEndpoint {
  std::string host;  // an IP address, as the user wrote it
  int port = 0;
  /// Not a loopback address: reachable from other machines.
  bool external = false;

  /// "PORT" or ":PORT" (loopback, 127.0.0.1), "ADDRESS:PORT", "[IPv6]:PORT" or
  /// "localhost:PORT". An address must be written as a number: a host name could stand for an
  /// outward-facing interface without the user seeing it. Nothing for anything else.
  static std::optional<MetricsEndpoint> parse(std::string_view text);
  /// What the option does, and how to write it when `parse` refused it.
  static constexpr std::string_view help =
      "Serve Prometheus metrics at http://ADDRESS:PORT/metrics (127.0.0.1 when only a port is "
      "given)";
  static constexpr std::string_view remedy =
      "write ADDRESS:PORT with the address as a number, such as 127.0.0.1:9464 (this machine "
      "alone) or 0.0.0.0:9464 (every network)";

  /// "127.0.0.1:9464", "[::1]:9464".
  std::string text() const;
};

}  // namespace brimlog
