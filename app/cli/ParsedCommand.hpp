#pragma once

#include "cli/CommandOptions.hpp"
#include "daemon/Daemon.hpp"
#include "state/HostSettings.hpp"

namespace brimlog {

/// A command line as understood: which command, the shared options as given, and the command's
/// own options (those of the other commands keep their defaults).
struct ParsedCommand {
  enum class Kind { status, sync, report, limits, daemon, line, check, share };
  Kind kind = Kind::status;
  CommandLine shared;
  SyncOptions sync;
  StatusOptions status;
  ReportOptions report;
  ShareOptions share;
  LimitsOptions limits;
  DaemonOptions daemon;
  LineOptions line;
};

}  // namespace brimlog
