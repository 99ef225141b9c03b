// Throughput of reading a Claude Code transcript: the log reader (JSONLTail) feeding the
// transcript parser (ClaudeLogParser), against a plain simdjson baseline that reads the same file
// and parses every line in place. Both read from the page cache, on one thread.
//
//   brimlog_bench --data=FILE [benchmark flags]     runs the benchmarks on FILE
//   brimlog_bench --generate=FILE [--bytes=N] [--seed=S]
//                                                   writes a synthetic transcript and exits
//
// FILE may also come from the BRIMLOG_BENCH_DATA environment variable. bench/run-bench does
// both steps.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <malloc.h>
#include <simdjson.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
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

#include "SummaryReporter.hpp"
#include "TranscriptGenerator.hpp"
#include "ingest/ClaudeLogParser.hpp"
#include "ingest/JSONLTail.hpp"
#include "platform/FileDescriptor.hpp"

namespace brimlog {
namespace {

std::filesystem::path& dataPath() {
  static std::filesystem::path path;
  return path;
}

// Peak resident memory is measured per benchmark: freed heap memory is handed back to the
// system (so what an earlier benchmark left in malloc's free lists does not count), then the
// kernel's high-water mark is reset (writing 5 to /proc/self/clear_refs) and read from VmHWM
// afterwards. Where the reset is refused the figure is the whole process's peak so far.
bool resetPeakResident() {
  ::malloc_trim(0);
  const FileDescriptor fd{::open("/proc/self/clear_refs", O_WRONLY | O_CLOEXEC)};
  return fd && ::write(fd.get(), "5", 1) == 1;
}

double peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) * 1024;
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

void reportCounters(benchmark::State& state, uint64_t bytes, uint64_t lines, uint64_t events) {
  using benchmark::Counter;
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
  state.counters["lines"] = Counter(static_cast<double>(lines), Counter::kAvgIterations);
  state.counters["events"] = Counter(static_cast<double>(events), Counter::kAvgIterations);
  state.counters["peak_RSS"] = Counter(peakResidentBytes(), Counter::kDefaults, Counter::kIs1024);
}

// Reads the whole file into `buffer` (at least `size` bytes long) from its start; returns the
// bytes read.
size_t readWhole(const std::filesystem::path& path, char* buffer, size_t size) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!fd) return 0;
  size_t have = 0;
  while (have < size) {
    const ssize_t n = ::pread(fd.get(), buffer + have, size - have, static_cast<off_t>(have));
    if (n <= 0) break;
    have += static_cast<size_t>(n);
  }
  return have;
}

// Parses every line of buffer[0, size) in place; the bytes after each line must be readable
// for simdjson's padding (the next lines, then the buffer's own padding). Returns false on the
// first invalid line.
bool parseLines(simdjson::dom::parser& parser, const char* buffer, size_t size, uint64_t& lines,
                uint64_t& objects) {
  const char* start = buffer;
  const char* const end = buffer + size;
  while (start < end) {
    const auto* feed = static_cast<const char*>(std::memchr(start, '\n', end - start));
    if (feed == nullptr) feed = end;
    size_t length = static_cast<size_t>(feed - start);
    if (length > 0 && start[length - 1] == '\r') --length;
    if (length > 0) {
      simdjson::dom::element root;
      if (parser.parse(start, length, false).get(root) != simdjson::SUCCESS) return false;
      ++lines;
      if (root.is_object()) ++objects;
    }
    start = feed + 1;
  }
  return true;
}

// (a) The baseline: the whole file read into one padded buffer, split at line feeds, every line
// parsed in place by simdjson's DOM parser. The buffer is allocated and touched once before the
// timed loop, so the loop measures reading and parsing, not page faults of fresh memory.
void simdjsonBaseline(benchmark::State& state) {
  const auto& path = dataPath();
  std::error_code error;
  const auto size = static_cast<size_t>(std::filesystem::file_size(path, error));
  if (error) {
    state.SkipWithError("cannot examine the data file");
    return;
  }
  resetPeakResident();
  simdjson::padded_string buffer(size);
  std::memset(buffer.data(), ' ', size);
  simdjson::dom::parser parser;
  uint64_t bytes = 0, lines = 0, objects = 0;
  for (auto _ : state) {
    const size_t have = readWhole(path, buffer.data(), size);
    if (have != size) {
      state.SkipWithError("short read of the data file");
      break;
    }
    if (!parseLines(parser, buffer.data(), have, lines, objects)) {
      state.SkipWithError("a line is not valid JSON");
      break;
    }
    bytes += have;
  }
  benchmark::DoNotOptimize(objects);
  reportCounters(state, bytes, lines, 0);
}

