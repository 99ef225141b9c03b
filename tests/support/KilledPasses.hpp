#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <random>

#include "ingest/UsageIngestor.hpp"

namespace brimlog::testing {

/// Runs `pass` in `times` child processes, each killed with SIGKILL on its reading thread once
/// its pass has made more commits than a point drawn below `upTo` (seeded, so a failure
/// repeats), wherever the committing thread then stands: what a crash or `kill -9` leaves.
/// `pass` gets options that commit often (one worker, small chunks, a batch per event) with the
/// killing progress callback set.
///
///     killPassesAtRandom([&](IngestOptions o) { pass(now, std::move(o)); }, 7, 10, 40);
///     pass(now);  // the resume: totals as if nothing had been cut
inline void killPassesAtRandom(const std::function<void(IngestOptions)>& pass, unsigned seed,
                               int times, size_t upTo) {
  std::mt19937 random{seed};
  std::uniform_int_distribution<size_t> point{0, upTo};
  for (int i = 0; i < times; ++i) {
    const size_t made = point(random);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      IngestOptions options{.workers = 1, .chunkBytes = 2048, .batchEvents = 1, .progress = {}};
      options.progress = [made](const IngestProgress& p) {
        if (p.commits > made) ::raise(SIGKILL);
      };
      pass(std::move(options));
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
  }
}

}  // namespace brimlog::testing
