#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "ingest/UsageIngestor.hpp"

namespace brimlog {

/// The progress line of a long ingestion pass on standard error:
///
///     [##########..........] 1,024/2,000 files  512.0 MB/1.0 GB  45,210 replies
///
/// Drawn only when the stream is a terminal and the pass has run for about a second, redrawn at
/// most ten times a second, and wiped when the pass ends, so quick passes and pipes see nothing.
class ProgressBar {
 public:
  explicit ProgressBar(std::FILE* stream = stderr);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void update(const IngestProgress& progress);
  /// The line of a pass counted in `unit`s, such as a share's days: "[####....] 120/365 days".
  void update(int64_t done, int64_t total, std::string_view unit);
  /// Removes the line, if one was drawn.
  void finish();

 private:
  /// Whether a line is to be drawn now: on a terminal, a second in, a tenth after the last.
  bool due();
  void draw(double fraction, const std::string& figures);

  std::FILE* stream_;
  bool enabled_;
  bool drawn_ = false;
  std::chrono::steady_clock::time_point started_;
  std::chrono::steady_clock::time_point lastDrawn_;
};

}  // namespace brimlog
