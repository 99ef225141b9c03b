#pragma once

#include <optional>
#include <string>

#include "limits/HTTPClient.hpp"

namespace brimlog {

/// The production HTTP client, over libcurl. Every request is sent on a fresh, stateless
/// connection and is bounded by this client's `timeout`, whatever the request asks for:
///
/// - the whole transfer, the connection set-up and any stretch without data end after `timeout`
///   seconds with `URLError::Code::timedOut`;
/// - redirects are not followed: a 3xx response is returned as it is, so a bearer token never
///   reaches a second host;
/// - no cookies are kept or sent, no credentials are taken from .netrc or remembered, and
///   nothing (connections, DNS answers, TLS sessions) is shared between requests;
/// - only http and https URLs are sent.
///
/// Any status is a response. Transport failures throw URLError: `timedOut`, `cannotConnectToHost`
/// (refused), `cannotFindHost` (name not resolved), `badServerResponse` (nothing, no HTTP status
/// line, or a body cut short came back), `other`; the message names the host and curl's reason,
/// never a header.
///
///     CurlHTTPClient client;
///     HTTPResponse r = client.send({"GET", "https://api.example.com/usage", {{"Authorization",
///                                   "Bearer " + token}}, std::nullopt, 60});  // bounded to 15 s
///
/// A URL of another scheme, a method that is not a token, or a header holding a line break or
/// NUL is refused with `other` before anything is sent. Without a Content-Type header a body is
/// sent with none, and curl's "Expect: 100-continue" is left out unless asked for. Safe for
/// concurrent `send` calls.
class CurlHTTPClient final : public HTTPClient {
 public:
  /// Seconds every request is bounded to.
  double timeout = 15;

  HTTPResponse send(const HTTPRequest& request) const override;

  /// A URL's scheme and host as libcurl reads them, the way a request would go: the scheme in
  /// lower case, an IPv6 host in brackets ("[::1]"). Nothing when the text is not a URL with a
  /// host. Throws URLError when libcurl cannot be loaded.
  struct URLParts {
    std::string scheme;
    std::string host;
  };
  static std::optional<URLParts> urlParts(const std::string& url);
};

}  // namespace brimlog
