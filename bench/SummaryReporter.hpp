#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace brimlog {

/// The console report, followed at the end of the run by one table of the benchmarks that read
/// bytes, in registration order: each one's median throughput in GB/s (10^9 bytes per second) of
/// wall time and of CPU time (which other work on the machine disturbs less), its ratio to the
/// reference benchmark, and the medians of its peak_RSS and events counters.
/// Without repetitions the single run stands in for the median.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  /// `reference` is a benchmark's full name, e.g. "simdjsonChunked/maxBytes:4194304/real_time".
  SummaryReporter(OutputOptions options, std::string reference);

  void ReportRuns(const std::vector<Run>& reports) override;
  void Finalize() override;

 private:
  struct Row {
    std::string name;
    int64_t order = 0;  // registration order: family, then instance
    bool fromMedian = false;
    double cpuShare = 1;  // CPU time / wall time
    benchmark::UserCounters counters;
  };

  std::string reference_;
  std::vector<Row> rows_;
};

}  // namespace brimlog
