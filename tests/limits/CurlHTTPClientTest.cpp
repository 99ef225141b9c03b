#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "limits/CurlHTTPClient.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

using Clock = std::chrono::steady_clock;

// A real HTTP server on 127.0.0.1 that keeps every request it receives.
class LocalServer {
 public:
  LocalServer() {
    port_ = server.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server.listen_after_bind(); });
    // `stop` only reaches a server that is already listening.
    while (!server.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~LocalServer() {
    server.stop();
    thread_.join();
  }

  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

  // The handler for `path` keeps the request and answers with `respond`.
  template <typename Respond>
  void on(const std::string& path, Respond respond) {
    const auto handler = [this, respond](const httplib::Request& request,
                                         httplib::Response& response) {
      {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
      }
      respond(request, response);
    };
    server.Get(path, handler);
    server.Post(path, handler);
    server.Put(path, handler);
  }

  std::vector<httplib::Request> requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
  }

  httplib::Server server;

 private:
  int port_ = 0;
  std::thread thread_;
  mutable std::mutex mutex_;
  std::vector<httplib::Request> requests_;
};

// A TCP port on 127.0.0.1 under the test's control: with `listening` false it refuses
// connections; otherwise the kernel accepts them and nothing answers, unless `answerOnce` is
// called to reply to one request with bytes written by hand.
class RawPort {
 public:
  explicit RawPort(bool listening) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), length), 0);
    if (listening) {
      EXPECT_EQ(::listen(socket_.get(), 8), 0);
    }
    EXPECT_EQ(::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    port_ = ntohs(address.sin_port);
  }
  ~RawPort() {
    if (thread_.joinable()) thread_.join();
  }

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/usage"; }

  // With `hangUp` false the connection stays open after the reply until the client closes it.
  void answerOnce(std::string reply, bool hangUp = true) {
    thread_ = std::thread([this, reply = std::move(reply), hangUp] {
      pollfd waiting{socket_.get(), POLLIN, 0};
      if (::poll(&waiting, 1, 5000) != 1) return;
      const FileDescriptor connection(::accept(socket_.get(), nullptr, nullptr));
      std::string head;
      char chunk[1024];
      while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t count = ::recv(connection.get(), chunk, sizeof chunk, 0);
        if (count <= 0) return;
        head.append(chunk, static_cast<size_t>(count));
      }
      ::send(connection.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
      // Close only after the client has: closing first could reset the connection under it.
      if (hangUp) ::shutdown(connection.get(), SHUT_WR);
      while (::recv(connection.get(), chunk, sizeof chunk, 0) > 0) {
      }
    });
  }

 private:
  FileDescriptor socket_;
  int port_ = 0;
  std::thread thread_;
};

HTTPRequest get(const std::string& url) { return HTTPRequest{"GET", url, {}, std::nullopt, 60}; }

std::optional<URLError::Code> errorOf(const CurlHTTPClient& client, const HTTPRequest& request,
                                      std::string* message = nullptr) {
  try {
    client.send(request);
  } catch (const URLError& error) {
    if (message) *message = error.what();
    return error.code();
  }
  return std::nullopt;
}

TEST(CurlHTTPClientTest, SendsTheRequestAsGivenAndReturnsTheResponse) {
  LocalServer server;
  server.on("/usage", [](const httplib::Request&, httplib::Response& response) {
    response.status = 201;
    response.set_header("X-Request-Id", "r-1");
    response.set_content("{\"ok\":true}", "application/json");
  });
  const CurlHTTPClient client;
  const HTTPRequest post{"POST",
                         server.url("/usage"),
                         {{"Authorization", "Bearer sk-ant-oat01-token"},
                          {"anthropic-beta", "oauth-2025-04-20"},
                          {"User-Agent", "brimlog-test/1.0"},
                          {"Content-Type", "application/json"}},
                         R"({"q":1})",
                         60};
  const HTTPResponse response = client.send(post);
  EXPECT_EQ(response.statusCode, 201);
  EXPECT_EQ(response.body, R"({"ok":true})");
  EXPECT_EQ(response.header("x-request-id"), "r-1");
  EXPECT_EQ(response.header("Content-Type"), "application/json");

  client.send({"PUT", server.url("/usage"), {}, "payload", 60});
  client.send(get(server.url("/usage")));

  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 3u);
  const httplib::Request& sent = requests[0];
  EXPECT_EQ(sent.method, "POST");
  EXPECT_EQ(sent.body, R"({"q":1})");
  EXPECT_EQ(sent.get_header_value("Authorization"), "Bearer sk-ant-oat01-token");
  EXPECT_EQ(sent.get_header_value("anthropic-beta"), "oauth-2025-04-20");
  EXPECT_EQ(sent.get_header_value("User-Agent"), "brimlog-test/1.0");
  EXPECT_EQ(sent.get_header_value("Content-Type"), "application/json");
  EXPECT_FALSE(sent.has_header("Expect"));
  EXPECT_FALSE(sent.has_header("Cookie"));
  EXPECT_EQ(requests[1].method, "PUT");
  EXPECT_EQ(requests[1].body, "payload");
  EXPECT_FALSE(requests[1].has_header("Content-Type"));  // no made-up form type
  EXPECT_EQ(requests[2].method, "GET");
  EXPECT_EQ(requests[2].body, "");
}