// (a') The same with a fresh simdjson::padded_string::load per pass: what the baseline costs
// when it also allocates (and page-faults) a buffer the size of the file every time.
void simdjsonBaselineLoad(benchmark::State& state) {
  resetPeakResident();
  simdjson::dom::parser parser;
  uint64_t bytes = 0, lines = 0, objects = 0;
  for (auto _ : state) {
    simdjson::padded_string buffer;
    if (simdjson::padded_string::load(dataPath().string()).get(buffer) != simdjson::SUCCESS) {
      state.SkipWithError("cannot load the data file");
      break;
    }
    if (!parseLines(parser, buffer.data(), buffer.size(), lines, objects)) {
      state.SkipWithError("a line is not valid JSON");
      break;
    }
    bytes += buffer.size();
  }
  benchmark::DoNotOptimize(objects);
  reportCounters(state, bytes, lines, 0);
}

// Reads the file in chunks of `request` bytes into `buffer` (grown when one line does not fit;
// `padding` bytes stay free after the chunk), cuts each chunk after its last line feed and reads
// the next one from there, as JSONLTail does. Calls `consume(bytes, size, capacity)` for each
// run of whole lines; `capacity` counts the readable bytes from `bytes` on. Returns the bytes
// consumed, or -1 when the file cannot be opened or `consume` returns false.
template <typename Consume>
int64_t readInChunks(const std::filesystem::path& path, size_t request, std::vector<char>& buffer,
                     size_t padding, Consume consume) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!fd) return -1;
  int64_t offset = 0;
  for (bool atEOF = false; !atEOF;) {
    if (buffer.size() < request + padding) buffer.resize(request + padding);
    size_t have = 0;
    while (have < request) {
      const ssize_t n = ::pread(fd.get(), buffer.data() + have, request - have,
                                offset + static_cast<off_t>(have));
      if (n <= 0) break;
      have += static_cast<size_t>(n);
    }
    atEOF = have < request;
    const auto* last = static_cast<const char*>(::memrchr(buffer.data(), '\n', have));
    if (last == nullptr && !atEOF) {  // a line longer than the request: double it and retry
      request *= 2;
      continue;
    }
    const size_t used = last == nullptr ? 0 : static_cast<size_t>(last + 1 - buffer.data());
    if (!consume(buffer.data(), used, buffer.size())) return -1;
    offset += static_cast<int64_t>(used);
  }
  return offset;
}

// (a2) simdjson with the reader's own I/O pattern: chunks of `maxBytes` read into one reused
// padded buffer and parsed by the DOM parser line by line. Compared with (b) it shows what
// JSONLTail and ClaudeLogParser add on top of parsing alone; compared with (a) it shows what
// reading in cache-sized chunks gains over reading the whole file first.
void simdjsonChunked(benchmark::State& state) {
  const auto request = static_cast<size_t>(state.range(0));
  resetPeakResident();
  std::vector<char> buffer;
  simdjson::dom::parser parser;
  uint64_t bytes = 0, lines = 0, objects = 0;
  for (auto _ : state) {
    const int64_t consumed = readInChunks(dataPath(), request, buffer, simdjson::SIMDJSON_PADDING,
                                          [&](const char* data, size_t size, size_t) {
                                            return parseLines(parser, data, size, lines, objects);
                                          });
    if (consumed < 0) {
      state.SkipWithError("cannot read the data file, or a line is not valid JSON");
      break;
    }
    bytes += static_cast<uint64_t>(consumed);
  }
  benchmark::DoNotOptimize(objects);
  reportCounters(state, bytes, lines, 0);
}

