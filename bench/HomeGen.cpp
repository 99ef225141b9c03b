// brimlog_home_gen: writes a synthetic home directory full of coding-tool logs (see
// HomeGenerator.hpp), for benchmarks of a whole `brimlog sync`.
//
//   brimlog_home_gen --out DIR [--bytes N] [--files N] [--days N] [--seed N]
//                    [--end-date YYYY-MM-DD] [--codex-files N] [--grok-files N]
//
// DIR must be missing or empty. The same options give the same bytes (with --end-date given;
// its default is today).

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "HomeGenerator.hpp"

int main(int argc, char** argv) {
  using namespace brimlog;
  namespace fs = std::filesystem;

  CLI::App app{"Writes a synthetic home directory of Claude Code, Codex and Grok Build logs.",
               "brimlog_home_gen"};
  HomeGenerator::Options options;
  std::string out;
  std::string endDate;
  uint64_t seed = 1;
  app.add_option("--out", out, "The home directory to write; must be missing or empty")
      ->required()
      ->type_name("DIR");
  app.add_option("--bytes", options.totalBytes,
                 "Bytes of all logs together, about; K, M and G suffixes are powers of 1000")
      ->transform(CLI::AsSizeValue(true))
      ->capture_default_str();
  app.add_option("--files", options.claudeFiles, "Claude Code transcripts, subagents included")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  app.add_option("--days", options.days, "Days the sessions spread over")
      ->check(CLI::Range(1, 36'500))
      ->capture_default_str();
  app.add_option("--seed", seed, "Seed of every random choice")->capture_default_str();
  app.add_option("--end-date", endDate, "The last day of sessions, UTC (default: today)")
      ->type_name("YYYY-MM-DD");
  app.add_option("--codex-files", options.codexFiles, "Codex rollouts")->capture_default_str();
  app.add_option("--grok-files", options.grokFiles, "Grok Build sessions")->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  if (endDate.empty()) {
    options.endDay = HomeGenerator::today();
  } else if (const auto day = HomeGenerator::dayNumber(endDate)) {
    options.endDay = *day;
  } else {
    fmt::print(stderr, "brimlog_home_gen: --end-date {} is not a date of the form YYYY-MM-DD\n",
               endDate);
    return 2;
  }
  std::error_code error;
  if (fs::exists(out, error) && !fs::is_empty(out, error)) {
    fmt::print(stderr, "brimlog_home_gen: {} is not empty; give a new directory\n", out);
    return 2;
  }

  try {
    const auto started = std::chrono::steady_clock::now();
    const HomeGenerator::Stats s = HomeGenerator{seed}.write(out, options);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    auto day = [](int64_t millis) {
      const std::chrono::sys_days date{std::chrono::days{millis / 86'400'000}};
      const std::chrono::year_month_day ymd{date};
      return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(ymd.year()),
                         static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    };
    fmt::print(
        "wrote {} in {:.1f} s: {} files, {} bytes ({:.3f} GB)\n"
        "  claude: {} files ({} subagents, {} resumed) in {} projects, {} bytes; file sizes: "
        "median {}, p90 {}, p99 {}, largest {}; the largest 1% hold {:.0f}% of the bytes\n"
        "  lines: {}; claude lines with usage: {} ({} replies, {} verbatim repeats, {} copied "
        "into resumed sessions)\n"
        "  codex: {} rollouts ({} model calls, {} token_count events); grok: {} sessions ({} "
        "turns, {} model usages)\n"
        "  sessions from {} to {} (seed {})\n",
        out, seconds, s.files, s.bytes, static_cast<double>(s.bytes) / 1e9, s.claudeFiles,
        s.subagentFiles, s.resumedFiles, s.projects, s.claudeBytes, s.medianFileBytes,
        s.p90FileBytes, s.p99FileBytes, s.largestFileBytes, 100 * s.top1PercentShare, s.lines,
        s.assistantLines, s.replies, s.repeatedLines, s.copiedLines, s.codexFiles, s.codexCalls,
        s.codexTokenCounts, s.grokFiles, s.grokTurns, s.grokModelUsages, day(s.firstMillis),
        day(s.lastMillis), seed);
    return 0;
  } catch (const std::exception& e) {
    fmt::print(stderr, "brimlog_home_gen: {}\n", e.what());
    return 1;
  }
}
