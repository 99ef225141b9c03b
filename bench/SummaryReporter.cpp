#include "SummaryReporter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <utility>

namespace brimlog {

SummaryReporter::SummaryReporter(OutputOptions options, std::string reference)
    : ConsoleReporter(options), reference_(std::move(reference)) {}

void SummaryReporter::ReportRuns(const std::vector<Run>& reports) {
  ConsoleReporter::ReportRuns(reports);
  for (const Run& run : reports) {
    const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
    // The store's benchmarks count no bytes; they are left to the console lines above.
    if (run.error_occurred || !(median || run.run_type == Run::RT_Iteration) ||
        !run.counters.contains("bytes_per_second")) {
      continue;
    }
    const std::string name = run.run_name.str();
    auto row =
        std::find_if(rows_.begin(), rows_.end(), [&](const Row& r) { return r.name == name; });
    if (row == rows_.end()) {
      row = rows_.insert(rows_.end(), Row{});
      row->name = name;
      row->order = run.family_index * 1000 + run.per_family_instance_index;
    }
    if (row->fromMedian) continue;  // the median, once known, wins over single runs
    row->fromMedian = median;
    row->counters = run.counters;
    row->cpuShare = run.cpu_accumulated_time / run.real_accumulated_time;
  }
}

void SummaryReporter::Finalize() {
  std::ostream& out = GetOutputStream();
  std::sort(rows_.begin(), rows_.end(),
            [](const Row& a, const Row& b) { return a.order < b.order; });
  const auto counter = [](const Row& row, const char* name) {
    const auto found = row.counters.find(name);
    return found == row.counters.end() ? 0.0 : found->second.value;
  };
  const auto reference =
      std::find_if(rows_.begin(), rows_.end(), [&](const Row& r) { return r.name == reference_; });
  const double base = reference == rows_.end() ? 0 : counter(*reference, "bytes_per_second");
  size_t width = 9;
  for (const Row& row : rows_) width = std::max(width, row.name.size());
  out << fmt::format("\n{:<{}}  {:>8}  {:>8}  {:>8}  {:>9}  {:>8}\n", "benchmark", width, "GB/s",
                     "vs (a)", "CPU GB/s", "peak RSS", "events");
  for (const Row& row : rows_) {
    const double rate = counter(row, "bytes_per_second");
    out << fmt::format("{:<{}}  {:>8.3f}  {:>8}  {:>8.3f}  {:>7.1f}Mi  {:>8.0f}{}\n", row.name,
                       width, rate / 1e9,
                       base > 0 ? fmt::format("{:.1f}%", 100 * rate / base) : "-",
                       rate / row.cpuShare / 1e9, counter(row, "peak_RSS") / (1 << 20),
                       counter(row, "events"), row.fromMedian ? "" : "  (single run)");
  }
  out << "GB/s: 10^9 bytes per second of wall time (CPU GB/s: of CPU time). vs (a): ratio to "
      << reference_ << ".\n";
  ConsoleReporter::Finalize();
}

}  // namespace brimlog
