#pragma once

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "model/UsageEvent.hpp"

namespace brimlog::fuzz {

/// Ends the run on a broken promise: libFuzzer saves the input that led here as a crash.
[[noreturn]] inline void finding(const std::string& what) {
  std::fprintf(stderr, "FINDING: %s\n", what.c_str());
  std::abort();
}

/// Ends the run when `holds` is false, with the message that `explain()` makes: messages are
/// made only for a finding, so that checking costs the fuzzer nothing else.
template <typename Explain>
void expect(bool holds, Explain&& explain) {
  if (!holds) finding(explain());
}

/// One line per event, enough to tell two results apart in a finding's message.
inline std::string describe(const std::optional<UsageEvent>& event) {
  if (!event) return "nothing";
  const TokenCounts& t = event->tokens;
  return "event key=" + event->dedupKey + " model=" + event->model +
         " session=" + event->sessionID +
         " at=" + std::to_string(event->timestamp.time_since_epoch().count()) +
         " tokens=" + std::to_string(t.uncachedInput) + "/" + std::to_string(t.cacheRead) + "/" +
         std::to_string(t.cacheWrite5m) + "/" + std::to_string(t.cacheWrite1h) + "/" +
         std::to_string(t.output) + "/" + std::to_string(t.reasoning);
}

}  // namespace brimlog::fuzz
