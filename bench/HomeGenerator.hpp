#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace brimlog {

/// Writes a whole synthetic home directory as a heavy user of the coding tools leaves it, for
/// benchmarks of a full ingestion pass:
///
///     home/.claude/projects/<project>/<session uuid>.jsonl
///     home/.claude/projects/<project>/<session uuid>/subagents/agent-a<6 hex>.jsonl
///     home/.codex/sessions/YYYY/MM/DD/rollout-YYYY-MM-DDThh-mm-ss-<uuid>.jsonl
///     home/.codex/archived_sessions/rollout-…jsonl
///     home/.grok/sessions/<uuid>.json
///
/// Claude transcripts come from `TranscriptGenerator`, one generator per file. Their sizes are
/// heavy-tailed (log-normal, clamped to [minFileBytes, maxFileBytes] and scaled so all files
/// together make `totalBytes`): most sessions are tens of kilobytes, a few are tens of
/// megabytes. Projects are picked with Zipf-like weights, so a few hold most sessions. Sessions
/// start at random times over `days` days ending with `endDay` and, by an estimate of their
/// length, finish before that day is over. A share of the files are subagent transcripts
/// (`isSidechain` true, the parent session's id) beside their parent; a share of the sessions are
/// resumed ones, which open with verbatim copies of the last replies of an earlier session of
/// the same project, as the tool writes them. Codex rollouts (with repeated `token_count`
/// events) and Grok session documents take about one percent of a 1 GB home.
///
/// The same seed and options give the same bytes. Writing is sequential, a few hundred
/// megabytes per second.
///
///     HomeGenerator::Options options;
///     options.totalBytes = 50'000'000;
///     options.claudeFiles = 200;
///     options.endDay = *HomeGenerator::dayNumber("2026-03-31");
///     HomeGenerator::Stats stats = HomeGenerator{7}.write("/tmp/home", options);
class HomeGenerator {
 public:
  struct Options {
    /// Bytes of every file together (Claude, Codex and Grok), about.
    uint64_t totalBytes = 1'000'000'000;
    /// Claude transcripts, subagent files included.
    size_t claudeFiles = 2'000;
    size_t projects = 36;
    /// Sessions fall in the `days` days that end with `endDay` (days since 1970-01-01, UTC).
    int days = 180;
    int64_t endDay = 20'454;  // 2026-01-01
    /// Share of the Claude files that are subagent transcripts.
    double subagentShare = 0.15;
    /// Share of the main sessions that resume an earlier one of their project.
    double resumedShare = 0.05;
    /// Spread of the log-normal size distribution (sigma of the log).
    double sizeSigma = 2.0;
    uint64_t minFileBytes = 1'500;
    uint64_t maxFileBytes = 64ULL << 20;
    /// Codex rollouts and Grok session documents, with sizes log-uniform between the bounds
    /// (all scaled down when together they would pass a tenth of `totalBytes`).
    size_t codexFiles = 12;
    uint64_t codexMinFileBytes = 30'000;
    uint64_t codexMaxFileBytes = 3'000'000;
    size_t grokFiles = 6;
    uint64_t grokMinFileBytes = 4'000;
    uint64_t grokMaxFileBytes = 120'000;
  };

  /// What one call wrote.
  struct Stats {
    uint64_t files = 0;
    uint64_t bytes = 0;
    uint64_t claudeFiles = 0;
    uint64_t claudeBytes = 0;
    uint64_t subagentFiles = 0;
    uint64_t resumedFiles = 0;
    uint64_t codexFiles = 0;
    uint64_t grokFiles = 0;
    uint64_t projects = 0;  // project folders that got at least one file
    uint64_t lines = 0;     // JSON lines of every log, a Grok document counting one
    /// Claude lines with usage: each reply's lines, verbatim repeats and resumed copies.
    uint64_t assistantLines = 0;
    uint64_t replies = 0;  // distinct Claude message ids
    uint64_t repeatedLines = 0;
    uint64_t copiedLines = 0;       // lines copied into resumed sessions
    uint64_t codexTokenCounts = 0;  // token_count events, repeats included
    uint64_t codexCalls = 0;        // distinct totals among them: one per model call
    uint64_t grokTurns = 0;
    uint64_t grokModelUsages = 0;  // per model, of the finished turns
    /// Claude file sizes: median, 90th and 99th percentile, largest.
    uint64_t medianFileBytes = 0;
    uint64_t p90FileBytes = 0;
    uint64_t p99FileBytes = 0;
    uint64_t largestFileBytes = 0;
    /// Share of the Claude bytes in the largest 1% of the Claude files.
    double top1PercentShare = 0;
    /// The first and last instants written, in milliseconds since 1970.
    int64_t firstMillis = 0;
    int64_t lastMillis = 0;
  };

  explicit HomeGenerator(uint64_t seed);

  /// Writes the home under `home`, creating folders as needed; files already there with the
  /// same names are replaced. Throws std::filesystem::filesystem_error when a file cannot be
  /// written, std::invalid_argument for options that cannot be met (no files, no days).
  Stats write(const std::filesystem::path& home, const Options& options);

  /// "YYYY-MM-DD" as days since 1970-01-01; nothing for text of another form or an impossible
  /// date.
  static std::optional<int64_t> dayNumber(std::string_view isoDate);

  /// Today in UTC, as days since 1970-01-01.
  static int64_t today();

 private:
  uint64_t seed_;
};

}  // namespace brimlog
