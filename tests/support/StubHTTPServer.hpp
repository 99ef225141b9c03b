#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "limits/HTTPClient.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog::testing {

/// A real server on 127.0.0.1 (a free port) that stands in for a tool's usage endpoint. Stopped
/// and joined on destruction.
///
/// Served over HTTP (the default), it records every request (GET, POST or PUT, any path) and
/// answers `path` as `respond` last set (200 with "{}" before that) and any other path with 404:
///
///     StubHTTPServer server{"/api/oauth/usage"};
///     server.respond(429, "");
///     provider = ... server.url() ...;
///     server.requests().size();  // what reached it
///
/// Raw (`StubHTTPServer{StubHTTPServer::raw}`), the port accepts connections and nothing answers,
/// unless `answerOnce` is given bytes to write back by hand: for answers no HTTP server gives. The
/// request it answers is recorded as it came, headers with empty values included.
class StubHTTPServer {
 public:
  /// One request as the server received it.
  struct Request {
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    /// The value of a header, its name compared without regard to case.
    std::optional<std::string> header(std::string_view name) const {
      for (const auto& [key, value] : headers) {
        if (sameHeaderName(key, name)) return value;
      }
      return std::nullopt;
    }
  };

  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  struct Raw {};
  static constexpr Raw raw{};

  explicit StubHTTPServer(std::string path = "/usage") : path_(std::move(path)) {
    const auto handle = std::bind_front(&StubHTTPServer::serve, this);
    http_.Get(".*", handle);
    http_.Post(".*", handle);
    http_.Put(".*", handle);
    respond(200, "{}");
    port_ = http_.bind_to_any_port("127.0.0.1");
    EXPECT_GT(port_, 0) << "could not bind a port on 127.0.0.1";
    thread_ = std::thread([this] { http_.listen_after_bind(); });
    // stop() before the accept loop runs would be lost; wait until it does.
    for (int i = 0; i < 2000 && !http_.is_running(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  explicit StubHTTPServer(Raw) : path_("/usage") {
    raw_ = FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(raw_.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    EXPECT_EQ(::listen(raw_.get(), 8), 0);
    EXPECT_EQ(::getsockname(raw_.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
  }

  ~StubHTTPServer() { stop(); }

  /// Stops listening over HTTP (the port is closed afterwards); waits for a raw answer to end.
  void stop() {
    if (!thread_.joinable()) return;
    if (!raw_) http_.stop();
    thread_.join();
  }

  /// The endpoint's full URL.
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + path_; }

  /// What every following request to the endpoint's path is answered with.
  void respond(int status, std::string body,
               std::vector<std::pair<std::string, std::string>> headers = {}) {
    respond([=](const httplib::Request&, httplib::Response& response) {
      response.status = status;
      for (const auto& [name, value] : headers) response.set_header(name, value);
      response.set_content(body, "application/json");
    });
  }

  /// Answers every following request to the endpoint's path with `handler`, called on the
  /// server's threads.
  void respond(Handler handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
  }

  /// Raw: answers the next connection, once its request head is in, with `reply` as it is. With
  /// `hangUp` false the connection stays open after the reply until the client closes it.
  void answerOnce(std::string reply, bool hangUp = true) {
    thread_ = std::thread([this, reply = std::move(reply), hangUp] {
      pollfd waiting{raw_.get(), POLLIN, 0};
      if (::poll(&waiting, 1, 5000) != 1) return;
      const FileDescriptor connection(::accept(raw_.get(), nullptr, nullptr));
      std::string head;
      char chunk[1024];
      while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = ::recv(connection.get(), chunk, sizeof chunk, 0);
        if (count <= 0) return;
        head.append(chunk, static_cast<size_t>(count));
      }
      record(head);
      ::send(connection.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
      // Close only after the client has: closing first could reset the connection under it.
      if (hangUp) ::shutdown(connection.get(), SHUT_WR);
      while (::recv(connection.get(), chunk, sizeof chunk, 0) > 0) {
      }
    });
  }

  std::vector<Request> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

  void clearRequests() {
    std::lock_guard lock(mutex_);
    requests_.clear();
  }

 private:
  // Keeps a request head read by hand, headers with empty values included (the HTTP server drops
  // those).
  void record(const std::string& head) {
    Request received;
    std::istringstream lines(head);
    lines >> received.method >> received.path;
    // The rest of the request line has no colon; the empty line after the headers ends the head.
    for (std::string line; std::getline(lines, line) && line.size() > 1;) {
      line.pop_back();  // the carriage return
      const size_t colon = line.find(':');
      if (colon == std::string::npos) continue;
      const size_t value = std::min(line.find_first_not_of(' ', colon + 1), line.size());
      received.headers.emplace_back(line.substr(0, colon), line.substr(value));
    }
    std::lock_guard lock(mutex_);
    requests_.push_back(std::move(received));
  }

  void serve(const httplib::Request& request, httplib::Response& response) {
    std::unique_lock lock(mutex_);
    requests_.push_back({request.method, request.path, {}, request.body});
    requests_.back().headers.assign(request.headers.begin(), request.headers.end());
    const Handler handler = handler_;
    lock.unlock();
    if (request.path != path_) {
      response.status = 404;
    } else {
      handler(request, response);
    }
  }

  std::string path_;
  httplib::Server http_;
  FileDescriptor raw_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  Handler handler_;
  std::vector<Request> requests_;
};

/// The URL of an endpoint on 127.0.0.1 whose port was just closed: connecting is refused.
inline std::string closedPortURL(const std::string& path = "/usage") {
  StubHTTPServer server{path};
  server.stop();
  return server.url();
}

}  // namespace brimlog::testing
