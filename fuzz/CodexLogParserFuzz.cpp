// The ways of reading a Codex session log must agree line by line: the quick one with details
// (settles most lines on their leading "type", parses the line where it lies), the quick one
// without, and the full parse of a plain view. After every line the three parsers must yield the
// same result and carry the same context (the session and model that later lines depend on).
//
// The input is the log: its lines, split at line feeds, a carriage return before the feed
// dropped and empty lines left out, as a read hands them over. They lie where they lie in the
// input, followed by zeroed padding whose last byte precedes a guard page. Halfway through, the
// quick parser with details is rebuilt from the context it hands over, as between two reads.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Finding.hpp"
#include "GuardedBuffer.hpp"
#include "ingest/codex/CodexLogParser.hpp"

using namespace brimlog;

namespace {

std::string describe(const std::optional<CodexLine>& result) {
  if (!result) return "nothing";
  if (const auto* event = std::get_if<UsageEvent>(&*result)) return fuzz::describe(*event);
  const auto& limits = std::get<ProviderLimits>(*result);
  return "limits plan=" + limits.plan.value_or("-") +
         " windows=" + std::to_string(limits.windows.size()) +
         " credits=" + (limits.credits ? "yes" : "no");
}

std::string describe(const std::map<std::string, std::string>& context) {
  std::string text = "{";
  for (const auto& [key, value] : context) text += key + "=" + value + ";";
  return text + "}";
}

std::vector<std::string_view> linesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t feed = text.find('\n');
    std::string_view line = text.substr(0, feed);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty()) lines.push_back(line);
    if (feed == std::string_view::npos) break;
    text.remove_prefix(feed + 1);
  }
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static fuzz::GuardedBuffer buffer;
  const std::string_view input(
      buffer.place({reinterpret_cast<const char*>(data), size}, LineBatch::kPadding), size);
  const std::vector<std::string_view> lines = linesOf(input);

  CodexLogParser detailed, quick, full;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (i == lines.size() / 2) {
      auto context = detailed.takeContext();
      fuzz::expect(detailed.context().empty(),
                   [&] { return "takeContext left " + describe(detailed.context()); });
      detailed = CodexLogParser(std::move(context));
    }
    const auto where = [&] { return "line " + std::to_string(i + 1) + ": "; };

    CodexLineDetails details;
    const auto detailedResult = detailed.consume(PaddedLine{lines[i]}, details);
    const auto quickResult = quick.consume(PaddedLine{lines[i]});
    const auto fullResult = full.consume(lines[i]);
    fuzz::expect(detailedResult == fullResult, [&] {
      return where() + "the padded line with details gives " + describe(detailedResult) +
             ", the plain line gives " + describe(fullResult);
    });
    fuzz::expect(quickResult == fullResult, [&] {
      return where() + "the padded line gives " + describe(quickResult) +
             ", the plain line gives " + describe(fullResult);
    });
    fuzz::expect(detailed.context() == full.context() && quick.context() == full.context(), [&] {
      return where() + "contexts differ: with details " + describe(detailed.context()) +
             ", padded " + describe(quick.context()) + ", plain " + describe(full.context());
    });
    // Events come from usage records alone, and limits from token-count event messages.
    if (detailedResult) {
      const bool isEvent = std::holds_alternative<UsageEvent>(*detailedResult);
      fuzz::expect(details.usageRecord == isEvent, [&] {
        return where() + describe(detailedResult) + " from a line whose usage-record flag is " +
               (details.usageRecord ? "set" : "clear");
      });
    }
  }
  return 0;
}
