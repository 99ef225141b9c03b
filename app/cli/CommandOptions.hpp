#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "model/ProviderID.hpp"
#include "output/ReportContent.hpp"
#include "output/StatusLine.hpp"
#include "platform/Calendar.hpp"

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
  enum class Form { table, json, csv };

  /// The readings kept over `days` and the finished windows among them, instead of the latest.
  bool history = false;
  /// Only this tool's readings, and only this window's (an id: "session", "weekly", …).
  std::optional<ProviderID> tool;
  std::optional<std::string> window;
  int days = 30;
  Form form = Form::table;
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
  enum class Form { table, json, csv };

  ReportContent::View view = ReportContent::View::daily;
  /// How many days up to `until` (or today); not given with `since`.
  int days = 30;
  /// The first and last day, both included, in the report's zone.
  std::optional<CalendarDay> since;
  std::optional<CalendarDay> until;
  /// Only this tool's usage, and only that of sessions in this project's folder.
  std::optional<ProviderID> tool;
  std::optional<std::string> project;
  Form form = Form::table;
  /// Report what is stored without reading the logs first.
  bool noSync = false;
  /// Report from the shared ledger at this target instead of the local store; "" for the
  /// config file's `[share] to`.
  std::optional<std::string> from;
  /// With `from`: only this machine's rows, only those of this user's machines.
  std::optional<std::string> machine;
  std::optional<std::string> user;
};

/// `brimlog share`: where to, and under which names; absent ones come from the config file.
struct ShareOptions {
  std::optional<std::string> to;
  std::optional<std::string> machine;
  std::optional<std::string> user;
  /// Share what is stored without reading the logs first.
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

}  // namespace brimlog
