#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brimlog {

/// Whether two header names are the same: HTTP compares them without regard to case.
bool sameHeaderName(std::string_view a, std::string_view b);

/// One HTTP request as the limit fetchers build it.
struct HTTPRequest {
  std::string method = "GET";
  std::string url;
  /// Header name and value pairs, sent in this order.
  std::vector<std::pair<std::string, std::string>> headers;
  std::optional<std::string> body;
  /// Seconds; the production client replaces it with its own bound.
  double timeout = 60;
};

/// A response of any status: 2xx or not, interpreting it is the caller's business.
struct HTTPResponse {
  int statusCode = 0;
  /// Header name and value pairs in the order received (names as the server wrote them).
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  /// The first header of that name, compared without regard to case.
  std::optional<std::string> header(std::string_view name) const;
};

/// A transport failure: nothing usable came back.
class URLError : public std::runtime_error {
 public:
  enum class Code { timedOut, cannotConnectToHost, cannotFindHost, badServerResponse, other };

  URLError(Code code, const std::string& what) : std::runtime_error(what), code_(code) {}

  Code code() const { return code_; }

 private:
  Code code_;
};

/// Sends requests to the tools' services. Implementations may be used from several threads at
/// once.
class HTTPClient {
 public:
  virtual ~HTTPClient() = default;

  /// Sends the request and waits for the whole response. Throws URLError on transport failure.
  virtual HTTPResponse send(const HTTPRequest& request) const = 0;
};

}  // namespace brimlog
