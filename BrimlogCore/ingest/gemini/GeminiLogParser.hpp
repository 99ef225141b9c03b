#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ingest/LineBatch.hpp"
#include "model/UsageEvent.hpp"

namespace brimlog {

/// What a Gemini CLI session file has told so far beyond its messages, carried from one read of
/// the file to the next (the metadata line is read once, at the top).
struct GeminiSession {
  /// The session's id, from the metadata line or a later `$set` of it.
  std::string id;
  /// The first workspace folder the metadata names; where the project folder is otherwise
  /// unknown.
  std::string directory;

  bool operator==(const GeminiSession&) const = default;
};

/// Turns Gemini CLI session files into usage events: one per model reply (a message of type
/// "gemini") that carries token counts, keyed "gemini:<session id>/<message id>".
///
/// Both forms of the file are read: JSON lines (a metadata line, then message records and
/// control records, appended) and the older single pretty-printed document with a `messages`
/// list, rewritten whole. The same message is written many times, in one file and in copies of
/// it; its key is what lets the store count it once, with its largest counts.
///
///     GeminiSession session;
///     std::vector<UsageEvent> events;
///     for (PaddedLine line : batch) GeminiLogParser::consume(line, session, project, events);
///
/// Stateless apart from `session`; callable from several threads. Never throws: an unusable line,
/// document or message yields nothing.
class GeminiLogParser {
 public:
  /// Takes one line of a JSON-lines session: a metadata line or a `$set` updates `session`; a
  /// reply, or the replies of a `$set` checkpoint, are appended to `events`. `project` is the
  /// folder the session's project folder names; when empty, `session.directory` stands in.
  static void consume(PaddedLine line, GeminiSession& session, std::string_view project,
                      std::vector<UsageEvent>& events);

  /// The replies of a whole older session document; nothing when the bytes are not a whole
  /// session document (one caught while it was being rewritten, for one).
  static std::optional<std::vector<UsageEvent>> document(std::string_view bytes,
                                                         std::string_view project);
};

}  // namespace brimlog
