#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <vector>

namespace brimlog {

/// The console report, followed at the end of the run by one summary table in registration
/// order: per benchmark its median throughput in GB/s (10^9 bytes per second), its ratio to each
/// reference benchmark, and the medians of its peak_RSS and events counters. Without repetitions
/// the single run stands in for the median.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  struct Reference {
    std::string label;  // the column's heading
    std::string name;   // the benchmark's full name, e.g. "parseLines/real_time"
  };

  SummaryReporter(OutputOptions options, std::vector<Reference> references);

  void ReportRuns(const std::vector<Run>& reports) override;
  void Finalize() override;

 private:
  struct Row {
    std::string name;
    int64_t family = 0;
    int64_t instance = 0;
    bool fromMedian = false;
    double bytesPerSecond = 0;
    benchmark::UserCounters counters;
  };

  Row& row(const std::string& name);

  std::vector<Reference> references_;
  std::vector<Row> rows_;
};

}  // namespace brimlog
