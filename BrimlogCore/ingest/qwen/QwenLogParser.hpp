#pragma once

#include <optional>
#include <string_view>

#include "ingest/LineBatch.hpp"
#include "model/UsageEvent.hpp"

namespace brimlog {

/// Turns one line of a Qwen Code chat log (`<runtime base>/projects/<cwd>/chats/<session>.jsonl`)
/// into a usage event: only `assistant` records with `usageMetadata` count, each written once per
/// model call; every other record (the user's turns, tool results, `system` records such as the
/// UI telemetry replayed on resume) yields nothing.
///
/// A line is judged alone, so the parser keeps no state and may be called from several threads
/// at once. The key is "qwen:" + the record's `uuid`: a session branched off another copies its
/// records, `uuid` and usage included, into a new file, and the copy is the same model call.
///
/// Token fields follow Gemini's usage metadata, whichever provider served the call:
/// `promptTokenCount` includes `cachedContentTokenCount`; `toolUsePromptTokenCount` is input
/// beside it; `thoughtsTokenCount` is inside `candidatesTokenCount` when the provider counts
/// reasoning as completion (the total is then prompt + candidates) and beside it otherwise.
///
///     auto e = QwenLogParser::event(R"({"uuid":"u1","sessionId":"s1","type":"assistant",
///         "timestamp":"2026-04-11T08:00:06Z","model":"qwen3-coder-plus","usageMetadata":{
///         "promptTokenCount":100,"cachedContentTokenCount":60,"candidatesTokenCount":5}})");
///     e->dedupKey;  // "qwen:u1"; 40 uncached, 60 read from the cache, 5 out
class QwenLogParser {
 public:
  /// The event of one line (without its line end), or nothing when the line is not a usable
  /// model reply. Never throws.
  static std::optional<UsageEvent> event(std::string_view line);

  /// The same, parsing the line where it lies (no copy) thanks to the padding after it.
  static std::optional<UsageEvent> event(PaddedLine line);

  /// The prefix of every key this parser makes.
  static constexpr std::string_view keyPrefix = "qwen:";
};

}  // namespace brimlog
