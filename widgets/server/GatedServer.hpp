#pragma once

#include <httplib.h>

#include <string>
#include <string_view>

#include "server/RequestGate.hpp"

namespace brimlog {

/// An httplib server whose connections pass a `RequestGate` before any handler sees them.
/// httplib alone gives each connection a pool thread from its accept on and reads a request as
/// it comes, so a few slow or silent connections hold every thread, and a body is read whole
/// before a handler can refuse it. Here the accepting thread hands each socket to the gate at
/// once; a worker runs the routes on the complete request the gate read, one request per
/// connection, and closes it. Handlers and the pre-routing handler are set as on any
/// httplib::Server; the latter runs before the request's body is looked at.
///
///     GatedServer server{limits};
///     server.Get("/", handler);
///     server.bind("127.0.0.1", 0);
///     server.serve();  // until stop(), from any thread
class GatedServer : public httplib::Server {
 public:
  explicit GatedServer(RequestGate::Limits limits = {});
  ~GatedServer() override;

  /// Binds `host`:`port` (0: any free port) and listens; returns the port, or -1 with errno.
  int bind(const std::string& host, int port);
  /// Serves after a bind until `stop`; then closes every connection and joins every thread, so
  /// the server cannot serve again. False when accepting failed.
  bool serve();
  /// Ends `serve`, from any thread, even one that has not yet begun (httplib's own stop does
  /// nothing then, and the serving would never end).
  void stop();

 private:
  bool process_and_close_socket(socket_t socket) override;
  void answer(int socket, std::string_view request);

  const double answerSeconds_;
  const size_t connections_;
  RequestGate gate_;
};

}  // namespace brimlog
