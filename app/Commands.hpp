#pragma once

#include <cstdio>
#include <memory>
#include <vector>

#include "HostSettings.hpp"
#include "LimitsFetcher.hpp"
#include "ReportFormatter.hpp"

namespace brimlog {

struct SyncOptions {
  /// Fetch nothing from the tools' services.
  bool offline = false;
  /// Fetch every tool's limits now, however recent the last fetch.
  bool refresh = false;
  bool json = false;
};

struct LimitsOptions {
  bool json = false;
};

struct ReportOptions {
  ReportFormatter::View view = ReportFormatter::View::daily;
  int days = 30;
  bool json = false;
  /// Report what is stored without reading the logs first.
  bool noSync = false;
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
  /// What a bare `brimlog` shows: a sync, then the limits and the 30-day totals per tool.
  int overview(const SyncOptions& options);

 private:
  std::vector<FetchOutcome> fetchLimits(LimitsEndpoints endpoints, bool force);
  enum class Access { read, write };
  // The store, opened on first use: for writing (creating it and its folder when missing), or
  // for reading only, which creates and writes nothing.
  std::shared_ptr<UsageStore> store(Access access = Access::write);

  std::FILE* out_;
  HostSettings settings_;
  std::shared_ptr<UsageStore> store_;
};

}  // namespace brimlog