// Reads the data file as the product does, JSONLTail::read in chunks of `maxBytes` until the end,
// and runs ClaudeLogParser::event on every line that `skip` does not settle first.
template <typename Skip>
void parseClaudeTranscript(benchmark::State& state, Skip skip) {
  const auto& path = dataPath();
  const int64_t maxBytes = state.range(0);
  resetPeakResident();
  uint64_t bytes = 0, lines = 0, events = 0;
  int64_t outputTokens = 0;
  try {
    for (auto _ : state) {
      std::optional<FileCursor> cursor;
      for (;;) {
        // Declared inside the loop so the previous batch is freed before the next read.
        JSONLTail::Result result = JSONLTail::read(path, cursor, maxBytes);
        for (PaddedLine line : result.lines) {
          ++lines;
          if (skip(line)) continue;
          if (const auto event = ClaudeLogParser::event(line)) {
            ++events;
            outputTokens += event->tokens.output;
          }
        }
        cursor = std::move(result.cursor);
        if (result.atEOF) break;
      }
      bytes += static_cast<uint64_t>(cursor->offset);
    }
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
  }
  benchmark::DoNotOptimize(outputTokens);
  reportCounters(state, bytes, lines, events);
}

// (b) The product path: ClaudeLogParser::event on every line where it lies.
void jsonlTailClaude(benchmark::State& state) {
  parseClaudeTranscript(state, [](PaddedLine) { return false; });
}

// (c) JSONLTail::read alone, parsing nothing: the reader's share of (b).
void jsonlTailReadOnly(benchmark::State& state) {
  const auto& path = dataPath();
  const int64_t maxBytes = state.range(0);
  resetPeakResident();
  uint64_t bytes = 0, lines = 0;
  try {
    for (auto _ : state) {
      std::optional<FileCursor> cursor;
      for (;;) {
        JSONLTail::Result result = JSONLTail::read(path, cursor, maxBytes);
        lines += result.lines.size();
        cursor = std::move(result.cursor);
        if (result.atEOF) break;
      }
      bytes += static_cast<uint64_t>(cursor->offset);
    }
  } catch (const std::exception& e) {
    state.SkipWithError(e.what());
  }
  reportCounters(state, bytes, lines, 0);
}

// Whether a line can be skipped without the full parse: its first top-level "type" key holds a
// string other than "assistant", read with simdjson's On-Demand API, which indexes the line but
// decodes only that one value (the long strings of tool results are skipped, not copied and
// unescaped). Anything else keeps the line for the full parse, so the outcome stays the full
// parser's own: invalid JSON, no "type" string, or a top-level key written with an escape (the
// full parser matches keys after unescaping, On-Demand before, so "typ\u0065" could differ).
bool skippableLine(simdjson::ondemand::parser& parser, PaddedLine line) {
  simdjson::ondemand::document doc;
  simdjson::ondemand::object root;
  if (parser.iterate(line.bytes.data(), line.bytes.size(), line.bytes.size() + LineBatch::kPadding)
              .get(doc) != simdjson::SUCCESS ||
      doc.get_object().get(root) != simdjson::SUCCESS) {
    return false;
  }
  std::optional<std::string_view> type;
  for (auto result : root) {
    simdjson::ondemand::field field;
    if (std::move(result).get(field) != simdjson::SUCCESS) return false;
    // The key's raw bytes end at the first quote unless a backslash comes before it.
    const char* key = field.key().raw();
    size_t length = 0;
    for (; key[length] != '"'; ++length) {
      if (key[length] == '\\') return false;
    }
    if (!type && std::string_view(key, length) == "type") {
      std::string_view value;
      if (field.value().get_string().get(value) != simdjson::SUCCESS) return false;
      type = value;
    }
  }
  return type && *type != "assistant";
}

// (d) An exploration, not a product path: (b) with the On-Demand check above in front of
// ClaudeLogParser::event. Measures what such a pre-check in the parser would gain.
void jsonlTailClaudePrechecked(benchmark::State& state) {
  simdjson::ondemand::parser parser;
  parseClaudeTranscript(state, [&parser](PaddedLine line) { return skippableLine(parser, line); });
}

