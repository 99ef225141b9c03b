#pragma once

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace brimlog::testing {

/// A real HTTP server on 127.0.0.1 (a free port) that stands in for a tool's usage endpoint: it
/// answers GET `path` with the status and body last given to `respond` and records every request
/// it receives. Any other path answers 404. Stopped and joined on destruction.
///
///     StubHTTPServer server{"/api/oauth/usage"};
///     server.respond(429, "");
///     provider = ... server.url() ...;
///     server.requests().size();  // what reached it
class StubHTTPServer {
 public:
  /// One request as the server received it.
  struct Request {
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;

    /// The value of a header, its name compared without regard to case.
    std::optional<std::string> header(const std::string& name) const {
      for (const auto& [key, value] : headers) {
        if (key.size() == name.size() &&
            std::equal(key.begin(), key.end(), name.begin(), [](char a, char b) {
              return std::tolower(static_cast<unsigned char>(a)) ==
                     std::tolower(static_cast<unsigned char>(b));
            })) {
          return value;
        }
      }
      return std::nullopt;
    }
  };

  explicit StubHTTPServer(std::string path) : path_(std::move(path)) {
    server_.Get(path_, [this](const httplib::Request& request, httplib::Response& response) {
      std::lock_guard lock(mutex_);
      Request received{request.method, request.path, {}};
      for (const auto& [name, value] : request.headers) received.headers.emplace_back(name, value);
      requests_.push_back(std::move(received));
      response.status = status_;
      response.set_content(body_, "application/json");
    });
    port_ = server_.bind_to_any_port("127.0.0.1");
    EXPECT_GT(port_, 0) << "could not bind a port on 127.0.0.1";
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    // stop() before the accept loop runs would be lost; wait until it does.
    for (int i = 0; i < 2000 && !server_.is_running(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  ~StubHTTPServer() { stop(); }

  StubHTTPServer(const StubHTTPServer&) = delete;
  StubHTTPServer& operator=(const StubHTTPServer&) = delete;

  /// Stops listening; the port is closed afterwards.
  void stop() {
    if (!thread_.joinable()) return;
    server_.stop();
    thread_.join();
  }

  /// The full URL of the endpoint.
  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + path_; }

  /// What every following request is answered with.
  void respond(int status, std::string body) {
    std::lock_guard lock(mutex_);
    status_ = status;
    body_ = std::move(body);
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
  std::string path_;
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  int status_ = 200;
  std::string body_ = "{}";
  std::vector<Request> requests_;
};

/// The URL of an endpoint on 127.0.0.1 whose port was just closed: connecting is refused.
inline std::string closedPortURL(const std::string& path) {
  StubHTTPServer server{path};
  server.stop();
  return server.url();
}

}  // namespace brimlog::testing
