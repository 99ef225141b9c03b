#include "state/BackgroundSync.hpp"

#include <fcntl.h>
#include <spawn.h>

#include <csignal>
#include <system_error>

#include "platform/FileDescriptor.hpp"
#include "state/DaemonLock.hpp"
#include "state/SyncLock.hpp"

extern char** environ;

namespace brimlog {
namespace {

// posix_spawn's attributes and file actions, destroyed on every path.
struct SpawnSetup {
  posix_spawnattr_t attributes{};
  posix_spawn_file_actions_t actions{};

  SpawnSetup() {
    ::posix_spawnattr_init(&attributes);
    ::posix_spawn_file_actions_init(&actions);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  ~SpawnSetup() {
    ::posix_spawn_file_actions_destroy(&actions);
    ::posix_spawnattr_destroy(&attributes);
  }
};

}  // namespace

BackgroundSync::BackgroundSync(std::filesystem::path executable, std::vector<std::string> arguments,
                               std::filesystem::path database)
    : executable_(std::move(executable)),
      arguments_(std::move(arguments)),
      database_(std::move(database)) {}

BackgroundSync BackgroundSync::forSettings(const HostSettings& settings,
                                           const std::optional<std::string>& zone) {
  std::vector<std::string> arguments = {"--home",       settings.home.string(),
                                        "--db",         settings.database.string(),
                                        "--shared-dir", settings.stateFolder.string()};
  if (zone) arguments.insert(arguments.end(), {"--tz", *zone});
  arguments.push_back("sync");
  return BackgroundSync{settings.executable, std::move(arguments), settings.database};
}

bool BackgroundSync::isDue(std::optional<Date> generatedAt, Date now) {
  return !generatedAt || (now - *generatedAt).count() > refreshAfter;
}

BackgroundSync::Result BackgroundSync::start() const {
  if (DaemonLock::isHeld(database_)) return {Outcome::daemonRunning};
  const std::optional<SyncLock> lock = SyncLock::tryAcquire(database_);
  if (!lock) return {Outcome::syncRunning};

  // A copy above the standard descriptors, so that the child's dup2 onto 3 always makes a new
  // descriptor, one without close-on-exec.
  const FileDescriptor handed{::fcntl(lock->fd(), F_DUPFD_CLOEXEC, 10)};
  if (!handed) {
    throw std::system_error(errno, std::generic_category(),
                            "Cannot pass on the sync lock to " + executable_.string());
  }

  std::vector<std::string> argv = {"brimlog"};
  argv.insert(argv.end(), arguments_.begin(), arguments_.end());
  argv.insert(argv.end(), {"--lock-fd", std::to_string(lockDescriptor)});
  std::vector<char*> pointers;
  for (std::string& argument : argv) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  SpawnSetup setup;
  // A session of its own, the default signal dispositions and no blocked signals, whatever the
  // status bar that runs us has set.
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  ::posix_spawnattr_setsigmask(&setup.attributes, &none);
  ::posix_spawnattr_setsigdefault(&setup.attributes, &all);
  ::posix_spawnattr_setflags(&setup.attributes,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  ::posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&setup.actions, 1, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_adddup2(&setup.actions, 1, 2);
  ::posix_spawn_file_actions_adddup2(&setup.actions, handed.get(), lockDescriptor);

  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, executable_.c_str(), &setup.actions, &setup.attributes,
                                  pointers.data(), environ);
  if (error != 0) {
    throw std::system_error(error, std::generic_category(),
                            "Cannot start " + executable_.string() + " for a background sync");
  }
  return {Outcome::started, pid};
}

}  // namespace brimlog
