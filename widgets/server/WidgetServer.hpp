#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/Date.hpp"
#include "server/RequestGate.hpp"

namespace brimlog {

/// A failure to set the server up, naming the address and the system's reason.
class WidgetServerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The widgets' loopback web server. Every request is answered from scratch: the timeline
/// providers read the snapshot anew and the clock once.
///
///   GET  /                               the gallery: every widget, the small one per provider
///   GET  /widgets/KIND?provider=P        one widget's timeline as a page (`WidgetPage`)
///        …&preview=1                     the gallery entry: the user's data, else the sample
///   POST /intents/refresh                runs the refresh intent; 204, or 503 when no daemon
///                                        listens
///
/// It listens on 127.0.0.1 only, answers an unknown provider with 400 and an unknown path with
/// 404, and lets its pages load nothing from elsewhere. Any page open in the user's browser can
/// send it requests, so before a route runs or a body is read it answers a Host other than its
/// own names (127.0.0.1, localhost, [::1] with its port) with 421 and a POST from another site
/// with 403; its connections pass a `RequestGate` (`limits`): one request each, complete within
/// seconds, with a small head and a body of at most 1 KiB.
///
///     WidgetServer server{stateFolder};
///     int port = server.bind(0);  // any free port
///     server.listen();            // until stop()
class WidgetServer {
 public:
  /// `stateFolder` holds the snapshot and is where the refresh button asks (`StateFolder`).
  explicit WidgetServer(std::optional<std::filesystem::path> stateFolder,
                        std::function<Date()> clock = currentDate, RequestGate::Limits limits = {});
  ~WidgetServer();
  WidgetServer(const WidgetServer&) = delete;
  WidgetServer& operator=(const WidgetServer&) = delete;

  /// Binds 127.0.0.1:`port` (0: any free port) and returns the port; throws `WidgetServerError`.
  int bind(int port);
  /// Serves until `stop`, which any thread may call; a stopped server does not serve again.
  void listen();
  void stop();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace brimlog
