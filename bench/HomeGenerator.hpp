#pragma once

#include <cstdint>
#include <filesystem>

#include "SplitMix64.hpp"
#include "model/TokenCounts.hpp"

namespace brimlog {

/// What a pass over generated logs must find for one tool: every reply once, with its tokens.
struct ToolTotals {
  int64_t replies = 0;
  TokenCounts tokens;
};

/// Writes a synthetic home directory of coding-tool logs, for benchmarks and their checks: Claude
/// Code transcripts (subagent transcripts beside their session), Codex session logs and Grok Build
/// session documents, each where the tool keeps it (`ProviderLocations`).
///
/// Every line is a small template shaped like the tool's own lines, filled with fresh ids,
/// timestamps and token counts, and with text drawn from a pool of escaped lines (quotes, tabs,
/// line feeds, terminal colours, UTF-8). Claude replies are streamed over several lines that share
/// a message id, the last holding the final output count; some replies are written again
/// verbatim, some assistant lines carry no usage. Codex logs cumulative totals, often twice, and
/// its rate limits. The last turn of some Grok sessions is still running. `Stats` holds what a
/// pass must count, per tool.
///
/// Transcript sizes are heavy-tailed (log-normal, clamped, scaled so that all files together come
/// to `totalBytes`). The same seed and options give the same bytes.
///
///     HomeGenerator::Options options;
///     options.totalBytes = 5'000'000;
///     options.claudeFiles = 40;
///     HomeGenerator::Stats stats = HomeGenerator{7}.write("/tmp/home", options);
///     stats.claude.replies;  // new Claude replies of a first pass
class HomeGenerator {
 public:
  struct Options {
    /// Bytes of every file together, about.
    uint64_t totalBytes = 1'000'000'000;
    /// Claude transcripts, subagents included, spread over `projects` project folders.
    size_t claudeFiles = 2'000;
    size_t projects = 36;
    double subagentShare = 0.15;
    size_t codexFiles = 12;
    size_t grokFiles = 6;
    /// Lines fall in the `days` days that end with `endDay` (days since 1970-01-01, UTC).
    int days = 180;
    int64_t endDay = 20'454;  // 2026-01-01
    /// Spread of the transcripts' log-normal sizes (sigma of the log), and their bounds.
    double sizeSigma = 2.0;
    uint64_t minFileBytes = 1'500;
    uint64_t maxFileBytes = 64ULL << 20;
  };

  struct Stats {
    uint64_t files = 0;
    uint64_t bytes = 0;
    uint64_t lines = 0;  // a Grok document counts as one
    uint64_t claudeFiles = 0;
    uint64_t subagentFiles = 0;
    uint64_t codexFiles = 0;
    uint64_t grokFiles = 0;
    uint64_t largestFileBytes = 0;
    uint64_t assistantLines = 0;    // Claude lines with usage, repeats included
    uint64_t repeatedLines = 0;     // verbatim copies of earlier Claude replies
    uint64_t codexTokenCounts = 0;  // Codex token_count events with totals, repeats included
    ToolTotals claude, codex, grok;
  };

  explicit HomeGenerator(uint64_t seed);

  /// Writes the home under `home`, creating folders; files of the same names are replaced.
  /// Throws std::filesystem::filesystem_error when a file cannot be written, and
  /// std::invalid_argument for options that leave nothing to write.
  Stats write(const std::filesystem::path& home, const Options& options);

  /// One Claude Code session of about `bytes` bytes, written to `path`.
  Stats writeTranscript(const std::filesystem::path& path, uint64_t bytes);

 private:
  SplitMix64 random_;
};

}  // namespace brimlog
