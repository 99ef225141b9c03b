// A Grok Build session document read after a given turn must keep what the parser promises:
// `lastTurn` never falls below `afterTurn`; every event belongs to a turn above `afterTurn`, is
// keyed "session#turn#model" and comes in turn order; and a second pass from the returned
// `lastTurn` hands back exactly the first pass's events of the turns above it, with a `lastTurn`
// no smaller.
//
// The input's first line is `afterTurn` in decimal (anything else, or nothing, stands for a file
// never read: the smallest number); the rest is the document.

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "Finding.hpp"
#include "ingest/grok/GrokUsageParser.hpp"

using namespace brimlog;

namespace {

constexpr int64_t kNeverRead = std::numeric_limits<int64_t>::min();

int64_t integerOr(std::string_view text, int64_t fallback) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? value : fallback;
}

// The turn number inside "session#turn#model", checked against the event's own session and model.
int64_t turnOf(const UsageEvent& event) {
  const std::string& key = event.dedupKey;
  const std::string prefix = event.sessionID + "#";
  const std::string suffix = "#" + event.model;
  fuzz::expect(
      key.size() > prefix.size() + suffix.size() && key.starts_with(prefix) &&
          key.ends_with(suffix),
      [&] { return "key " + key + " is not session#turn#model for " + fuzz::describe(event); });
  const std::string_view number(key.data() + prefix.size(),
                                key.size() - prefix.size() - suffix.size());
  int64_t turn = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), turn);
  fuzz::expect(error == std::errc{} && end == number.data() + number.size() &&
                   std::to_string(turn) == number,
               [&] { return "key " + key + " does not hold a decimal turn number"; });
  return turn;
}

std::string str(int64_t n) { return std::to_string(n); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const size_t feed = input.find('\n');
  const int64_t afterTurn =
      feed == std::string_view::npos ? kNeverRead : integerOr(input.substr(0, feed), kNeverRead);
  const std::string_view document = feed == std::string_view::npos ? input : input.substr(feed + 1);

  const GrokUsageParser::Result first = GrokUsageParser::events(document, afterTurn);
  fuzz::expect(first.lastTurn >= afterTurn, [&] {
    return "lastTurn " + str(first.lastTurn) + " below afterTurn " + str(afterTurn);
  });

  std::vector<UsageEvent> afterLast;
  int64_t previousTurn = kNeverRead;
  for (const UsageEvent& event : first.events) {
    fuzz::expect(event.provider == ProviderID::grok, [&] { return "an event of another tool"; });
    const int64_t turn = turnOf(event);
    fuzz::expect(turn > afterTurn, [&] {
      return "turn " + str(turn) + " is not above afterTurn " + str(afterTurn) + ": " +
             fuzz::describe(event);
    });
    fuzz::expect(turn >= previousTurn, [&] {
      return "turn " + str(turn) + " after turn " + str(previousTurn) + ": out of order";
    });
    previousTurn = turn;
    if (turn > first.lastTurn) afterLast.push_back(event);
  }

  const GrokUsageParser::Result second = GrokUsageParser::events(document, first.lastTurn);
  fuzz::expect(second.lastTurn >= first.lastTurn, [&] {
    return "the second pass moved lastTurn back from " + str(first.lastTurn) + " to " +
           str(second.lastTurn);
  });
  fuzz::expect(second.events == afterLast, [&] {
    return "the second pass from turn " + str(first.lastTurn) + " gives " +
           str(static_cast<int64_t>(second.events.size())) + " events, the first " +
           str(static_cast<int64_t>(afterLast.size())) + " above that turn";
  });
  return 0;
}
