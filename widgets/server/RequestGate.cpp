#include "server/RequestGate.hpp"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/AsciiCase.hpp"

namespace brimlog {

namespace {

struct Refusal {
  int status;
  const char* reason;
  const char* text;
};

constexpr Refusal kRefusals[] = {
    {400, "Bad Request", "The request's body length could not be read."},
    {408, "Request Timeout", "The request did not arrive in time."},
    {411, "Length Required", "A request body must come with its Content-Length."},
    {413, "Content Too Large", "The request's body is larger than this server takes."},
    {431, "Request Header Fields Too Large", "The request's head is too large."},
    {503, "Service Unavailable", "Too many connections are open; try again."},
};

// Answers with `status` without waiting for a connection that may not read, and closes it. What
// has arrived is read first: closing over unread bytes would reset the connection and could
// drop the answer before the client reads it.
void refuse(FileDescriptor socket, int status) {
  const Refusal* refusal = std::find_if(std::begin(kRefusals), std::end(kRefusals),
                                        [&](const Refusal& r) { return r.status == status; });
  if (refusal == std::end(kRefusals)) refusal = &kRefusals[std::size(kRefusals) - 1];
  const std::string answer = fmt::format(
      "HTTP/1.1 {} {}\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: {}\r\n"
      "Connection: close\r\n\r\n{}\n",
      refusal->status, refusal->reason, std::char_traits<char>::length(refusal->text) + 1,
      refusal->text);
  (void)::send(socket.get(), answer.data(), answer.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  ::shutdown(socket.get(), SHUT_WR);
  char discarded[4096];
  for (int round = 0; round < 16; ++round) {
    if (::recv(socket.get(), discarded, sizeof discarded, MSG_DONTWAIT) <= 0) break;
  }
}

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Lines ended so far, the request line included.
size_t endedLines(std::string_view text) {
  size_t lines = 0;
  for (size_t at = text.find("\r\n"); at != std::string_view::npos;
       at = text.find("\r\n", at + 2)) {
    ++lines;
  }
  return lines;
}

std::chrono::steady_clock::duration seconds(double value) {
  return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(value));
}

}  // namespace

RequestGate::Verdict RequestGate::inspect(std::string_view arrived, const Limits& limits) {
  using Kind = Verdict::Kind;
  const size_t blank = arrived.substr(0, limits.headBytes).find("\r\n\r\n");
  if (blank == std::string_view::npos) {
    if (arrived.size() >= limits.headBytes || endedLines(arrived) > limits.headerLines + 1) {
      return {Kind::refused, 0, 431};
    }
    return {Kind::incomplete, arrived.size() + 1, 0};
  }

  std::string_view head = arrived.substr(0, blank + 2);
  head.remove_prefix(head.find("\r\n") + 2);  // the request line
  size_t lines = 0;
  std::optional<size_t> length;
  for (size_t end = head.find("\r\n"); end != std::string_view::npos;
       head.remove_prefix(end + 2), end = head.find("\r\n")) {
    if (++lines > limits.headerLines) return {Kind::refused, 0, 431};
    const std::string_view line = head.substr(0, end);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;  // the HTTP parser refuses it
    const std::string name = asciiLowercased(line.substr(0, colon));
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (name == "transfer-encoding") return {Kind::refused, 0, 411};
    if (name != "content-length") continue;
    if (value.empty() || value.find_first_not_of("0123456789") != std::string_view::npos) {
      return {Kind::refused, 0, 400};
    }
    // Any number of more digits than the cap has is over it; the rest fit a size_t.
    if (value.size() > std::to_string(limits.bodyBytes).size()) return {Kind::refused, 0, 413};
    const size_t declared = std::stoul(std::string(value));
    if (declared > limits.bodyBytes) return {Kind::refused, 0, 413};
    if (length && *length != declared) return {Kind::refused, 0, 400};
    length = declared;
  }
  const size_t total = blank + 4 + length.value_or(0);
  return {arrived.size() >= total ? Kind::complete : Kind::incomplete, total, 0};
}

RequestGate::RequestGate(Limits limits, Serve serve)
    : limits_(limits), serve_(std::move(serve)), wakeup_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!wakeup_) {
    throw std::system_error(errno, std::generic_category(),
                            "Cannot make the widget server's wake-up eventfd");
  }
  gate_ = std::thread{[this] { watch(); }};
  for (size_t i = 0; i < std::max<size_t>(limits_.workers, 1); ++i) {
    workers_.emplace_back([this] { work(); });
  }
}

RequestGate::~RequestGate() { stop(); }

void RequestGate::admit(int socket) {
  FileDescriptor owned{socket};
  {
    std::lock_guard lock{mutex_};
    if (stopping_) return;
    admitted_.push_back({std::move(owned), Clock::now() + seconds(limits_.requestSeconds)});
  }
  wake();
}