TEST(CurlHTTPClientTest, ErrorStatusesAreResponsesWithTheirBodies) {
  LocalServer server;
  server.on("/unauthorized", [](const httplib::Request&, httplib::Response& response) {
    response.status = 401;
    response.set_content(R"({"error":"token expired"})", "application/json");
  });
  server.on("/limited", [](const httplib::Request&, httplib::Response& response) {
    response.status = 429;
    response.set_header("Retry-After", "120");
    response.set_content("slow down", "text/plain");
  });
  const CurlHTTPClient client;
  const auto unauthorized = client.send(get(server.url("/unauthorized")));
  EXPECT_EQ(unauthorized.statusCode, 401);
  EXPECT_EQ(unauthorized.body, R"({"error":"token expired"})");
  const auto limited = client.send(get(server.url("/limited")));
  EXPECT_EQ(limited.statusCode, 429);
  EXPECT_EQ(limited.body, "slow down");
  EXPECT_EQ(limited.header("retry-after"), "120");
}

TEST(CurlHTTPClientTest, RedirectsAreReturnedNotFollowed) {
  LocalServer elsewhere;
  elsewhere.on("/target", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("followed", "text/plain");
  });
  LocalServer server;
  const std::string target = elsewhere.url("/target");
  server.on("/usage", [&target](const httplib::Request&, httplib::Response& response) {
    response.status = 302;
    response.set_header("Location", target);
    response.set_content("moved", "text/plain");
  });
  const CurlHTTPClient client;
  HTTPRequest request = get(server.url("/usage"));
  request.headers = {{"Authorization", "Bearer sk-ant-oat01-token"}};
  const auto response = client.send(request);
  EXPECT_EQ(response.statusCode, 302);
  EXPECT_EQ(response.header("Location"), target);
  EXPECT_EQ(response.body, "moved");
  EXPECT_TRUE(elsewhere.requests().empty());
}

TEST(CurlHTTPClientTest, CookiesAreNeitherKeptNorSent) {
  LocalServer server;
  server.on("/login", [](const httplib::Request&, httplib::Response& response) {
    response.set_header("Set-Cookie", "session=abc123; Path=/");
    response.set_content("hi", "text/plain");
  });
  server.on("/usage", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("{}", "application/json");
  });
  const CurlHTTPClient client;
  EXPECT_EQ(client.send(get(server.url("/login"))).header("Set-Cookie"), "session=abc123; Path=/");
  client.send(get(server.url("/usage")));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_FALSE(requests[1].has_header("Cookie"));
}

TEST(CurlHTTPClientTest, OnlyTheFinalResponsesHeadersAreReturned) {
  RawPort port(true);
  port.answerOnce(
      "HTTP/1.1 103 Early Hints\r\nLink: </hint>\r\nX-Interim: 1\r\n\r\n"
      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nX-Final:  padded \t\r\n"
      "X-Folded: one\r\n two\r\nConnection: close\r\n\r\nok");
  const auto response = CurlHTTPClient().send(get(port.url()));
  EXPECT_EQ(response.statusCode, 200);
  EXPECT_EQ(response.body, "ok");
  EXPECT_EQ(response.header("X-Final"), "padded");
  EXPECT_EQ(response.header("X-Folded"), "one two");
  EXPECT_EQ(response.header("X-Interim"), std::nullopt);
  EXPECT_EQ(response.header("Link"), std::nullopt);
  EXPECT_EQ(response.headers.size(), 4u);
}

