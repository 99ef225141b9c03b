// brimlog_home_gen: writes a synthetic home of coding-tool logs (see HomeGenerator.hpp) and prints
// what a first `brimlog sync` of it must count, per tool.
//
//   brimlog_home_gen --out DIR [--bytes N] [--files N] [--days N] [--seed N]
//                    [--end-date YYYY-MM-DD] [--tool NAME]
//
// With --tool, only that tool's logs: "claude" (transcripts alone) or a tool of
// `toolHomeWriters`, whose sessions spread over the last 30 days.
// DIR must be missing or empty. The same options give the same bytes (with --end-date given; its
// default is today, UTC). The last line reads `expected new replies: claude=N codex=N grok=N`.

#include <date/date.h>
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <exception>
#include <filesystem>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>

#include "HomeGenerator.hpp"
#include "ToolHomeWriters.hpp"

int main(int argc, char** argv) {
  using namespace brimlog;
  CLI::App app{"Writes a synthetic home of Claude Code, Codex and Grok Build logs.",
               "brimlog_home_gen"};
  HomeGenerator::Options options;
  std::string out, endDate, tool;
  uint64_t seed = 1;
  app.add_option("--out", out, "The home to write; must be missing or empty")
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
  app.add_option("--tool", tool, "Only this tool's logs: claude or a newer tool (gemini, ...)")
      ->type_name("NAME");
  CLI11_PARSE(app, argc, argv);

  date::sys_days end = std::chrono::floor<date::days>(std::chrono::system_clock::now());
  if (!endDate.empty()) {
    std::istringstream in{endDate};
    in >> date::parse("%F", end);
    if (in.fail() || in.peek() != std::char_traits<char>::eof()) {
      fmt::print(stderr, "brimlog_home_gen: --end-date {} is not a date YYYY-MM-DD\n", endDate);
      return 2;
    }
  }
  options.endDay = end.time_since_epoch().count();
  std::error_code error;
  if (std::filesystem::exists(out, error) && !std::filesystem::is_empty(out, error)) {
    fmt::print(stderr, "brimlog_home_gen: {} is not empty; give a new directory\n", out);
    return 2;
  }

  try {
    if (!tool.empty() && tool != "claude") {
      for (const ToolHomeWriterEntry& entry : toolHomeWriters()) {
        if (entry.tool != tool) continue;
        const ToolTotals t = entry.write(out, options.totalBytes, seed, options.endDay);
        fmt::print("wrote {}: {} replies, {} tokens ({} output, {} reasoning)\n", out, t.replies,
                   t.tokens.processed(), t.tokens.output, t.tokens.reasoning);
        fmt::print("expected new replies: {}={}\n", tool, t.replies);
        return 0;
      }
      fmt::print(stderr, "brimlog_home_gen: no generator for the tool {}\n", tool);
      return 2;
    }
    if (tool == "claude") options.codexFiles = options.grokFiles = 0;
    const auto started = std::chrono::steady_clock::now();
    const HomeGenerator::Stats s = HomeGenerator{seed}.write(out, options);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - started;
    fmt::print("wrote {} in {:.1f} s: {} files, {} bytes, {} lines; largest file {} bytes\n", out,
               seconds.count(), s.files, s.bytes, s.lines, s.largestFileBytes);
    fmt::print(
        "  seed {}, last day {}; {} Claude transcripts ({} subagents), {} lines with usage "
        "({} verbatim repeats); {} Codex logs, {} token counts; {} Grok documents\n",
        seed, date::format("%F", end), s.claudeFiles, s.subagentFiles, s.assistantLines,
        s.repeatedLines, s.codexFiles, s.codexTokenCounts, s.grokFiles);
    for (const auto& [name, t] :
         {std::pair{"claude", s.claude}, std::pair{"codex", s.codex}, std::pair{"grok", s.grok}}) {
      fmt::print("  {}: {} replies, {} tokens ({} output, {} reasoning)\n", name, t.replies,
                 t.tokens.processed(), t.tokens.output, t.tokens.reasoning);
    }
    fmt::print("expected new replies: claude={} codex={} grok={}\n", s.claude.replies,
               s.codex.replies, s.grok.replies);
    return 0;
  } catch (const std::exception& e) {
    fmt::print(stderr, "brimlog_home_gen: {}\n", e.what());
    return 1;
  }
}