void RequestGate::stop() {
  {
    std::lock_guard lock{mutex_};
    stopping_ = true;
    for (int socket : answering_) ::shutdown(socket, SHUT_RDWR);
  }
  wake();
  readyChanged_.notify_all();
  if (gate_.joinable()) gate_.join();
  for (std::thread& worker : workers_) {
    if (worker.joinable()) worker.join();
  }
  std::lock_guard lock{mutex_};
  admitted_.clear();
  ready_.clear();
}

void RequestGate::wake() {
  const uint64_t one = 1;
  (void)::write(wakeup_.get(), &one, sizeof one);
}

void RequestGate::watch() {
  std::vector<Waiting> waiting;
  std::vector<pollfd> polled;
  for (;;) {
    size_t queued = 0;
    {
      std::lock_guard lock{mutex_};
      if (stopping_) return;
      for (Waiting& admitted : admitted_) waiting.push_back(std::move(admitted));
      admitted_.clear();
      queued = ready_.size();
    }
    // Over the cap, the connections that have waited longest make room: a page that opens
    // many cannot keep a newer, quick request out.
    if (waiting.size() + queued > limits_.connections) {
      const size_t excess = std::min(waiting.size(), waiting.size() + queued - limits_.connections);
      for (size_t i = 0; i < excess; ++i) refuse(std::move(waiting[i].socket), 503);
      waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(excess));
    }
    const Clock::time_point now = Clock::now();
    std::erase_if(waiting, [&](Waiting& connection) {
      if (now < connection.deadline) return false;
      if (connection.heard) refuse(std::move(connection.socket), 408);
      return true;
    });

    Clock::time_point next = Clock::time_point::max();
    polled.assign(1, pollfd{wakeup_.get(), POLLIN, 0});
    for (const Waiting& connection : waiting) {
      next = std::min(next, connection.deadline);
      polled.push_back({connection.socket.get(), POLLIN | POLLRDHUP, 0});
    }
    int timeout = -1;
    if (!waiting.empty()) {
      timeout = static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(next - now).count());
    }
    if (::poll(polled.data(), polled.size(), timeout) < 0) continue;  // EINTR
    if (polled[0].revents != 0) {
      uint64_t count = 0;
      (void)::read(wakeup_.get(), &count, sizeof count);
    }
    std::vector<Waiting> kept;
    kept.reserve(waiting.size());
    for (size_t i = 0; i < waiting.size(); ++i) {
      const short events = polled[i + 1].revents;
      if (events == 0 || look(waiting[i], events)) kept.push_back(std::move(waiting[i]));
    }
    waiting.swap(kept);
  }
}

bool RequestGate::look(Waiting& connection, short events) {
  const int socket = connection.socket.get();
  std::string arrived(limits_.headBytes + limits_.bodyBytes + 1, '\0');
  const ssize_t peeked = ::recv(socket, arrived.data(), arrived.size(), MSG_PEEK | MSG_DONTWAIT);
  if (peeked < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  if (peeked == 0) return false;  // closed before it asked anything
  connection.heard = true;
  arrived.resize(static_cast<size_t>(peeked));

  const Verdict verdict = inspect(arrived, limits_);
  if (verdict.kind == Verdict::Kind::refused) {
    refuse(std::move(connection.socket), verdict.status);
    return false;
  }
  if (verdict.kind == Verdict::Kind::incomplete) {
    // A peer that has shut its side can no longer finish. Otherwise poll wakes again only when
    // the bytes still missing have come, not on every byte already seen.
    if ((events & (POLLRDHUP | POLLHUP | POLLERR)) != 0) return false;
    const int wanted = static_cast<int>(verdict.bytes);
    ::setsockopt(socket, SOL_SOCKET, SO_RCVLOWAT, &wanted, sizeof wanted);
    return true;
  }
  std::string request(verdict.bytes, '\0');
  if (::recv(socket, request.data(), request.size(), MSG_DONTWAIT) !=
      static_cast<ssize_t>(request.size())) {
    return false;
  }
  {
    std::lock_guard lock{mutex_};
    ready_.push_back({std::move(connection.socket), std::move(request)});
  }
  readyChanged_.notify_one();
  return false;
}

void RequestGate::work() {
  for (;;) {
    Ready ready;
    {
      std::unique_lock lock{mutex_};
      readyChanged_.wait(lock, [&] { return stopping_ || !ready_.empty(); });
      if (stopping_) return;
      ready = std::move(ready_.front());
      ready_.pop_front();
      answering_.push_back(ready.socket.get());
    }
    serve_(ready.socket.get(), ready.request);
    // Off the list before it is closed, so that `stop` never shuts a number reused since.
    std::lock_guard lock{mutex_};
    std::erase(answering_, ready.socket.get());
  }
}

}  // namespace brimlog
