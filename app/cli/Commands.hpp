#pragma once

#include <cstdio>

#include "cli/CommandContext.hpp"
#include "cli/CommandOptions.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {

/// The `brimlog` subcommands. Each returns the process's exit status and writes its result to
/// `out`; progress and warnings go to standard error. Errors are thrown (CommandError,
/// UsageStoreError) for the one handler at the top of the program.
class Commands {
 public:
  explicit Commands(HostSettings settings, std::FILE* out = stdout)
      : context_(std::move(settings), out) {}

  /// Reads new replies, then fetches the tools' limits as the refresh timing allows.
  int sync(const SyncOptions& options);
  /// A report of this machine's ledger, or with `from` of the shared one.
  int report(const ReportOptions& options);
  /// `brimlog share`: reads new replies, then sends what changed since the last share to the
  /// shared ledger; a progress line on a terminal, one summary line on `out`.
  int share(const ShareOptions& options);
  /// The stored limits of every tool with their forecasts, or with --history the readings kept.
  int limits(const LimitsOptions& options);
  /// `brimlog check`: the database's integrity check; 0 when sound, 1 (and how to rebuild) when
  /// not.
  int check();
  /// What a bare `brimlog` and `brimlog status` show: a quick sync, the snapshot published
  /// for the widgets, and the dashboard drawn from it.
  int status(const StatusOptions& options);
  /// One line from the snapshot for a status bar, without opening the database or any log; a
  /// snapshot older than a minute starts a background sync (BackgroundSync) for the next one.
  int line(const LineOptions& options);

 private:
  int limitHistory(const LimitsOptions& options);

  CommandContext context_;
};

}  // namespace brimlog
