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

bool ProgressBar::due() {
  if (!enabled_) return false;
  const auto now = std::chrono::steady_clock::now();
  if (now - started_ < std::chrono::seconds(1)) return false;
  if (drawn_ && now - lastDrawn_ < std::chrono::milliseconds(100)) return false;
  lastDrawn_ = now;
  return true;
}

void ProgressBar::draw(double fraction, const std::string& figures) {
  constexpr int kWidth = 20;
  const int filled = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * kWidth);
  const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                          std::string(static_cast<size_t>(kWidth - filled), '.');
  fmt::print(stream_, "\r\033[K[{}] {}", bar, figures);
  std::fflush(stream_);
  drawn_ = true;
}

void ProgressBar::update(const IngestProgress& progress) {
  if (!due()) return;
  const double fraction =
      progress.bytesTotal > 0
          ? static_cast<double>(progress.bytesRead) / static_cast<double>(progress.bytesTotal)
          : (progress.filesTotal > 0 ? static_cast<double>(progress.filesDone) /
                                           static_cast<double>(progress.filesTotal)
                                     : 1.0);
  draw(fraction, fmt::format("{}/{} files  {}/{}  {} replies",
                             formatCount(static_cast<int64_t>(progress.filesDone)),
                             formatCount(static_cast<int64_t>(progress.filesTotal)),
                             formatBytes(progress.bytesRead), formatBytes(progress.bytesTotal),
                             formatCount(progress.newEvents)));
}

void ProgressBar::update(int64_t done, int64_t total, std::string_view unit) {
  if (!due()) return;
  draw(total > 0 ? static_cast<double>(done) / static_cast<double>(total) : 1.0,
       fmt::format("{}/{} {}", formatCount(done), formatCount(total), unit));
}

void ProgressBar::finish() {
  if (!drawn_) return;
  fmt::print(stream_, "\r\033[K");
  std::fflush(stream_);
  drawn_ = false;
}

}  // namespace brimlog
