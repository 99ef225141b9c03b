#include "SummaryReporter.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>
#include <utility>

namespace brimlog {

SummaryReporter::SummaryReporter(OutputOptions options, std::vector<Reference> references)
    : ConsoleReporter(options), references_(std::move(references)) {}

SummaryReporter::Row& SummaryReporter::row(const std::string& name) {
  const auto found =
      std::find_if(rows_.begin(), rows_.end(), [&](const Row& r) { return r.name == name; });
  if (found != rows_.end()) return *found;
  rows_.emplace_back();
  rows_.back().name = name;
  return rows_.back();
}

void SummaryReporter::ReportRuns(const std::vector<Run>& reports) {
  ConsoleReporter::ReportRuns(reports);
  for (const Run& run : reports) {
    if (run.error_occurred) continue;
    const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
    const bool single = run.run_type == Run::RT_Iteration;
    if (!median && !single) continue;
    // The table compares reading throughput; benchmarks without bytes (the store's) are left to
    // the console lines above.
    if (!run.counters.contains("bytes_per_second")) continue;
    Row& r = row(run.run_name.str());
    if (single && r.fromMedian) continue;  // the median, once known, wins over single runs
    r.fromMedian = median;
    r.family = run.family_index;
    r.instance = run.per_family_instance_index;
    r.counters = run.counters;
    r.bytesPerSecond = run.counters.at("bytes_per_second").value;
  }
}

void SummaryReporter::Finalize() {
  std::ostream& out = GetOutputStream();
  std::sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) {
    return a.family != b.family ? a.family < b.family : a.instance < b.instance;
  });
  std::vector<double> bases;
  for (const Reference& reference : references_) {
    const auto found = std::find_if(rows_.begin(), rows_.end(),
                                    [&](const Row& r) { return r.name == reference.name; });
    bases.push_back(found == rows_.end() ? 0 : found->bytesPerSecond);
  }

  size_t width = 9;
  for (const Row& r : rows_) width = std::max(width, r.name.size());
  out << '\n' << fmt::format("{:<{}}  {:>8}", "benchmark", width, "GB/s");
  for (const Reference& reference : references_) out << fmt::format("  {:>8}", reference.label);
  out << fmt::format("  {:>9}  {:>8}\n", "peak RSS", "events");
  for (const Row& r : rows_) {
    const auto counter = [&](const char* name) {
      const auto found = r.counters.find(name);
      return found == r.counters.end() ? 0.0 : found->second.value;
    };
    out << fmt::format("{:<{}}  {:>8.3f}", r.name, width, r.bytesPerSecond / 1e9);
    for (const double base : bases) {
      out << fmt::format("  {:>8}", base > 0 ? fmt::format("{:.1f}%", 100 * r.bytesPerSecond / base)
                                             : std::string("-"));
    }
    out << fmt::format("  {:>7.1f}Mi  {:>8.0f}{}\n", counter("peak_RSS") / (1 << 20),
                       counter("events"), r.fromMedian ? "" : "  (single run)");
  }
  out << "GB/s: 10^9 bytes per second.";
  for (const Reference& reference : references_) {
    out << fmt::format(" {}: ratio to {}.", reference.label, reference.name);
  }
  out << '\n';
  ConsoleReporter::Finalize();
}

}  // namespace brimlog
