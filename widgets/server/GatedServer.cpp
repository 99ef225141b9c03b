#include "server/GatedServer.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

namespace brimlog {

namespace {

using Clock = std::chrono::steady_clock;

// The accepting thread hands each socket over at once instead of queueing it for a pool.
class OnAcceptingThread final : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> task) override { task(); }
  void shutdown() override {}
};

// One request already read, and its socket to answer on until `deadline`.
class RequestStream final : public httplib::Stream {
 public:
  RequestStream(int socket, std::string_view request, Clock::time_point deadline)
      : socket_(socket), unread_(request), deadline_(deadline) {}

  bool is_readable() const override { return !unread_.empty(); }
  bool is_writable() const override { return wait(POLLOUT); }

  // The request ends where the gate measured it: a handler that reads on finds its end, not a
  // wait for bytes the client may never send.
  ssize_t read(char* into, size_t size) override {
    const size_t taken = std::min(size, unread_.size());
    std::memcpy(into, unread_.data(), taken);
    unread_.remove_prefix(taken);
    return static_cast<ssize_t>(taken);
  }

  using httplib::Stream::write;
  ssize_t write(const char* bytes, size_t size) override {
    for (;;) {
      const ssize_t sent = ::send(socket_, bytes, size, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (sent >= 0) return sent;
      if (errno == EINTR) continue;
      if ((errno != EAGAIN && errno != EWOULDBLOCK) || !wait(POLLOUT)) return -1;
    }
  }

  void get_remote_ip_and_port(std::string& ip, int& port) const override {
    address(::getpeername, ip, port);
  }
  void get_local_ip_and_port(std::string& ip, int& port) const override {
    address(::getsockname, ip, port);
  }
  socket_t socket() const override { return socket_; }

 private:
  // Whether `events` come before the deadline.
  bool wait(short events) const {
    for (;;) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
      if (left <= 0) return false;
      pollfd polled{socket_, events, 0};
      const int ready = ::poll(&polled, 1, static_cast<int>(left));
      if (ready > 0) return (polled.revents & events) != 0;
      if (ready == 0 || errno != EINTR) return false;
    }
  }

  void address(int (*name)(int, sockaddr*, socklen_t*), std::string& ip, int& port) const {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (name(socket_, reinterpret_cast<sockaddr*>(&storage), &length) != 0) return;
    char text[INET6_ADDRSTRLEN] = "";
    if (storage.ss_family == AF_INET) {
      const auto* in = reinterpret_cast<const sockaddr_in*>(&storage);
      ::inet_ntop(AF_INET, &in->sin_addr, text, sizeof text);
      port = ntohs(in->sin_port);
    } else if (storage.ss_family == AF_INET6) {
      const auto* in6 = reinterpret_cast<const sockaddr_in6*>(&storage);
      ::inet_ntop(AF_INET6, &in6->sin6_addr, text, sizeof text);
      port = ntohs(in6->sin6_port);
    }
    ip = text;
  }

  int socket_;
  std::string_view unread_;
  Clock::time_point deadline_;
};

}  // namespace

GatedServer::GatedServer(RequestGate::Limits limits)
    : answerSeconds_(limits.answerSeconds),
      connections_(limits.connections),
      gate_(limits, [this](int socket, std::string_view request) { answer(socket, request); }) {
  new_task_queue = [] { return new OnAcceptingThread; };
  // httplib would share the port with any other socket of this user (SO_REUSEPORT): a second
  // server on a taken port would start, say it serves, and get a share of the requests. Only a
  // port left in TIME_WAIT by a server just stopped may be taken again.
  set_socket_options([](socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
}

GatedServer::~GatedServer() {
  stop();
  gate_.stop();
}

int GatedServer::bind(const std::string& host, int port) {
  const int bound = port == 0 ? bind_to_any_port(host) : (bind_to_port(host, port) ? port : -1);
  // httplib listens with a backlog of 5: a page that opens connections by the hundred would
  // overflow it, and every connection after, a normal one too, would wait for the client to
  // try again a second or more later. The gate takes them as fast as they come instead.
  if (bound >= 0) ::listen(svr_sock_, static_cast<int>(std::min<size_t>(connections_, SOMAXCONN)));
  return bound;
}

bool GatedServer::serve() {
  const bool served = listen_after_bind();
  gate_.stop();
  return served;
}

void GatedServer::stop() {
  const socket_t listening = svr_sock_.exchange(INVALID_SOCKET);
  if (listening != INVALID_SOCKET) {
    ::shutdown(listening, SHUT_RDWR);
    ::close(listening);
  }
}

bool GatedServer::process_and_close_socket(socket_t socket) {
  gate_.admit(socket);
  return true;
}

void GatedServer::answer(int socket, std::string_view request) {
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(answerSeconds_));
  RequestStream stream{socket, request, deadline};
  bool closed = true;
  process_request(stream, /*close_connection=*/true, closed, nullptr);
}

}  // namespace brimlog
