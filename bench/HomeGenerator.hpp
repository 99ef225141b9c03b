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

/// Writes a synthetic home of coding-tool logs for benchmarks and their checks: Claude Code
/// transcripts (subagents beside their session), Codex session logs and Grok Build session
/// documents, each where the tool keeps it (`ToolLocations`). Every line is a small template
/// shaped like the tool's own, filled with seeded ids, times, token counts and escaped text.
/// Claude replies stream over several lines sharing a message id (the last has the final output
/// count), some are written again verbatim, some assistant lines carry no usage; Codex logs its
/// cumulative totals, often twice, with rate limits; some Grok sessions have a turn running.
/// `Stats` holds what a first pass must count. Transcript sizes are log-normal, clamped and scaled
/// to `totalBytes`. The same seed and options give the same bytes.
///
///     HomeGenerator::Stats stats = HomeGenerator{7}.write("/tmp/home", {.totalBytes = 5'000'000});
///     stats.claude.replies;  // the new Claude replies of a first pass
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
