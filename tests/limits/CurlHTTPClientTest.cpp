#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <tuple>

#include "limits/CurlHTTPClient.hpp"
#include "platform/AsciiCase.hpp"
#include "support/StubHTTPServer.hpp"

namespace brimlog {
namespace {

using testing::StubHTTPServer;

const std::string kToken = "Bearer sk-ant-oat01-token";

HTTPRequest get(const std::string& url) { return HTTPRequest{"GET", url, {}, std::nullopt, 60}; }

TEST(CurlHTTPClientTest, SendsRequestsAsGivenAndReturnsAnyStatusWithItsFinalHeaders) {
  StubHTTPServer server;
  const CurlHTTPClient client;
  client.send({"POST",
               server.url(),
               {{"Authorization", kToken}, {"Content-Type", "application/json"}},
               "{}",
               60});
  client.send({"PUT", server.url(), {}, "payload", 60});
  client.send(get(server.url()));
  // Each as "method [body] Authorization Content-Type Expect", "-" for a header not sent: no
  // made-up form type, no "Expect: 100-continue".
  std::string seen;
  for (const auto& r : server.requests()) {
    seen += fmt::format("{} [{}] {} {} {} | ", r.method, r.body,
                        r.header("Authorization").value_or("-"),
                        r.header("Content-Type").value_or("-"), r.header("Expect").value_or("-"));
  }
  EXPECT_EQ(seen,
            "POST [{}] " + kToken + " application/json - | PUT [payload] - - - | GET [] - - - | ");

  // Any status is a response, and neither redirects nor cookies are followed.
  server.clearRequests();
  const std::tuple<int, std::string, std::string, std::string> rows[] = {
      {401, R"({"error":"token expired"})", "Set-Cookie", "session=abc123; Path=/"},
      {302, "moved", "Location", server.url() + "/elsewhere"}};
  for (const auto& [status, body, name, value] : rows) {
    server.respond(status, body, {{name, value}});
    HTTPRequest request = get(server.url());
    request.headers = {{"Authorization", kToken}};
    const HTTPResponse response = CurlHTTPClient().send(request);
    EXPECT_EQ(response.statusCode, status);
    EXPECT_EQ(response.body, body);
    EXPECT_EQ(response.header(asciiLowercased(name)), value);
  }
  // Neither the redirect's target was asked nor the cookie sent back.
  for (const auto& request : server.requests()) {
    EXPECT_EQ(request.path, "/usage");
    EXPECT_EQ(request.header("Cookie"), std::nullopt);
  }

  // Only the final response's headers are returned.
  StubHTTPServer port{StubHTTPServer::raw};
  port.answerOnce(
      "HTTP/1.1 103 Early Hints\r\nLink: </hint>\r\nX-Interim: 1\r\n\r\n"
      "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nX-Final:  padded \t\r\n"
      "X-Folded: one\r\n two\r\nConnection: close\r\n\r\nok");
  const auto response = CurlHTTPClient().send(get(port.url()));
  EXPECT_EQ(response.statusCode, 200);
  EXPECT_EQ(response.body, "ok");
  std::string headers;
  for (const auto& [name, value] : response.headers) headers += name + "=" + value + " | ";
  EXPECT_EQ(headers, "Content-Length=2 | X-Final=padded | X-Folded=one two | Connection=close | ");
}

// Transport failures, and requests refused unsent (a request sent to the silent server would time
// out instead).
TEST(CurlHTTPClientTest, FailuresBecomeURLErrorsThatNameTheHostButNoHeaderValue) {
  StubHTTPServer silent{StubHTTPServer::raw}, garbage{StubHTTPServer::raw},
      nothing{StubHTTPServer::raw}, stalling{StubHTTPServer::raw}, hangingUp{StubHTTPServer::raw};
  garbage.answerOnce("SSH-2.0-OpenSSH_9.2\r\n\r\n");
  nothing.answerOnce("");
  // A response that stops halfway is not returned in part, whether the server then waits or
  // hangs up.
  const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"five_hour\":";
  stalling.answerOnce(half, false);
  hangingUp.answerOnce(half);
  using Code = URLError::Code;
  struct Row {
    const char* name;
    std::string url;
    Code code;
    std::vector<std::pair<std::string, std::string>> headers = {{"Authorization", kToken}};
    std::string method = "GET";
    std::string says = "127.0.0.1";  // in the message
  };
  const Row rows[] = {
      {"silent, past the client's bound", silent.url(), Code::timedOut},
      {"not HTTP", garbage.url(), Code::badServerResponse},
      {"nothing at all", nothing.url(), Code::badServerResponse},
      {"half an answer, then waiting", stalling.url(), Code::timedOut},
      {"half an answer, then hanging up", hangingUp.url(), Code::badServerResponse},
      {"refused", testing::closedPortURL(), Code::cannotConnectToHost},
      {"a file URL", "file:///etc/hostname", Code::other, {}, "GET", ""},
      {"not a URL", "not a url", Code::other, {}, "GET", ""},
      {.name = "a header value that would smuggle a line",
       .url = silent.url(),
       .code = Code::other,
       .headers = {{"Authorization", kToken + "\r\nX-Injected: 1"}},
       .says = "Authorization"},
      {"a header name with a line break", silent.url(), Code::other, {{"Bad\nName", "v"}}},
      {"a method that is no token", silent.url(), Code::other, {}, "GET /other HTTP/1.1\r\n"},
  };
  CurlHTTPClient client;
  client.timeout = 1;  // room for a loaded machine; the two that time out wait this long
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string message;
    std::optional<URLError::Code> code;
    try {
      client.send({row.method, row.url, row.headers, std::nullopt, 60});  // asks for 60 seconds
    } catch (const URLError& error) {
      message = error.what();
      code = error.code();
    }
    EXPECT_EQ(code, row.code);
    EXPECT_NE(message.find(row.says), std::string::npos) << message;
    EXPECT_EQ(message.find("sk-ant"), std::string::npos) << message;
  }
}

TEST(CurlHTTPClientTest, ConcurrentRequestsGetTheirOwnAnswers) {
  StubHTTPServer server;
  server.respond([](const httplib::Request& request, httplib::Response& response) {
    response.set_content(request.get_header_value("X-Caller"), "text/plain");
  });
  const CurlHTTPClient client;
  std::atomic<int> matched = 0;
  std::vector<std::thread> callers;
  // Four callers: the test server's listen backlog is five, and an overflow costs a second.
  for (int i = 0; i < 4; ++i) {
    callers.emplace_back([&, i] {
      for (int round = 0; round < 10; ++round) {
        HTTPRequest request = get(server.url());
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
