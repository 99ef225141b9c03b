#include "platform/NotificationCenter.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

bool validName(std::string_view name) {
  constexpr std::string_view allowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-_";
  return !name.empty() && name.find_first_not_of(allowed) == std::string_view::npos &&
         name != "." && name != "..";
}

std::string systemReason(int error) { return std::generic_category().message(error); }

// The socket address of `path`; nothing when the path does not fit in one.
std::optional<sockaddr_un> socketAddress(const std::filesystem::path& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string& text = path.native();
  if (text.size() >= sizeof(address.sun_path)) return std::nullopt;
  std::memcpy(address.sun_path, text.c_str(), text.size() + 1);
  return address;
}

// Creates what is missing of `folder` (each part readable by the user alone) and checks the way
// to it: `ownFrom`, `folder` and the parts between must be real folders of this user closed to
// others; the folders above may not be writable by another user, unless sticky like /tmp.
void makePrivateFolder(const std::filesystem::path& folder, const std::filesystem::path& ownFrom) {
  const std::size_t ownDepth = std::distance(ownFrom.begin(), ownFrom.end());
  std::filesystem::path part;
  std::size_t depth = 0;
  for (const auto& component : folder) {
    part /= component;
    const bool own = ++depth >= ownDepth;
    struct stat status {};
    const auto examine = [&] {
      return own ? ::lstat(part.c_str(), &status) : ::stat(part.c_str(), &status);
    };
    if (examine() != 0) {
      if (errno != ENOENT) throw NotificationError(part, "examine folder", systemReason(errno));
      if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) {
        throw NotificationError(part, "create folder", systemReason(errno));
      }
      if (examine() != 0) throw NotificationError(part, "examine folder", systemReason(errno));
    }
    const bool safe =
        own ? S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() && (status.st_mode & 077) == 0
            : S_ISDIR(status.st_mode) && (status.st_uid == ::geteuid() || status.st_uid == 0) &&
                  ((status.st_mode & 022) == 0 || (status.st_mode & S_ISVTX) != 0);
    if (!safe) {
      throw NotificationError(part, "use folder",
                              own ? "it is not a folder of this user closed to others"
                                  : "another user could replace what it holds");
    }
  }
}

}  // namespace

NotificationError::NotificationError(const std::filesystem::path& path, std::string_view operation,
                                     std::string_view reason)
    : std::runtime_error("Cannot " + std::string(operation) + " " + path.string() + ": " +
                         std::string(reason)) {}

std::filesystem::path NotificationCenter::defaultRoot(
    const std::optional<std::string>& xdgRuntimeDir) {
  if (xdgRuntimeDir && std::filesystem::path(*xdgRuntimeDir).is_absolute()) {
    return std::filesystem::path(*xdgRuntimeDir) / "brimlog" / "notifications";
  }
  return std::filesystem::path("/tmp") / ("brimlog-" + std::to_string(::getuid())) /
         "notifications";
}

void NotificationCenter::post(std::string_view name) const noexcept {
  try {
    if (!validName(name)) return;
    const std::filesystem::path folder = root_ / name;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(folder.c_str()), ::closedir);
    if (!dir) return;
    const FileDescriptor sender(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sender) return;
    while (const dirent* entry = ::readdir(dir.get())) {
      struct stat status {};
      if (::fstatat(::dirfd(dir.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
          !S_ISSOCK(status.st_mode)) {
        continue;
      }
      const std::filesystem::path path = folder / entry->d_name;
      const auto address = socketAddress(path);
      if (!address) continue;
      // Never waits: an observer whose queue is full misses this post rather than stall us.
      const auto sent =
          ::sendto(sender.get(), name.data(), name.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr*>(&*address), sizeof(*address));
      // Nothing is bound there any more: its observer ended without removing it.
      if (sent < 0 && errno == ECONNREFUSED) ::unlink(path.c_str());
    }
  } catch (...) {
  }
}

struct NotificationCenter::Observation::State {
  std::string name;
  std::function<void()> handler;
  std::filesystem::path socketPath;
  FileDescriptor socket;
  FileDescriptor wake;  // an eventfd written once to stop the thread
  std::thread thread;

  ~State() {
    if (thread.joinable()) {
      const uint64_t one = 1;
      [[maybe_unused]] const auto written = ::write(wake.get(), &one, sizeof one);
      thread.join();
    }
    if (!socketPath.empty()) ::unlink(socketPath.c_str());
  }

  void run() {
    std::vector<char> buffer(name.size() + 1);
    pollfd fds[] = {{socket.get(), POLLIN, 0}, {wake.get(), POLLIN, 0}};
    while (true) {
      if ((::poll(fds, 2, -1) < 0 && errno != EINTR) || fds[1].revents != 0) return;
      // MSG_TRUNC gives a longer datagram's real length, so only the name itself matches.
      const auto size =
          ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
      if (size < 0 && errno != EAGAIN && errno != EINTR) return;
      if (size != static_cast<ssize_t>(name.size()) ||
          std::memcmp(buffer.data(), name.data(), name.size()) != 0) {
        continue;
      }
      try {
        handler();
      } catch (...) {
      }
    }
  }
};

NotificationCenter::Observation::Observation(std::unique_ptr<State> state)
    : state_(std::move(state)) {}
NotificationCenter::Observation::Observation(Observation&&) noexcept = default;
NotificationCenter::Observation& NotificationCenter::Observation::operator=(
    Observation&&) noexcept = default;
NotificationCenter::Observation::~Observation() = default;

const std::filesystem::path& NotificationCenter::Observation::socketPath() const {
  return state_->socketPath;
}

NotificationCenter::Observation NotificationCenter::observe(std::string name,
                                                            std::function<void()> handler) const {
  const std::filesystem::path folder = root_ / name;
  if (!validName(name)) {
    throw NotificationError(folder, "observe", "a name holds only letters, digits, '.', '-', '_'");
  }
  makePrivateFolder(folder, root_.parent_path());

  static std::atomic<unsigned> counter{0};
  auto state = std::make_unique<Observation::State>();
  state->name = std::move(name);
  state->handler = std::move(handler);
  const std::filesystem::path path =
      folder / (std::to_string(::getpid()) + "-" + std::to_string(counter++));
  const auto address = socketAddress(path);
  if (!address) throw NotificationError(path, "bind socket", systemReason(ENAMETOOLONG));
  state->socket = FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!state->socket) throw NotificationError(path, "create socket", systemReason(errno));
  const auto bindTo = [&] {
    return ::bind(state->socket.get(), reinterpret_cast<const sockaddr*>(&*address),
                  sizeof(*address));
  };
  // A file of the same name is left by an earlier process that had our process id and ended.
  if (bindTo() != 0 && (errno != EADDRINUSE || ::unlink(path.c_str()) != 0 || bindTo() != 0)) {
    throw NotificationError(path, "bind socket", systemReason(errno));
  }
  state->socketPath = path;
  state->wake = FileDescriptor(::eventfd(0, EFD_CLOEXEC));
  if (!state->wake) throw NotificationError(path, "create an event for", systemReason(errno));
  try {
    state->thread = std::thread([raw = state.get()] { raw->run(); });
  } catch (const std::system_error& error) {
    throw NotificationError(path, "start the thread of", error.what());
  }
  return Observation(std::move(state));
}

}  // namespace brimlog
