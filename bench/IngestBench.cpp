// Throughput of reading a Claude Code transcript on one thread: the log reader (JSONLTail) feeding
// the transcript parser (ClaudeLogParser), against bare simdjson reading the same file in the
// same chunks and parsing every line in place. The file is read from the page cache.
//
//   brimlog_bench --data=FILE [benchmark flags]    runs the benchmarks on FILE (or on the file
//                                                  named by BRIMLOG_BENCH_DATA)
//   brimlog_bench --generate=FILE [--bytes=N] [--seed=S]
//                                                  writes a synthetic transcript and exits

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <simdjson.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "HomeGenerator.hpp"
#include "SummaryReporter.hpp"
#include "ingest/JSONLTail.hpp"
#include "ingest/claude/ClaudeLogParser.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

std::filesystem::path dataPath;
uint64_t dataBytes = 0;

// Peak resident memory per benchmark: freed heap memory goes back to the system, the kernel's
// high-water mark is reset (5 to /proc/self/clear_refs) and read from VmHWM afterwards. Where the
// reset is refused, the figure is the whole process's peak so far.
bool resetPeakResident() {
  ::malloc_trim(0);
  const FileDescriptor fd{::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC)};
  return fd && ::write(fd.get(), "5", 1) == 1;
}

void reportCounters(benchmark::State& state, uint64_t lines, uint64_t events) {
  using benchmark::Counter;
  double peak = 0;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) peak = std::strtod(line.c_str() + 6, nullptr) * 1024;
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(dataBytes));
  state.counters["lines"] = Counter(static_cast<double>(lines), Counter::kAvgIterations);
  state.counters["events"] = Counter(static_cast<double>(events), Counter::kAvgIterations);
  state.counters["peak_RSS"] = Counter(peak, Counter::kDefaults, Counter::kIs1024);
}

// (a) The baseline: bare simdjson with the reader's I/O pattern. Chunks of `maxBytes` are read
// into one reused padded buffer, each cut after its last line feed (the next chunk is read from
// there), and every line is parsed in place by the DOM parser, its error checked.
void simdjsonChunked(benchmark::State& state) {
  resetPeakResident();
  auto request = static_cast<size_t>(state.range(0));
  std::vector<char> buffer;
  simdjson::dom::parser parser;
  uint64_t lines = 0;
  for (auto _ : state) {
    const FileDescriptor fd{::open(dataPath.c_str(), O_RDONLY | O_CLOEXEC)};
    off_t offset = 0;
    for (bool atEOF = !fd; !atEOF;) {
      buffer.resize(request + simdjson::SIMDJSON_PADDING);
      size_t have = 0;
      while (have < request) {
        const ssize_t n = ::pread(fd.get(), buffer.data() + have, request - have,
                                  offset + static_cast<off_t>(have));
        if (n <= 0) break;
        have += static_cast<size_t>(n);
      }
      atEOF = have < request;
      const auto* last = static_cast<const char*>(::memrchr(buffer.data(), '\n', have));
      if (last == nullptr && !atEOF) {  // a line longer than the request
        request *= 2;
        continue;
      }
      const char* const end = last == nullptr ? buffer.data() : last + 1;
      for (const char* start = buffer.data(); start < end;) {
        const auto* feed = static_cast<const char*>(std::memchr(start, '\n', end - start));
        if (feed > start) {
          if (parser.parse(start, static_cast<size_t>(feed - start), false).error()) {
            state.SkipWithError("a line is not valid JSON");
            return;
          }
          ++lines;
        }
        start = feed + 1;
      }
      offset += end - buffer.data();
    }
    if (static_cast<uint64_t>(offset) != dataBytes) state.SkipWithError("cannot read the data");
  }
  reportCounters(state, lines, 0);
}

// (b) and (c): JSONLTail::read in chunks of `maxBytes` until the end of the file, as the product
// reads a transcript, with ClaudeLogParser::event on every line when `parse` is set.
void readTranscript(benchmark::State& state, bool parse) {
  resetPeakResident();
  const int64_t maxBytes = state.range(0);
  uint64_t lines = 0, events = 0;
  int64_t outputTokens = 0;
  try {
    for (auto _ : state) {
      std::optional<decltype(JSONLTail::Result::cursor)> cursor;
      for (bool atEOF = false; !atEOF;) {
        // Declared inside the loop, so the previous chunk is freed before the next read.
        JSONLTail::Result result = JSONLTail::read(dataPath, cursor, maxBytes);
        lines += result.lines.size();
        for (size_t i = 0; parse && i < result.lines.size(); ++i) {
          if (const auto event = ClaudeLogParser::event(result.lines[i])) {
            ++events;
            outputTokens += event->tokens.output;
          }
        }
        cursor = std::move(result.cursor);
        atEOF = result.atEOF;
      }
    }
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
  }
  benchmark::DoNotOptimize(outputTokens);
  reportCounters(state, lines, events);
}