BENCHMARK(simdjsonBaseline)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(simdjsonBaselineLoad)->Unit(benchmark::kMillisecond)->UseRealTime();
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
BENCHMARK(jsonlTailClaudePrechecked)
    ->ArgName("maxBytes")
    ->Arg(4 << 20)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Reads the file once so that every benchmark finds it in the page cache.
bool warmPageCache(const std::filesystem::path& path, uint64_t& size) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
  if (!fd) return false;
  ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_WILLNEED);
  std::vector<char> chunk(1 << 20);
  size = 0;
  for (;;) {
    const ssize_t n = ::read(fd.get(), chunk.data(), chunk.size());
    if (n < 0) return false;
    if (n == 0) return true;
    size += static_cast<uint64_t>(n);
  }
}

int generate(const std::string& path, uint64_t bytes, uint64_t seed) {
  try {
    TranscriptGenerator generator(seed);
    const auto s = generator.writeTranscript(path, bytes, TranscriptGenerator::Options{});
    fmt::print(
        "wrote {}: {} bytes, {} lines: {} assistant ({} replies, {} verbatim repeats), {} tool "
        "results, {} prompts, {} other; {} output tokens\n",
        path, s.bytes, s.lines, s.assistantLines, s.replies, s.repeatedLines, s.toolResultLines,
        s.userPromptLines, s.otherLines, s.outputTokens);
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
  std::string data;
  if (const char* env = std::getenv("BRIMLOG_BENCH_DATA")) data = env;
  std::string generateTo;
  uint64_t bytes = 200ULL << 20;
  uint64_t seed = 1;

  // Our own flags are taken out; the rest goes to Google Benchmark.
  std::vector<char*> rest{argv[0]};
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const auto value = [&](std::string_view flag) -> std::optional<std::string_view> {
      if (arg.substr(0, flag.size()) != flag) return std::nullopt;
      return arg.substr(flag.size());
    };
    if (auto v = value("--data=")) {
      data = *v;
    } else if (auto v = value("--generate=")) {
      generateTo = *v;
    } else if (auto v = value("--bytes=")) {
      bytes = std::strtoull(std::string(*v).c_str(), nullptr, 10);
    } else if (auto v = value("--seed=")) {
      seed = std::strtoull(std::string(*v).c_str(), nullptr, 10);
    } else {
      rest.push_back(argv[i]);
    }
  }
  if (!generateTo.empty()) return generate(generateTo, bytes, seed);

  if (data.empty()) {
    fmt::print(stderr,
               "brimlog_bench: no transcript (--data=FILE or BRIMLOG_BENCH_DATA; bench/run-bench "
               "makes one): the transcript benchmarks are skipped\n");
  } else {
    dataPath() = data;
    uint64_t size = 0;
    if (!warmPageCache(dataPath(), size)) {
      fmt::print(stderr, "brimlog_bench: cannot read {}\n", data);
      return 1;
    }
    fmt::print("data: {} ({:.1f} MiB, in the page cache); simdjson {}.{}.{}, kernel {}\n", data,
               static_cast<double>(size) / (1 << 20), int(simdjson::SIMDJSON_VERSION_MAJOR),
               int(simdjson::SIMDJSON_VERSION_MINOR), int(simdjson::SIMDJSON_VERSION_REVISION),
               simdjson::get_active_implementation()->name());
  }
  fmt::print("peak_RSS: {}\n", resetPeakResident()
                                   ? "per benchmark (high-water mark reset before each)"
                                   : "whole process so far (the high-water mark cannot be reset)");

  int restCount = static_cast<int>(rest.size());
  benchmark::Initialize(&restCount, rest.data());
  if (benchmark::ReportUnrecognizedArguments(restCount, rest.data())) return 1;
  const auto options = ::isatty(STDOUT_FILENO) ? benchmark::ConsoleReporter::OO_ColorTabular
                                               : benchmark::ConsoleReporter::OO_Tabular;
  SummaryReporter reporter(options, {{"vs (a)", "simdjsonBaseline/real_time"},
                                     {"vs (a2)", "simdjsonChunked/maxBytes:4194304/real_time"}});
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
