#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "SplitMix64.hpp"

namespace brimlog {

/// Writes synthetic Claude Code transcripts (JSON lines) that look like the ones the tool writes:
/// the same line types, field order, id formats and token-usage shapes, long tool results full of
/// escaped quotes, tabs and line feeds, and raw UTF-8 text. Meant for benchmarks and load tests.
///
/// Everything follows from the seed and the options: the same seed, options and call sequence
/// give the same bytes. One generator can write many sessions in a row (each `writeTranscript`
/// or `beginSession` starts a new one); its random stream just continues.
///
///     TranscriptGenerator generator(42);
///     TranscriptGenerator::Options options;
///     options.startUnixMillis = 1'767'225'600'000;
///     auto stats = generator.writeTranscript("session.jsonl", 20 << 20, options);
///
/// Line mix with the default options: about 20% assistant lines, 75% user lines (most of them
/// tool results of 0.5–50 KB, the rest typed prompts) and 5% progress, system, summary,
/// file-history-snapshot and queue-operation lines. Each assistant reply is written over 2–3
/// lines sharing `message.id` and `requestId`; its `output_tokens` grows from line to line and
/// only the last line holds the final count. Other lines sometimes sit between those lines, and
/// now and then an earlier assistant line is written again verbatim.
class TranscriptGenerator {
 public:
  struct Options {
    /// The session's id; empty for a random UUID.
    std::string sessionId;
    std::string cwd = "/home/dev/projects/harbor";
    std::string gitBranch = "main";
    /// Written as `isSidechain` on every line: true for a subagent's transcript, which carries
    /// its parent session's id.
    bool isSidechain = false;
    /// The tool's version, written on every line.
    std::string version = "2.1.39";
    /// Written into each usage object when not empty (the tool's 2.1 versions add it).
    std::string inferenceGeo = "global";
    /// The instant of the first line, in milliseconds since 1970-01-01T00:00:00Z.
    int64_t startUnixMillis = 1'767'225'600'000;  // 2026-01-01T00:00:00Z
    /// The first model answers most replies; the others answer the rest, in equal shares.
    std::vector<std::string> models = {"claude-opus-4-6", "claude-haiku-4-5-20251001",
                                       "claude-sonnet-4-5-20250929"};
    double mainModelShare = 0.75;

    /// Shares of all lines written.
    double assistantShare = 0.20;
    double otherShare = 0.05;
    /// Share of the user lines that are tool results rather than typed prompts.
    double toolResultShare = 0.85;
    /// Chance that a line is a verbatim copy of a recent assistant line.
    double repeatShare = 0.004;

    /// Lines per assistant reply.
    int minReplyLines = 2;
    int maxReplyLines = 3;
    /// Chance that the next line of a reply follows its previous line directly.
    double replyAdjacency = 0.85;

    /// Tool-result line sizes: between these bounds, skewed toward small ones (the median is
    /// about 2 KB with the defaults; larger `sizeSkew` gives smaller lines).
    size_t minToolResultBytes = 512;
    size_t maxToolResultBytes = 50 * 1024;
    double sizeSkew = 1.6;

    /// Chance that the session writes its cache for one hour rather than five minutes.
    double oneHourCacheChance = 0.3;
  };

  /// What one call wrote.
  struct Stats {
    uint64_t bytes = 0;
    uint64_t lines = 0;
    uint64_t assistantLines = 0;  // repeats included: each carries usage
    uint64_t repeatedLines = 0;
    uint64_t replies = 0;  // distinct message ids
    uint64_t userPromptLines = 0;
    uint64_t toolResultLines = 0;
    uint64_t otherLines = 0;
    uint64_t outputTokens = 0;  // final output tokens summed over distinct replies
  };

  enum class LineKind {
    userPrompt,
    toolResult,
    assistant,
    repeatedAssistant,
    progress,
    system,
    summary,
    fileHistorySnapshot,
    queueOperation,
  };

  explicit TranscriptGenerator(uint64_t seed);

