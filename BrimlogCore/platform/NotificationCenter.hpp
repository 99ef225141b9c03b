#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace brimlog {

/// A failure to observe a notification: the message names the path, what was being done and
/// the system's reason, such as "Cannot bind socket /run/user/1000/brimlog/notifications/x/1-0:
/// Permission denied".
class NotificationError : public std::runtime_error {
 public:
  NotificationError(const std::filesystem::path& path, std::string_view operation,
                    std::string_view reason);
};

/// Process-to-process notifications between programs of one user, each carrying only a name.
///
/// Every observer binds a Unix-domain datagram socket in `<root>/<name>/`; posting sends one
/// datagram holding the name to each socket found there. Delivery is immediate and best-effort:
/// nothing waits for an observer, and with no observer nothing happens.
///
///     const NotificationCenter center{NotificationCenter::defaultRoot(xdgRuntimeDir)};
///     auto observation = center.observe("app.brimlog.refresh", [] { fetchAgain(); });
///     center.post("app.brimlog.refresh");  // from this or any other process of the user
///
/// A name is non-empty and holds only ASCII letters, digits, '.', '-' and '_'.
class NotificationCenter {
 public:
  /// `root` holds one folder per notification name; each observer binds one socket in it.
  explicit NotificationCenter(std::filesystem::path root) : root_(std::move(root)) {}

  /// $XDG_RUNTIME_DIR/brimlog/notifications when `xdgRuntimeDir` is an absolute path, else
  /// /tmp/brimlog-<uid>/notifications. The caller passes the variable's value as it read it.
  static std::filesystem::path defaultRoot(const std::optional<std::string>& xdgRuntimeDir);

  const std::filesystem::path& root() const { return root_; }

  /// Delivers `name` at once to every current observer of it. Never fails and never waits for a
  /// receiver: an observer whose queue is full misses the post, a bad name is ignored. A socket
  /// whose observer is gone is removed.
  void post(std::string_view name) const noexcept;

  /// While alive, runs its handler on a thread of its own, once per post of its name. Destroying
  /// it stops the thread (after a handler that is running returns) and removes its socket.
  class Observation {
   public:
    Observation(Observation&&) noexcept;
    Observation& operator=(Observation&&) noexcept;
    ~Observation();

    /// The socket this observation receives on.
    const std::filesystem::path& socketPath() const;

   private:
    struct State;
    friend class NotificationCenter;
    explicit Observation(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
  };

  /// Starts observing `name`. Folders missing on the way are created readable by the user alone.
  /// The root's parent, the root and the name's folder belong to the centre: each must be a real
  /// folder of the user closed to others. No folder above them may be writable by another user
  /// unless it is sticky, as /tmp is. Throws
  /// `NotificationError` for a bad name, an unsafe folder, or a socket or thread that cannot be
  /// made. `handler` should not throw; an exception from it is dropped.
  [[nodiscard]] Observation observe(std::string name, std::function<void()> handler) const;

 private:
  std::filesystem::path root_;
};

}  // namespace brimlog