// (b) The product path: reader and parser.
void jsonlTailClaude(benchmark::State& state) { readTranscript(state, true); }

// (c) The reader alone: its share of (b).
void jsonlTailReadOnly(benchmark::State& state) { readTranscript(state, false); }

BENCHMARK(simdjsonChunked)
    ->ArgName("maxBytes")
    ->Arg(4 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(jsonlTailClaude)
    ->ArgName("maxBytes")
    ->Arg(1 << 20)
    ->Arg(4 << 20)
    ->Arg(16 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(jsonlTailReadOnly)
    ->ArgName("maxBytes")
    ->Arg(4 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

int generate(const std::string& path, uint64_t bytes, uint64_t seed) {
  try {
    const HomeGenerator::Stats s = HomeGenerator{seed}.writeTranscript(path, bytes);
    fmt::print(
        "wrote {}: {} bytes, {} lines, {} with usage ({} replies, {} verbatim repeats), {} output "
        "tokens\n",
        path, s.bytes, s.lines, s.assistantLines, s.claude.replies, s.repeatedLines,
        s.claude.tokens.output);
    return 0;
  } catch (const std::exception& e) {
    fmt::print(stderr, "brimlog_bench: {}\n", e.what());
    return 1;
  }
}

}  // namespace
}  // namespace brimlog

int main(int argc, char** argv) {
  using namespace brimlog;
  std::string data = std::getenv("BRIMLOG_BENCH_DATA") ? std::getenv("BRIMLOG_BENCH_DATA") : "";
  std::string generateTo;
  uint64_t bytes = 200ULL << 20, seed = 1;
  std::vector<char*> rest{argv[0]};  // our own flags are taken out, the rest is Google Benchmark's
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const auto value = [&](std::string_view flag) -> std::optional<std::string> {
      if (!arg.starts_with(flag)) return std::nullopt;
      return std::string(arg.substr(flag.size()));
    };
    if (auto v = value("--data=")) {
      data = *v;
    } else if (auto v = value("--generate=")) {
      generateTo = *v;
    } else if (auto v = value("--bytes=")) {
      bytes = std::strtoull(v->c_str(), nullptr, 10);
    } else if (auto v = value("--seed=")) {
      seed = std::strtoull(v->c_str(), nullptr, 10);
    } else {
      rest.push_back(argv[i]);
    }
  }
  if (!generateTo.empty()) return generate(generateTo, bytes, seed);

  if (data.empty()) {
    fmt::print(stderr,
               "brimlog_bench: no transcript (--data=FILE or BRIMLOG_BENCH_DATA; "
               "bench/run-bench makes one): the transcript benchmarks are skipped\n");
  } else {
    // Read once, so that every benchmark finds the file in the page cache.
    dataPath = data;
    std::ifstream in(dataPath, std::ios::binary);
    std::vector<char> chunk(1 << 20);
    while (in.read(chunk.data(), static_cast<std::streamsize>(chunk.size())), in.gcount() > 0) {
      dataBytes += static_cast<uint64_t>(in.gcount());
    }
    if (dataBytes == 0) {
      fmt::print(stderr, "brimlog_bench: cannot read {}, or it is empty\n", data);
      return 1;
    }
    fmt::print("data: {} ({:.1f} MiB, in the page cache); simdjson {}.{}.{}, kernel {}\n", data,
               static_cast<double>(dataBytes) / (1 << 20), int{simdjson::SIMDJSON_VERSION_MAJOR},
               int{simdjson::SIMDJSON_VERSION_MINOR}, int{simdjson::SIMDJSON_VERSION_REVISION},
               simdjson::get_active_implementation()->name());
  }
  fmt::print("peak_RSS: {}\n", resetPeakResident()
                                   ? "per benchmark (high-water mark reset before each)"
                                   : "whole process so far (the high-water mark cannot be reset)");

  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) return 1;
  SummaryReporter reporter(::isatty(STDOUT_FILENO) ? benchmark::ConsoleReporter::OO_ColorTabular
                                                   : benchmark::ConsoleReporter::OO_Tabular,
                           "simdjsonChunked/maxBytes:4194304/real_time");
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