  /// Writes one session of about `targetBytes` to `path` (replacing the file): whole lines, each
  /// ended by a line feed, stopping once the target is reached and the open reply is finished.
  /// Throws std::filesystem::filesystem_error when the file cannot be written.
  Stats writeTranscript(const std::filesystem::path& path, uint64_t targetBytes,
                        const Options& options);

  /// Starts a new session: the per-line builders below then write its lines.
  void beginSession(const Options& options);

  /// The session's next line in a realistic order; returns its kind. Every builder appends one
  /// complete line with its line feed to `out`, advances the session clock and counts the line
  /// in `stats()`.
  LineKind appendNextLine(std::string& out);

  void appendUserPromptLine(std::string& out);
  /// A tool result of about `targetBytes` (never less than the fixed fields need).
  void appendToolResultLine(std::string& out, size_t targetBytes);
  /// The next line of the open reply, or the first line of a new one.
  void appendAssistantLine(std::string& out);
  /// A verbatim copy of a recent assistant line (a new assistant line when there is none).
  void appendRepeatedAssistantLine(std::string& out);
  void appendProgressLine(std::string& out);
  void appendSystemLine(std::string& out);
  void appendSummaryLine(std::string& out);
  void appendFileHistorySnapshotLine(std::string& out);
  void appendQueueOperationLine(std::string& out);

  /// Whether a reply has lines still to be written.
  bool replyOpen() const { return reply_.linesLeft > 0; }
  /// What the builders wrote since the session began.
  const Stats& stats() const { return stats_; }
  /// The session clock: the instant of the latest line, in milliseconds since 1970.
  int64_t clockMillis() const { return clockMillis_; }

  /// Appends `raw` as a JSON string literal: quotes, backslashes and control characters escaped,
  /// other bytes (UTF-8 included) as they are.
  static void appendJsonString(std::string& out, std::string_view raw);
  /// Appends milliseconds since 1970 as YYYY-MM-DDTHH:MM:SS.mmmZ.
  static void appendTimestamp(std::string& out, int64_t unixMillis);

 private:
  enum class Block { thinking, text, toolUse };

  struct Reply {
    std::string messageId;
    std::string requestId;
    std::string model;
    int64_t inputTokens = 0;
    int64_t cacheRead = 0;
    int64_t cacheWrite = 0;
    int64_t finalOutput = 0;
    int64_t outputSoFar = 0;
    std::vector<Block> blocks;
    size_t next = 0;
    int linesLeft = 0;
  };

  void startReply();
  void finishLine(std::string& out, size_t lineStart);
  void appendHeader(std::string& out, bool withSlug);
  void appendTail(std::string& out, std::string_view uuid);
  void appendUsage(std::string& out, int64_t outputTokens);
  void appendContentBlock(std::string& out, Block block);
  void advanceClock(int64_t minMillis, int64_t maxMillis);
  std::string newUuid();
  std::string newBase62Id(std::string_view prefix, size_t length);
  std::string_view pick(const std::vector<std::string_view>& words);
  size_t toolResultSize();

  // Raw (unescaped) text builders; each appends whole lines until about `bytes` are written.
  void appendCodeText(std::string& raw, size_t bytes);
  void appendShellText(std::string& raw, size_t bytes);
  void appendProse(std::string& raw, size_t bytes, bool markdown);
  void appendCodeLine(std::string& raw);
  void appendShellLine(std::string& raw);
  void appendSentence(std::string& raw);
  void appendIdentifier(std::string& raw);
  void appendPath(std::string& raw);
  void appendNumber(std::string& raw, int64_t low, int64_t high);

  SplitMix64 random_;
  Options options_;
  Stats stats_;
  std::string sessionId_;
  std::string slug_;
  std::string parentUuid_;
  std::string lastAssistantUuid_;
  std::deque<std::string> openToolUses_;
  std::deque<std::string> recentAssistantLines_;
  int64_t clockMillis_ = 0;
  int64_t contextTokens_ = 0;
  bool oneHourCache_ = false;
  double replyStartChance_ = 0;
  Reply reply_;
  std::string scratch_;   // raw text before escaping, reused from line to line
  std::string numbered_;  // a file's text with line numbers, as a read shows it
};

}  // namespace brimlog
