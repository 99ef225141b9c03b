#include "daemon/MetricsEndpoint.hpp"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <charconv>

namespace brimlog {
namespace {

// Whether `host` is an IP address, and whether a loopback one.
std::optional<bool> loopback(const std::string& host) {
  in_addr v4{};
  if (::inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
  in6_addr v6{};
  if (::inet_pton(AF_INET6, host.c_str(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6) != 0;
  return std::nullopt;
}

}  // namespace

std::optional<MetricsEndpoint> MetricsEndpoint::parse(std::string_view text) {
  const size_t colon = text.rfind(':');
  std::string_view host = colon == std::string_view::npos ? "" : text.substr(0, colon);
  const std::string_view portText = colon == std::string_view::npos ? text : text.substr(colon + 1);
  int port = 0;
  const char* const end = portText.data() + portText.size();
  const auto [last, error] = std::from_chars(portText.data(), end, port);
  if (portText.empty() || error != std::errc{} || last != end || port < 1 || port > 65535) {
    return std::nullopt;
  }
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string_view::npos) {
    return std::nullopt;  // an IPv6 address needs its brackets
  }
  MetricsEndpoint endpoint;
  endpoint.host = host.empty() || host == "localhost" ? "127.0.0.1" : std::string{host};
  endpoint.port = port;
  const std::optional<bool> local = loopback(endpoint.host);
  if (!local) return std::nullopt;
  endpoint.external = !*local;
  return endpoint;
}

std::string MetricsEndpoint::text() const {
  return host.find(':') == std::string::npos ? fmt::format("{}:{}", host, port)
                                             : fmt::format("[{}]:{}", host, port);
}

}  // namespace brimlog
