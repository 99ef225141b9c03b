#include "output/ProgressBar.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "output/TextTable.hpp"

namespace brimlog {

ProgressBar::ProgressBar(std::FILE* stream)
    : stream_(stream),
      enabled_(::isatty(::fileno(stream)) != 0),
      started_(std::chrono::steady_clock::now()) {}

ProgressBar::~ProgressBar() { finish(); }

void ProgressBar::update(const IngestProgress& progress) {
  if (!enabled_) return;
  const auto now = std::chrono::steady_clock::now();
  if (now - started_ < std::chrono::seconds(1)) return;
  if (drawn_ && now - lastDrawn_ < std::chrono::milliseconds(100)) return;
  lastDrawn_ = now;

  constexpr int kWidth = 20;
  const double fraction =
      progress.bytesTotal > 0
          ? std::clamp(
                static_cast<double>(progress.bytesRead) / static_cast<double>(progress.bytesTotal),
                0.0, 1.0)
          : (progress.filesTotal > 0 ? static_cast<double>(progress.filesDone) /
                                           static_cast<double>(progress.filesTotal)
                                     : 1.0);
  const int filled = static_cast<int>(fraction * kWidth);
  const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                          std::string(static_cast<size_t>(kWidth - filled), '.');
  const std::string line = fmt::format(
      "[{}] {}/{} files  {}/{}  {} replies", bar,
      formatCount(static_cast<int64_t>(progress.filesDone)),
      formatCount(static_cast<int64_t>(progress.filesTotal)), formatBytes(progress.bytesRead),
      formatBytes(progress.bytesTotal), formatCount(progress.newEvents));
  fmt::print(stream_, "\r\033[K{}", line);
  std::fflush(stream_);
  drawn_ = true;
}

void ProgressBar::finish() {
  if (!drawn_) return;
  fmt::print(stream_, "\r\033[K");
  std::fflush(stream_);
  drawn_ = false;
}

}  // namespace brimlog
