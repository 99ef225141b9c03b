#pragma once

#include <cstdio>

#include "HostSettings.hpp"
#include "ReportFormatter.hpp"

namespace brimlog {

struct SyncOptions {
  /// Fetch nothing from the tools' services.
  bool offline = false;
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

  int sync(const SyncOptions& options);
  int report(const ReportOptions& options);

 private:
  std::FILE* out_;
  HostSettings settings_;
};

}  // namespace brimlog
