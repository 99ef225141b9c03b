#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "HostSettings.hpp"
#include "LimitsFetcher.hpp"
#include "ReportFormatter.hpp"
#include "StatusLine.hpp"
#include "SyncLock.hpp"
#include "display/Snapshot.hpp"

namespace brimlog {

struct SyncOptions {
  /// Fetch nothing from the tools' services.
  bool offline = false;
  /// Fetch every tool's limits now, however recent the last fetch.
  bool refresh = false;
  bool json = false;
  /// A descriptor on which the process that started this sync hands down the sync lock it took
  /// for it (see BackgroundSync).
  std::optional<int> lockFd;
};

struct LimitsOptions {
  bool json = false;
};

struct StatusOptions {
  /// Fetch nothing from the tools' services.
  bool offline = false;
  /// Print the snapshot as JSON instead of the dashboard.
  bool json = false;
  /// Redraw the dashboard after a pass every this many seconds, until interrupted.
  std::optional<double> watch;
};

struct ReportOptions {
  ReportFormatter::View view = ReportFormatter::View::daily;
  int days = 30;
  bool json = false;
  /// Report what is stored without reading the logs first.
  bool noSync = false;
};

struct LineOptions {
  StatusLine::Format format = StatusLine::Format::plain;
  std::optional<ProviderID> provider;
  /// Where Claude Code's status input is read (claude-code only); nothing is read from a
  /// terminal.
  std::FILE* input = stdin;
  /// --tz as given, passed on to the background sync.
  std::optional<std::string> zone;
};

/// The `brimlog` subcommands. Each returns the process's exit status and writes its result to
/// `out`; progress and warnings go to standard error. Errors are thrown (CommandError,
/// UsageStoreError) for the one handler at the top of the program.
class Commands {
 public:
  explicit Commands(HostSettings settings, std::FILE* out = stdout);

  /// Reads new replies, then fetches the tools' limits as the refresh timing allows.
  int sync(const SyncOptions& options);
  int report(const ReportOptions& options);
  /// The stored limits of every tool.
  int limits(const LimitsOptions& options);
  /// What a bare `brimlog` and `brimlog status` show: a quick sync, the snapshot published
  /// for the widgets, and the dashboard drawn from it.
  int status(const StatusOptions& options);
  /// One line from the snapshot for a status bar, without opening the database or any log; a
  /// snapshot older than a minute starts a background sync (BackgroundSync) for the next one.
  int line(const LineOptions& options);

 private:
  std::vector<FetchOutcome> fetchLimits(LimitsEndpoints endpoints, bool force);
  // Builds the 30-day snapshot from the store and writes it where the widgets read it. Throws
  // CommandError naming the file and the reason when it cannot be written; the previous
  // snapshot is then left as it was.
  Snapshot publish();
  // One quick pass for the dashboard: new replies, limits when they are due, the snapshot.
  Snapshot refresh(bool offline);
  int watch(const StatusOptions& options);
  enum class Access { read, write };
  // The store, opened on first use: for writing (creating it and its folder when missing), or
  // for reading only, which creates and writes nothing.
  std::shared_ptr<UsageStore> store(Access access = Access::write);

  // Holds the sync lock for a pass over the logs: the one handed down in `inherited` when it is
  // the database's, else taken here, waiting for a sync that holds it. Nothing for a database in
  // memory.
  std::optional<SyncLock> lockForSync(std::optional<int> inherited = std::nullopt);

  std::FILE* out_;
  HostSettings settings_;
  std::shared_ptr<UsageStore> store_;
};

}  // namespace brimlog
