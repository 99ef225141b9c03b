// The widget server on a real loopback port, asked as a browser would.

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "display/SnapshotStore.hpp"
#include "platform/FileDescriptor.hpp"
#include "server/WidgetServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class WidgetServerTest : public testing::TempDirTest {};

// A server on a free port, serving from a thread of its own until the test ends.
struct Serving {
  explicit Serving(const std::filesystem::path& shared, RequestGate::Limits limits = {})
      : server{shared, [] { return *parseISO8601("2026-10-29T12:10:00Z"); }, limits},
        port{server.bind(0)},
        listening{[this] { server.listen(); }} {}
  ~Serving() { server.stop(); }

  WidgetServer server;
  int port;
  std::jthread listening;
};

// A connection of its own that has sent `text` (as much as the server took), for what a browser
// would not send.
FileDescriptor sent(int port, std::string_view text) {
  FileDescriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
  for (ssize_t n = 0; !text.empty() && n >= 0; text.remove_prefix(static_cast<size_t>(n))) {
    n = ::send(socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
  }
  return socket;
}

// Everything the server writes until it closes; "" when it closes without a word. A server that
// keeps the connection open and silent fails the test (after 10 s, not to hang it).
std::string answerOn(const FileDescriptor& socket) {
  std::string answer;
  char chunk[4096];
  pollfd polled{socket.get(), POLLIN, 0};
  while (::poll(&polled, 1, 10'000) == 1) {
    const ssize_t got = ::recv(socket.get(), chunk, sizeof chunk, 0);
    if (got <= 0) return answer;
    answer.append(chunk, static_cast<size_t>(got));
  }
  ADD_FAILURE() << "the server kept the connection open without an answer";
  return answer;
}

TEST_F(WidgetServerTest, AnswersEveryWidgetAndRefusesWhatItCannotShow) {
  SnapshotStore{dir() / "shared"}.write(Snapshot::placeholder());
  Serving serving{dir() / "shared"};
  httplib::Client http{"127.0.0.1", serving.port};

  const auto gallery = http.Get("/");
  ASSERT_TRUE(gallery);
  size_t widgets = 0;
  for (size_t at = gallery->body.find("class=\"widget "); at != std::string::npos;
       at = gallery->body.find("class=\"widget ", at + 1)) {
    ++widgets;
  }
  // The small one per tool read here, the medium and the large.
  EXPECT_EQ(widgets, ProviderID::readableCases.size() + 2);
  EXPECT_THAT(gallery->get_header_value("Content-Security-Policy"),
              HasSubstr("default-src 'none'"));

  // Ten minutes after the sample was made: an entry now and one when it turns stale. (That the
  // page shows the tool asked for is the browser test's.)
  const auto small = http.Get("/widgets/app.brimlog.small?provider=codex");
  ASSERT_TRUE(small);
  EXPECT_THAT(small->body, HasSubstr("<section class=\"entry\" data-date=\"1793277001\" hidden>"));
  // Bare on asking, titled for a window manager; the gallery links each widget's bare page.
  const auto bare = http.Get("/widgets/app.brimlog.small?provider=codex&bare");
  ASSERT_TRUE(bare);
  EXPECT_THAT(bare->body, HasSubstr("<html lang=\"en\" class=\"bare\"><head>"));
  EXPECT_THAT(bare->body, HasSubstr("<title>Brimlog — Small — Codex</title>"));
  EXPECT_THAT(small->body, Not(HasSubstr("class=\"bare\"")));
  EXPECT_THAT(gallery->body, HasSubstr("href=\"/widgets/app.brimlog.large?bare=1\""));

  const auto unknownProvider = http.Get("/widgets/app.brimlog.small?provider=cursor");
  ASSERT_TRUE(unknownProvider);
  EXPECT_THAT(unknownProvider->body, HasSubstr("Unknown provider \"cursor\""));

  const auto unknownKind = http.Get("/widgets/app.brimlog.huge");
  ASSERT_TRUE(unknownKind);
  EXPECT_EQ(unknownKind->status, 404);
  EXPECT_THAT(unknownKind->body, HasSubstr("app.brimlog.small, app.brimlog.medium"));

  // A second server on a taken port fails rather than share it.
  WidgetServer second{dir() / "shared"};
  EXPECT_THROW(second.bind(serving.port), WidgetServerError);
}

TEST_F(WidgetServerTest, AnswersOnlyItsOwnNamesAndItsOwnPagesPosts) {
  Serving serving{dir() / "shared"};
  httplib::Client http{"127.0.0.1", serving.port};
  const std::string port = std::to_string(serving.port);
  struct Row {
    const char* name;
    std::string host;
    std::string origin;  // for a POST; none: a GET
    int status;
  };
  const Row rows[] = {
      {"127.0.0.1", "127.0.0.1:" + port, "", 200},
      {"localhost", "LocalHost:" + port, "", 200},
      {"IPv6 loopback", "[::1]:" + port, "", 200},
      {"a rebinding name", "evil.example", "", 421},
      {"a rebinding name with the port", "evil.example:" + port, "", 421},
      {"another port", "127.0.0.1:1" + port, "", 421},
      {"a POST from its own page (no daemon)", "localhost:" + port, "http://localhost:" + port,
       503},
      {"a POST from another site", "localhost:" + port, "http://evil.example", 403},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto answer =
        row.origin.empty()
            ? http.Get("/", {{"Host", row.host}})
            : http.Post("/intents/refresh", {{"Host", row.host}, {"Origin", row.origin}}, "", "");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, row.status);
    EXPECT_EQ(answer->get_header_value("Connection"), "close");
    if (row.status != 200) {
      EXPECT_THAT(answer->body, Not(HasSubstr("widget")));
    }
  }
  EXPECT_THAT(answerOn(sent(serving.port, "GET / HTTP/1.0\r\n\r\n")),  // without a Host
              StartsWith("HTTP/1.1 421"));
}

TEST_F(WidgetServerTest, RefusesRequestsTooLargeToTakeBeforeReadingThem) {
  Serving serving{dir() / "shared"};
  const std::string head = "Host: 127.0.0.1:" + std::to_string(serving.port) + "\r\n";
  const std::string post = "POST /intents/refresh HTTP/1.1\r\n" + head;
  std::string manyHeaders = "GET / HTTP/1.1\r\n" + head;
  for (int i = 0; i < 20'000; ++i) manyHeaders += "X-" + std::to_string(i) + ": 1\r\n";
  const std::pair<std::string, const char*> rows[] = {
      // The body is never sent: the answer must not wait for it.
      {post + "Origin: http://evil.example\r\nContent-Length: 100000000\r\n\r\n", "HTTP/1.1 413"},
      {manyHeaders + "\r\n", "HTTP/1.1 431"},
      {"GET / HTTP/1.1\r\n" + head + "X: " + std::string(9216, 'a'), "HTTP/1.1 431"},
      {post + "Transfer-Encoding: chunked\r\n\r\n", "HTTP/1.1 411"},
  };
  for (const auto& [request, status] : rows) {
    SCOPED_TRACE(request.substr(0, 120));
    EXPECT_THAT(answerOn(sent(serving.port, request)), StartsWith(status));
  }
}

TEST_F(WidgetServerTest, AnswersWhileHundredsOfConnectionsIdleOrTrickle) {
  // Both ends of every connection are in this process.
  rlimit files{};
  ::getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = std::max<rlim_t>(files.rlim_cur, std::min<rlim_t>(files.rlim_max, 1200));
  if (::setrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur < 1200) {
    GTEST_SKIP() << "fewer than 1200 file descriptors allowed";
  }
  // Time enough that none of them is timed out while the test runs, however slow the machine.
  Serving serving{dir() / "shared", {.requestSeconds = 120}};
  std::vector<FileDescriptor> idle, trickling;
  for (int i = 0; i < 500; ++i) idle.push_back(sent(serving.port, ""));
  const std::string head = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(serving.port);
  for (int i = 0; i < 16; ++i) trickling.push_back(sent(serving.port, head));
  for (const FileDescriptor& socket : trickling) ::send(socket.get(), "\r", 1, MSG_NOSIGNAL);

  httplib::Client http{"127.0.0.1", serving.port};
  http.set_connection_timeout(1);
  http.set_read_timeout(1);
  const auto gallery = http.Get("/");
  ASSERT_TRUE(gallery) << httplib::to_string(gallery.error());
  EXPECT_EQ(gallery->status, 200);
  // The answer neither waited for the others to be done with nor ended them.
  idle.insert(idle.end(), std::make_move_iterator(trickling.begin()),
              std::make_move_iterator(trickling.end()));
  char byte;
  for (const FileDescriptor& socket : idle) {
    ASSERT_EQ(::recv(socket.get(), &byte, 1, MSG_DONTWAIT), -1);
    ASSERT_EQ(errno, EAGAIN);
  }
}

TEST_F(WidgetServerTest, ClosesConnectionsThatTakeTooLong) {
  Serving serving{dir() / "shared", {.requestSeconds = 0.2}};
  const FileDescriptor silent = sent(serving.port, "");
  EXPECT_THAT(answerOn(sent(serving.port, "GET / HTTP/1.1\r\nHost: ")), StartsWith("HTTP/1.1 408"));
  EXPECT_EQ(answerOn(silent), "");  // closed without a word: it may be a browser's spare
}

}  // namespace
}  // namespace brimlog
