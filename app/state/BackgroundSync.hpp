#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/Date.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {

/// Keeps the snapshot behind `brimlog line` fresh without making the line wait for it: when the
/// snapshot is more than a minute old (or missing), no daemon keeps it fresh and no sync is
/// running, one `brimlog sync` is started in the background, and the line is printed from the
/// snapshot at hand. The next line then finds a fresh one.
///
/// The sync is detached: a session of its own (no terminal, untouched by the signals of the
/// caller's), standard input and output on /dev/null, never waited for. It inherits the sync
/// lock that was taken for it on descriptor 3, and says so with `--lock-fd 3`: from the check
/// until the sync exits the lock stays held, so two lines at the same moment start one sync.
///
///     BackgroundSync sync{"/proc/self/exe", {"--db", db, "sync"}, db};
///     if (BackgroundSync::isDue(snapshot->generatedAt, now)) sync.start();
class BackgroundSync {
 public:
  /// Seconds: a snapshot older than this asks for a sync.
  static constexpr double refreshAfter = 60;

  /// The descriptor the sync lock is handed down on.
  static constexpr int lockDescriptor = 3;

  enum class Outcome { daemonRunning, syncRunning, started };

  struct Result {
    Outcome outcome = Outcome::started;
    /// The started process (`started` only). Once the caller exits, init reaps it; a caller
    /// that lives on (a test) reaps it itself.
    pid_t pid = -1;
  };

  /// `executable` is started with `arguments` (without argv[0], which is "brimlog"), followed
  /// by "--lock-fd 3"; `database` is the one it syncs, whose daemon and sync locks are looked
  /// at.
  BackgroundSync(std::filesystem::path executable, std::vector<std::string> arguments,
                 std::filesystem::path database);

  /// The sync of the settings' home, database and snapshot folder, in the zone given on the
  /// command line (`zone`; the sync's own default otherwise), by this very executable.
  static BackgroundSync forSettings(const HostSettings& settings,
                                    const std::optional<std::string>& zone);

  /// Whether a snapshot built at `generatedAt` (nothing: no snapshot yet) is older than
  /// `refreshAfter` at `now`.
  static bool isDue(std::optional<Date> generatedAt, Date now);

  /// Starts the sync unless a daemon holds the database or a sync is running. Throws
  /// std::filesystem::filesystem_error when the lock file cannot be opened, and
  /// std::system_error naming the executable when it cannot be started.
  Result start() const;

 private:
  std::filesystem::path executable_;
  std::vector<std::string> arguments_;
  std::filesystem::path database_;
};

}  // namespace brimlog
