// Where `brimlog daemon --metrics` may listen.

#include <gtest/gtest.h>

#include "daemon/MetricsEndpoint.hpp"

namespace brimlog {
namespace {

TEST(MetricsEndpointTest, LoopbackUnlessAnAddressIsWrittenOut) {
  const struct {
    const char* text;
    std::optional<std::string> host;  // nothing: refused
    int port = 0;
    bool external = false;
  } rows[] = {
      {"9464", "127.0.0.1", 9464, false}, {"localhost:9464", "127.0.0.1", 9464, false},
      {"[::1]:9464", "::1", 9464, false}, {"0.0.0.0:9464", "0.0.0.0", 9464, true},
      {"example.com:9464", std::nullopt},  // a name could be any interface
      {"::1:9464", std::nullopt},          // IPv6 without brackets
      {"127.0.0.1:0", std::nullopt},      {"", std::nullopt},
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

}  // namespace
}  // namespace brimlog
