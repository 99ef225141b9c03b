#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// How the widgets' refresh button reaches the daemon, through two files in the state folder
/// (`StateFolder`). The daemon holds an exclusive `flock` on `lockName` for as long as it runs
/// and watches the folder with inotify; the button, only while that lock is held, writes
/// `fileName`, which the daemon takes (removes) and answers with a pass and a fetch. Whether
/// anything listens is the lock's state, which the kernel drops with the process however it ends.
///
///     // the daemon
///     std::optional<RefreshRequest::Listener> listener = RefreshRequest::listen(folder);
///     poll({listener->fd(), POLLIN}, ...);
///     if (listener->take()) refresh();
///     // the refresh button
///     if (!RefreshRequest::post(folder)) tell("no daemon is running");
struct RefreshRequest {
  static constexpr std::string_view fileName = "refresh-request";
  static constexpr std::string_view lockName = "daemon.lock";

  /// Asks the daemon that listens in `folder` for a refresh. False, writing nothing, when none
  /// listens. Throws std::filesystem::filesystem_error when the request cannot be written.
  static bool post(const std::filesystem::path& folder);

  /// The daemon's side: the lock and the watch on the folder.
  class Listener {
   public:
    /// The descriptor to wait on: readable when something may have arrived.
    int fd() const { return watch_.get(); }

    /// Reads what arrived without blocking; true when a request did, which is then removed.
    bool take();

   private:
    friend struct RefreshRequest;
    Listener(std::filesystem::path folder, FileDescriptor lock, FileDescriptor watch)
        : folder_(std::move(folder)), lock_(std::move(lock)), watch_(std::move(watch)) {}

    std::filesystem::path folder_;
    FileDescriptor lock_;
    FileDescriptor watch_;
  };

  /// Starts listening in `folder`, which must exist, and removes a request left from before.
  /// Nothing when another process listens there. Throws std::filesystem::filesystem_error when
  /// the lock file cannot be opened or the folder cannot be watched.
  static std::optional<Listener> listen(const std::filesystem::path& folder);
};

}  // namespace brimlog
