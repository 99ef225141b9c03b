// `brimlog daemon --metrics`: where it may listen, what a scrape over a real socket reads after a
// pass, and a real Prometheus scraping it.

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "daemon/MetricsEndpoint.hpp"
#include "platform/Date.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;

TEST(MetricsEndpointTest, LoopbackUnlessAnAddressIsWrittenOut) {
  const struct {
    const char* text;
    std::optional<std::string> host;  // nothing: refused
    int port = 0;
    bool external = false;
  } rows[] = {
      {"9464", "127.0.0.1", 9464, false},
      {":9464", "127.0.0.1", 9464, false},
      {"localhost:9464", "127.0.0.1", 9464, false},
      {"127.0.0.2:80", "127.0.0.2", 80, false},
      {"[::1]:9464", "::1", 9464, false},
      {"0.0.0.0:9464", "0.0.0.0", 9464, true},
      {"192.168.1.5:9464", "192.168.1.5", 9464, true},
      {"[::]:9464", "::", 9464, true},
      {"example.com:9464", std::nullopt},  // a name could be any interface
      {"::1:9464", std::nullopt},          // IPv6 without brackets
      {"127.0.0.1:0", std::nullopt},
      {"127.0.0.1:65536", std::nullopt},
      {"127.0.0.1:94x", std::nullopt},
      {"127.0.0.1:", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& row : rows) {
    const std::optional<MetricsEndpoint> endpoint = MetricsEndpoint::parse(row.text);
    ASSERT_EQ(endpoint.has_value(), row.host.has_value()) << row.text;
    if (!endpoint) continue;
    EXPECT_EQ(endpoint->host, *row.host) << row.text;
    EXPECT_EQ(endpoint->port, row.port) << row.text;
    EXPECT_EQ(endpoint->external, row.external) << row.text;
  }
  EXPECT_EQ(MetricsEndpoint::parse("[::1]:9464")->text(), "[::1]:9464");
}

class DaemonMetricsTest : public testing::TempDirTest {
 protected:
  // A port nothing listens on just now.
  static int freePort() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(fd);
    return ntohs(address.sin_port);
  }

  std::unique_ptr<testing::RunningProgram> daemon(int port, const std::string& name) {
    return std::make_unique<testing::RunningProgram>(std::vector<std::string>{
        "/bin/sh", "-c",
        fmt::format("exec '{}' daemon --offline --no-notify --interval 3600 --metrics "
                    "127.0.0.1:{} --home '{}' --db '{}' --shared-dir '{}' 2>&1",
                    BRIMLOG_BINARY, port, (dir() / "home").string(),
                    (dir() / name / "usage.db").string(), (dir() / name / "shared").string())});
  }

  // Waits up to `seconds` for `done` to hold; whether it did.
  static bool eventually(const std::function<bool()>& done, int seconds = 10) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done() && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return done();
  }

  static std::string claudeReply(const std::string& id) {
    return R"({"type":"assistant","sessionId":"c1","timestamp":")" +
           formatISO8601(currentDate() - Seconds{600}) + R"(","message":{"id":")" + id +
           R"(","model":"claude-sonnet-4-5","usage":{"input_tokens":1000,"output_tokens":2000}}})"
           "\n";
  }
};

TEST_F(DaemonMetricsTest, ServesTheLedgersCountersAndPrometheusScrapesThem) {
  write("home/.claude/projects/p1/a.jsonl", claudeReply("m1"));
  const int port = freePort();
  auto running = daemon(port, "one");
  ASSERT_TRUE(running->started());
  const std::string output =
      R"(brimlog_tokens_total{tool="claude",model="claude-sonnet-4-5",kind="output"} 2000)";
  httplib::Client http{"127.0.0.1", port};
  std::string body, contentType;
  EXPECT_TRUE(eventually([&] {
    httplib::Result scraped = http.Get("/metrics");
    if (!scraped) return false;
    body = scraped->body;
    contentType = scraped->get_header_value("Content-Type");
    return body.find(output) != std::string::npos;
  })) << body;
  EXPECT_EQ(contentType, "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_THAT(body, HasSubstr("\nbrimlog_passes_total 1\n"));
  const httplib::Result other = http.Get("/");
  ASSERT_TRUE(other);
  EXPECT_EQ(other->status, 404);

  // A second daemon (of another database) on the same port is refused, not given a share.
  const testing::RunningProgram::Result second = daemon(port, "two")->finish();
  EXPECT_EQ(second.exitStatus, 1);
  EXPECT_THAT(
      second.output,
      HasSubstr(fmt::format("cannot serve metrics on 127.0.0.1:{}: Address already in use", port)));

  if (std::system("command -v prometheus >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "prometheus is not installed (Debian's prometheus package; "
                    "scripts/install-deps installs it)";
  }
  const int prometheusPort = freePort();
  const std::filesystem::path config =
      write("prometheus.yml", fmt::format("global:\n  scrape_interval: 1s\n"
                                          "scrape_configs:\n  - job_name: brimlog\n"
                                          "    static_configs:\n"
                                          "      - targets: ['127.0.0.1:{}']\n",
                                          port));
  testing::RunningProgram prometheus{
      {"/bin/sh", "-c",
       fmt::format("exec prometheus --config.file='{}' --storage.tsdb.path='{}' "
                   "--web.listen-address=127.0.0.1:{} >/dev/null 2>&1",
                   config.string(), (dir() / "tsdb").string(), prometheusPort)}};
  ASSERT_TRUE(prometheus.started());
  httplib::Client api{"127.0.0.1", prometheusPort};
  const std::string query = R"(/api/v1/query?query=brimlog_tokens_total%7Bkind%3D%22output%22%7D)";
  std::string answer = "no answer from prometheus";
  EXPECT_TRUE(eventually(
      [&] {
        const httplib::Result result = api.Get(query);
        if (result) answer = result->body;
        return result && answer.find(R"(,"2000"])") != std::string::npos;
      },
      30))
      << answer;
  EXPECT_THAT(answer, HasSubstr(R"("model":"claude-sonnet-4-5")"));

  ::kill(running->pid(), SIGTERM);
  EXPECT_EQ(running->finish(std::chrono::seconds(30)).exitStatus, 0);
}

}  // namespace
}  // namespace brimlog
