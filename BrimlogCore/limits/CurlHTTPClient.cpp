#include "limits/CurlHTTPClient.hpp"

#include <curl/curl.h>
#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace brimlog {
namespace {

// libcurl, and the two dozen libraries it brings (TLS, Kerberos, LDAP, ...), are loaded on the
// first request rather than when the program starts: most runs of the command never make one,
// and loading them costs more than everything else a run with nothing new does.
struct CurlLibrary {
  decltype(&::curl_global_init) global_init = nullptr;
  decltype(&::curl_easy_strerror) easy_strerror = nullptr;
  decltype(&::curl_easy_init) easy_init = nullptr;
  decltype(&::curl_easy_cleanup) easy_cleanup = nullptr;
  decltype(&::curl_easy_setopt) easy_setopt = nullptr;
  decltype(&::curl_easy_perform) easy_perform = nullptr;
  decltype(&::curl_easy_getinfo) easy_getinfo = nullptr;
  decltype(&::curl_slist_append) slist_append = nullptr;
  decltype(&::curl_slist_free_all) slist_free_all = nullptr;
  decltype(&::curl_url) url = nullptr;
  decltype(&::curl_url_cleanup) url_cleanup = nullptr;
  decltype(&::curl_url_set) url_set = nullptr;
  decltype(&::curl_url_get) url_get = nullptr;
  decltype(&::curl_free) free = nullptr;
};

const CurlLibrary& curl() {
  static const CurlLibrary library = [] {
    void* handle = nullptr;
    for (const char* name : {"libcurl.so.4", "libcurl.so"}) {
      if ((handle = ::dlopen(name, RTLD_NOW | RTLD_LOCAL))) break;
    }
    if (!handle) {
      const char* reason = ::dlerror();
      throw URLError(URLError::Code::other,
                     std::string("Cannot load libcurl: ") + (reason ? reason : "not found"));
    }
    CurlLibrary library;
    auto load = [handle](auto& function, const char* name) {
      function =
          reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
      if (!function) {
        throw URLError(URLError::Code::other, std::string("libcurl lacks ") + name);
      }
    };
    load(library.global_init, "curl_global_init");
    load(library.easy_strerror, "curl_easy_strerror");
    load(library.easy_init, "curl_easy_init");
    load(library.easy_cleanup, "curl_easy_cleanup");
    load(library.easy_setopt, "curl_easy_setopt");
    load(library.easy_perform, "curl_easy_perform");
    load(library.easy_getinfo, "curl_easy_getinfo");
    load(library.slist_append, "curl_slist_append");
    load(library.slist_free_all, "curl_slist_free_all");
    load(library.url, "curl_url");
    load(library.url_cleanup, "curl_url_cleanup");
    load(library.url_set, "curl_url_set");
    load(library.url_get, "curl_url_get");
    load(library.free, "curl_free");
    // libcurl's global state is set up once and kept for the life of the process.
    if (const CURLcode code = library.global_init(CURL_GLOBAL_DEFAULT); code != CURLE_OK) {
      throw URLError(URLError::Code::other,
                     std::string("Cannot initialise libcurl: ") + library.easy_strerror(code));
    }
    return library;
  }();
  return library;
}

struct EasyCleanup {
  void operator()(CURL* handle) const { curl().easy_cleanup(handle); }
};
struct ListCleanup {
  void operator()(curl_slist* list) const { curl().slist_free_all(list); }
};
struct URLCleanup {
  void operator()(CURLU* url) const { curl().url_cleanup(url); }
};
struct CurlFree {
  void operator()(char* text) const { curl().free(text); }
};
using EasyHandle = std::unique_ptr<CURL, EasyCleanup>;
using HeaderList = std::unique_ptr<curl_slist, ListCleanup>;

// What a request's URL is checked and named by. Only the host appears in errors: paths and
// queries may carry identifiers, headers carry tokens.
struct Target {
  std::string scheme;
  std::string host = "(no host)";
};

Target targetOf(const std::string& url) {
  const std::optional<CurlHTTPClient::URLParts> parts = CurlHTTPClient::urlParts(url);
  if (!parts) return {};
  return {parts->scheme, parts->host.empty() ? "(no host)" : parts->host};
}

URLError::Code codeFor(CURLcode code) {
  switch (code) {
    case CURLE_OPERATION_TIMEDOUT:
      return URLError::Code::timedOut;
    case CURLE_COULDNT_CONNECT:
      return URLError::Code::cannotConnectToHost;
    case CURLE_COULDNT_RESOLVE_HOST:
      return URLError::Code::cannotFindHost;
    case CURLE_GOT_NOTHING:
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:  // the connection closed before the announced end of the body
    // The scheme is checked before sending, so this can only be an answer without an HTTP
    // status line (what curl takes for HTTP/0.9 and refuses).
    case CURLE_UNSUPPORTED_PROTOCOL:
      return URLError::Code::badServerResponse;
    default:
      return URLError::Code::other;
  }
}

bool hasLineBreakOrNul(std::string_view text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

// An HTTP method is a token: letters, digits and a few marks, never a space or a line break.
bool isMethodToken(std::string_view method) {
  return !method.empty() && std::all_of(method.begin(), method.end(), [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

// What the callbacks fill in during one transfer.
struct Transfer {
  HTTPResponse response;
};

size_t receiveBody(char* data, size_t size, size_t count, void* context) {
  auto& transfer = *static_cast<Transfer*>(context);
  const size_t length = size * count;
  try {
    transfer.response.body.append(data, length);
  } catch (...) {
    return 0;  // ends the transfer with CURLE_WRITE_ERROR
  }
  return length;
}

size_t receiveHeader(char* data, size_t size, size_t count, void* context) {
  auto& headers = static_cast<Transfer*>(context)->response.headers;
  const size_t length = size * count;
  std::string_view line(data, length);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  try {
    if (line.starts_with("HTTP/")) {
      // A status line starts a response: only the last one's headers (after any interim
      // 100 Continue or proxy answer) are the response's.
      headers.clear();
    } else if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
      if (!headers.empty()) {
        headers.back().second.append(" ").append(trimmed(line));  // an obsolete folded line
      }
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
      headers.emplace_back(std::string(line.substr(0, colon)),
                           std::string(trimmed(line.substr(colon + 1))));
    }
  } catch (...) {
    return 0;
  }
  return length;
}

}  // namespace

std::optional<CurlHTTPClient::URLParts> CurlHTTPClient::urlParts(const std::string& url) {
  const std::unique_ptr<CURLU, URLCleanup> parsed(curl().url());
  if (!parsed || curl().url_set(parsed.get(), CURLUPART_URL, url.c_str(),
                                CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    return std::nullopt;
  }
  URLParts parts;
  char* part = nullptr;
  if (curl().url_get(parsed.get(), CURLUPART_SCHEME, &part, 0) == CURLUE_OK) {
    const std::unique_ptr<char, CurlFree> owned(part);
    parts.scheme = part;
  }
  if (curl().url_get(parsed.get(), CURLUPART_HOST, &part, 0) == CURLUE_OK) {
    const std::unique_ptr<char, CurlFree> owned(part);
    parts.host = part;
  }
  return parts;
}

HTTPResponse CurlHTTPClient::send(const HTTPRequest& request) const {
  curl();
  const Target target = targetOf(request.url);
  const std::string& host = target.host;
  const auto refuse = [&host](const std::string& reason) {
    return URLError(URLError::Code::other, "Request to " + host + " not sent: " + reason);
  };
  if (target.scheme != "http" && target.scheme != "https") {
    throw refuse("only http and https URLs are sent");
  }
  if (!isMethodToken(request.method)) throw refuse("the method is not a token");

  HeaderList headers;
  const auto addHeader = [&](const std::string& line) {
    curl_slist* const head = curl().slist_append(headers.get(), line.c_str());
    if (head == nullptr) throw refuse("out of memory");
    headers.release();
    headers.reset(head);
  };
  bool hasContentType = false;
  bool hasExpect = false;
  for (const auto& [name, value] : request.headers) {
    if (name.empty() || hasLineBreakOrNul(name) || name.find(':') != std::string::npos) {
      throw refuse("a header name is not valid");
    }
    if (hasLineBreakOrNul(value)) throw refuse("the " + name + " header holds a line break");
    hasContentType = hasContentType || sameHeaderName(name, "Content-Type");
    hasExpect = hasExpect || sameHeaderName(name, "Expect");
    // "Name;" is curl's way of sending a header with an empty value.
    addHeader(value.empty() ? name + ";" : name + ": " + value);
  }
  // An empty "Name:" keeps curl from adding its own header of that name.
  if (!hasContentType) addHeader("Content-Type:");
  if (!hasExpect) addHeader("Expect:");

  const EasyHandle handle(curl().easy_init());
  if (!handle) throw refuse("cannot create a transfer");
  CURL* const transferHandle = handle.get();
  const auto set = [&](CURLoption option, auto value) {
    if (const CURLcode code = curl().easy_setopt(transferHandle, option, value); code != CURLE_OK) {
      throw refuse(std::string("cannot configure the transfer: ") + curl().easy_strerror(code));
    }
  };

  // The bound in milliseconds; zero would mean none to curl, so at least 1.
  const double milliseconds = std::ceil(timeout * 1000);
  const long limit =
      milliseconds >= 1 ? static_cast<long>(std::min(milliseconds, double{INT32_MAX})) : 1L;
  char errorText[CURL_ERROR_SIZE] = {};
  Transfer transfer;

  set(CURLOPT_URL, request.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 0L);
  set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_TIMEOUT_MS, limit);
  set(CURLOPT_CONNECTTIMEOUT_MS, limit);
  // Less than one byte a second for the whole bound is a stalled transfer.
  set(CURLOPT_LOW_SPEED_LIMIT, 1L);
  set(CURLOPT_LOW_SPEED_TIME, std::max(1L, (limit + 999) / 1000));
  set(CURLOPT_ERRORBUFFER, errorText);
  set(CURLOPT_WRITEFUNCTION, &receiveBody);
  set(CURLOPT_WRITEDATA, static_cast<void*>(&transfer));
  set(CURLOPT_HEADERFUNCTION, &receiveHeader);
  set(CURLOPT_HEADERDATA, static_cast<void*>(&transfer));
  set(CURLOPT_HTTPHEADER, headers.get());

  const std::string& method = request.method;
  if (request.body) {
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    set(CURLOPT_POSTFIELDS, request.body->data());
    if (method != "POST") set(CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method == "GET") {
    set(CURLOPT_HTTPGET, 1L);
  } else if (method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else if (method == "POST") {
    set(CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t{0});
    set(CURLOPT_POSTFIELDS, "");
  } else {
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  const CURLcode code = curl().easy_perform(transferHandle);
  if (code != CURLE_OK) {
    std::string reason = errorText[0] != '\0' ? errorText : curl().easy_strerror(code);
    while (!reason.empty() && (reason.back() == '\n' || reason.back() == '\r')) reason.pop_back();
    throw URLError(codeFor(code), "Request to " + host + " failed: " + reason);
  }
  long status = 0;
  curl().easy_getinfo(transferHandle, CURLINFO_RESPONSE_CODE, &status);
  if (status <= 0) {
    throw URLError(URLError::Code::badServerResponse,
                   "Request to " + host + " failed: the answer is not an HTTP response");
  }
  transfer.response.statusCode = static_cast<int>(status);
  return std::move(transfer.response);
}

}  // namespace brimlog
