// What the gate makes of the first bytes of a connection: how much it waits for, and the edges of
// its caps. (That it waits, answers and closes on real sockets is WidgetServerTest's.)

#include <gtest/gtest.h>

#include <string>

#include "server/RequestGate.hpp"

namespace brimlog {
namespace {

using Kind = RequestGate::Verdict::Kind;

TEST(RequestGateTest, JudgesTheBytesThatHaveArrived) {
  const std::string get = "GET / HTTP/1.1\r\nHost: 127.0.0.1:8717\r\n\r\n";
  const std::string post = "POST /intents/refresh HTTP/1.1\r\nHost: localhost:8717\r\n";
  std::string lines64 = "GET / HTTP/1.1\r\n";
  for (int i = 0; i < 64; ++i) lines64 += "X-Line: " + std::to_string(i) + "\r\n";
  struct Row {
    const char* name;
    std::string arrived;
    Kind kind;
    size_t bytes = 0;
    int status = 0;
  };
  const Row rows[] = {
      {"request line half there", "GET / HT", Kind::incomplete, 9},
      {"a second request behind the first", get + "GET /", Kind::complete, get.size()},
      {"64 header lines", lines64 + "\r\n", Kind::complete, lines64.size() + 2},
      {"a body on its way", post + "Content-Length: 5\r\n\r\nab", Kind::incomplete,
       post.size() + 26},
      {"a whole body", post + "content-length:  5 \r\n\r\nabcde", Kind::complete, post.size() + 28},
      {"a body of 1 KiB", post + "Content-Length: 1024\r\n\r\n", Kind::incomplete,
       post.size() + 1048},
      {"a body over the cap", post + "Content-Length: 1025\r\n\r\n", Kind::refused, 0, 413},
      {"a length too long to count", post + "Content-Length: 99999999999999999999999\r\n\r\n",
       Kind::refused, 0, 413},
      {"a length that is no number", post + "Content-Length: 5x\r\n\r\n", Kind::refused, 0, 400},
      {"two lengths", post + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", Kind::refused, 0,
       400},
      {"65 header lines", lines64 + "X-Line: 64\r\n\r\n", Kind::refused, 0, 431},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const RequestGate::Verdict verdict = RequestGate::inspect(row.arrived, {});
    EXPECT_EQ(verdict.kind, row.kind);
    EXPECT_EQ(verdict.bytes, row.bytes);
    EXPECT_EQ(verdict.status, row.status);
  }
}

}  // namespace
}  // namespace brimlog