TEST(CurlHTTPClientTest, AnswersThatAreNotHTTPAreBadServerResponses) {
  RawPort garbage(true);
  garbage.answerOnce("SSH-2.0-OpenSSH_9.2\r\n\r\n");
  EXPECT_EQ(errorOf(CurlHTTPClient(), get(garbage.url())), URLError::Code::badServerResponse);
  RawPort nothing(true);
  nothing.answerOnce("");
  EXPECT_EQ(errorOf(CurlHTTPClient(), get(nothing.url())), URLError::Code::badServerResponse);
}

TEST(CurlHTTPClientTest, ASilentServerTimesOutAtTheClientsBound) {
  const RawPort silent(true);
  CurlHTTPClient client;
  client.timeout = 0.3;
  HTTPRequest request = get(silent.url());  // asks for 60 seconds
  request.headers = {{"Authorization", "Bearer sk-ant-oat01-token"}};
  std::string message;
  EXPECT_EQ(errorOf(client, request, &message), URLError::Code::timedOut);
  EXPECT_NE(message.find("127.0.0.1"), std::string::npos) << message;
  EXPECT_EQ(message.find("sk-ant"), std::string::npos) << message;

  // A response that stops halfway is not returned in part, whether the server then waits or
  // hangs up.
  const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"five_hour\":";
  RawPort stalling(true);
  stalling.answerOnce(half, false);
  EXPECT_EQ(errorOf(client, get(stalling.url())), URLError::Code::timedOut);
  RawPort hangingUp(true);
  hangingUp.answerOnce(half);
  EXPECT_EQ(errorOf(client, get(hangingUp.url())), URLError::Code::badServerResponse);
}

TEST(CurlHTTPClientTest, TransportFailuresBecomeURLErrors) {
  const CurlHTTPClient client;
  const RawPort closed(false);
  EXPECT_EQ(errorOf(client, get(closed.url())), URLError::Code::cannotConnectToHost);
  // Only http and https are spoken.
  EXPECT_EQ(errorOf(client, get("file:///etc/hostname")), URLError::Code::other);
  EXPECT_EQ(errorOf(client, get("ftp://127.0.0.1:1/x")), URLError::Code::other);
  EXPECT_EQ(errorOf(client, get("not a url")), URLError::Code::other);
}

TEST(CurlHTTPClientTest, HeadersThatWouldSmuggleLinesAreRefusedUnsent) {
  LocalServer server;
  server.on("/usage", [](const httplib::Request&, httplib::Response&) {});
  const CurlHTTPClient client;
  HTTPRequest request = get(server.url("/usage"));
  request.headers = {{"Authorization", "Bearer x\r\nX-Injected: 1"}};
  std::string message;
  EXPECT_EQ(errorOf(client, request, &message), URLError::Code::other);
  EXPECT_NE(message.find("Authorization"), std::string::npos) << message;
  EXPECT_EQ(message.find("Bearer"), std::string::npos) << message;
  request.headers = {{"Bad\nName", "v"}};
  EXPECT_EQ(errorOf(client, request), URLError::Code::other);
  request.headers = {};
  request.method = "GET /other HTTP/1.1\r\n";
  EXPECT_EQ(errorOf(client, request), URLError::Code::other);
  EXPECT_TRUE(server.requests().empty());
}

TEST(CurlHTTPClientTest, ConcurrentRequestsGetTheirOwnAnswers) {
  LocalServer server;
  server.on("/echo", [](const httplib::Request& request, httplib::Response& response) {
    response.set_content(request.get_header_value("X-Caller"), "text/plain");
  });
  const CurlHTTPClient client;
  std::atomic<int> matched = 0;
  std::vector<std::thread> callers;
  // Four callers: the test server's listen backlog is five, and an overflow costs a second.
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&, i] {
      for (int round = 0; round < 10; ++round) {
        HTTPRequest request = get(server.url("/echo"));
        request.headers = {{"X-Caller", std::to_string(i)}};
        if (client.send(request).body == std::to_string(i)) ++matched;
      }
    });
  }
  for (std::thread& caller : callers) caller.join();
  EXPECT_EQ(matched, 40);
}

}  // namespace
}  // namespace brimlog
