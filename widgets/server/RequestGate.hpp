#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// Holds every accepted connection until its whole request has arrived, and only then hands it
/// to one of a few workers. Any web page the user opens can connect to a loopback port, so the
/// server must not give a worker to a connection that sends nothing, sends a byte at a time, or
/// announces more than the widgets could ever need: one thread waits on all of them at once,
/// reading nothing while a request is incomplete, and answers by itself with a short status
/// when a request takes too long (408), has a head too large or with too many lines (431), asks
/// for a body larger than the cap (413), does not say its length (411, chunked bodies), cannot
/// be measured (400), or is pushed out by more connections than it may hold (503, the oldest
/// first). Connections that close early, or never send a byte before their time is up, are
/// closed without a word.
///
/// A worker gets the socket and the request's bytes, head and declared body, already read; it
/// writes its answer and the gate closes the socket after it. One request per connection: a
/// connection kept open after its answer would hold a worker again.
///
///     RequestGate gate{{}, [](int socket, std::string_view request) { answer(socket, request); }};
///     gate.admit(accepted);  // from the accepting thread; the gate owns it from now
///     gate.stop();           // closes every connection, joins every thread
class RequestGate {
 public:
  struct Limits {
    /// Seconds from the accept until the whole request is there.
    double requestSeconds = 5;
    /// Seconds a worker gives a client to take its answer.
    double answerSeconds = 5;
    /// The request line and headers with their blank line, in bytes.
    size_t headBytes = 8 * 1024;
    /// Header lines, the request line not counted.
    size_t headerLines = 64;
    /// A request body, in bytes: the refresh needs none.
    size_t bodyBytes = 1024;
    /// Connections held at once, waiting or queued for a worker; well under the 1024 file
    /// descriptors a user session starts with.
    size_t connections = 600;
    size_t workers = 4;
  };

  /// Answers a complete `request` read from `socket`; runs on a worker thread.
  using Serve = std::function<void(int socket, std::string_view request)>;

  /// What the bytes that have arrived on a connection make of it.
  struct Verdict {
    enum class Kind { incomplete, complete, refused };
    Kind kind;
    /// incomplete: the bytes to wait for before looking again; complete: the request's length.
    size_t bytes = 0;
    /// refused: the HTTP status to answer with.
    int status = 0;
  };

  /// Judges the first bytes of a connection (at most `headBytes` + `bodyBytes` + 1 of them are
  /// needed): the head ends at the first blank line (CRLF CRLF); the body is as long as its
  /// Content-Length says, or empty.
  static Verdict inspect(std::string_view arrived, const Limits& limits);

  RequestGate(Limits limits, Serve serve);
  ~RequestGate();
  RequestGate(const RequestGate&) = delete;
  RequestGate& operator=(const RequestGate&) = delete;

  /// Takes an accepted socket; after `stop` it is closed at once.
  void admit(int socket);
  /// Closes every connection, waiting or being answered, and joins the threads; idempotent.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;
  struct Waiting {
    FileDescriptor socket;
    Clock::time_point deadline;
    bool heard = false;  // some bytes came: a timeout is answered rather than silent
  };
  struct Ready {
    FileDescriptor socket;
    std::string request;
  };

  void watch();
  void work();
  // Looks at what `connection` has sent, `events` being poll's; false when the gate is done
  // with it (queued for a worker, refused or closed).
  bool look(Waiting& connection, short events);
  void wake();

  const Limits limits_;
  const Serve serve_;
  FileDescriptor wakeup_;  // an eventfd the gate thread polls beside the connections

  std::mutex mutex_;
  bool stopping_ = false;
  std::vector<Waiting> admitted_;  // not yet taken in by the gate thread
  std::deque<Ready> ready_;
  std::vector<int> answering_;  // sockets the workers hold, shut down on stop
  std::condition_variable readyChanged_;

  std::thread gate_;
  std::vector<std::thread> workers_;
};

}  // namespace brimlog
