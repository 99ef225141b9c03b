#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "display/Snapshot.hpp"
#include "model/ProviderID.hpp"
#include "output/ClaudeCodeStatus.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"

namespace brimlog {

/// The one line that `brimlog line` prints for a status bar, made from the snapshot alone:
///
///     Claude Session 58% left · 3h 12m · today $8.85
///
/// The tightest limit window (of one provider, or of every tool that has limits) with its share
/// left, its pace when the quota goes faster or slower than the window's time, and its reset
/// countdown; today's cost over all tools, "~" before it when part of it is estimated; the
/// widgets' stale notice once the snapshot is more than half an hour old. The share left turns
/// yellow from 80% used and red from 95%. When the window's forecast has it running out before
/// its reset, " · runs out 14:10" follows its countdown in yellow (the weekday too, "Thu 14:10",
/// when that is not today in `calendar`).
///
/// Formats: `plain` (no marks), `claudeCode` (Claude Code's model and session cost first, ANSI
/// colours), `tmux` (`#[fg=…]`), `polybar` (`%{F…}`) and `waybar` (a JSON object for a custom
/// module with "return-type": "json"). A pure function of its arguments.
struct StatusLine {
  enum class Format { plain, claudeCode, tmux, waybar, polybar };

  Format format = Format::plain;
  /// Whose tightest window is shown; nothing: the tightest of every tool (Claude's in the
  /// claude-code format).
  std::optional<ProviderID> provider;
  /// Whether the claude-code line is coloured (NO_COLOR turns it off); other formats ignore it.
  bool color = true;
  /// Where the time a window runs out is told.
  Calendar calendar = Calendar::utc();

  /// What is shown when there is no snapshot yet.
  static constexpr std::string_view noData = "brimlog: no data yet, run brimlog sync";

  /// The format named "plain", "claude-code", "tmux", "waybar" or "polybar".
  static std::optional<Format> formatNamed(std::string_view name);

  /// The line, ending with a newline. `input` is Claude Code's status input; only the
  /// claude-code format shows it.
  ///
  /// waybar's object has "text" (the line), "tooltip" (one line per window of every tool, then
  /// the 30-day cost), "class" ("stale" for a stale snapshot or none, else "critical" from 95%
  /// used of the shown window, "warning" from 80%, "ok") and "percentage" (the whole percentage
  /// used of the shown window; left out when none is shown). Its texts are escaped for Pango
  /// markup, which waybar reads them as.
  std::string render(const std::optional<Snapshot>& snapshot, Date now,
                     const std::optional<ClaudeCodeStatus>& input = std::nullopt) const;
};

}  // namespace brimlog
