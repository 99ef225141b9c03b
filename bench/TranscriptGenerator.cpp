#include "TranscriptGenerator.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <system_error>

namespace brimlog {
namespace {

using Words = std::vector<std::string_view>;

const Words kIdentifierWords = {
    "buffer",  "cursor", "offset", "session", "parser", "config",  "handler", "request", "reply",
    "index",   "record", "entry",  "stream",  "writer", "reader",  "token",   "window",  "ledger",
    "budget",  "metric", "sample", "target",  "router", "queue",   "worker",  "channel", "context",
    "schema",  "column", "filter", "result",  "status", "payload", "header",  "client",  "server",
    "account", "layout", "render", "bridge",  "signal", "timer",   "socket",  "cache",   "store",
    "batch",   "chunk",  "frame",  "event",   "model",  "limit",   "quota",   "range",   "delta",
    "price",   "total",  "user",   "path",    "file",   "line",    "node",    "edge",    "graph",
    "shard",   "lease",  "epoch",  "tick",    "span",   "scope",   "trace",   "probe",   "hook",
    "plugin",  "module", "theme",  "panel",   "tally",  "meter",   "gauge",   "digest"};

const Words kProseWords = {
    "the",       "a",      "to",    "of",      "and",    "in",      "is",      "that",
    "this",      "it",     "for",   "we",      "should", "check",   "file",    "test",
    "function",  "now",    "let",   "me",      "look",   "at",      "update",  "error",
    "value",     "first",  "then",  "because", "which",  "when",    "with",    "instead",
    "already",   "still",  "only",  "each",    "line",   "call",    "returns", "fix",
    "change",    "run",    "build", "passes",  "fails",  "missing", "case",    "need",
    "add",       "remove", "keep",  "make",    "sure",   "handles", "empty",   "input",
    "output",    "before", "after", "next",    "step",   "also",    "seems",   "looks",
    "like",      "right",  "wrong", "simple",  "small",  "new",     "old",     "same",
    "different", "one",    "two",   "every",   "time",   "read",    "write",   "parse",
    "count",     "tokens", "cache", "cursor",  "offset", "session", "rate",    "limit",
    "migration", "schema", "query", "index",   "deploy", "branch",  "commit",  "review"};

// Raw UTF-8 as real logs carry it: accents, CJK, arrows, symbols and emoji.
const Words kUnicodeFragments = {
    "café", "naïve",  "résumé", "Zürich", "façade", "São Paulo", "日本語", "テストケース",
    "東京", "数据库", "한국어", "Привет", "→",      "·",         "—",      "…",
    "✓",    "✗",      "✅",      "❌",      "⚠️", "🚀",         "🎉",      "🔧",
    "📦",    "😀",      "°C",     "µs",     "±",      "€",         "½",      "ß"};

const Words kDirectories = {"src",       "lib",    "tests",   "include",       "cmd",
                            "internal",  "app",    "scripts", "docs",          "config",
                            "src/store", "src/ui", "pkg/api", "web/components"};

const Words kExtensions = {".cpp", ".hpp", ".py", ".ts", ".go", ".rs", ".md", ".json", ".sh"};

const Words kToolNames = {"Bash", "Read", "Edit", "Grep"};

const Words kHookEvents = {"PreToolUse", "PostToolUse", "SessionStart", "Stop"};

const Words kEmoji = {"🚀", "✅", "❌", "⚠️", "🔧", "📦", "🎉", "✨"};

constexpr std::string_view kBase62 =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view kHex = "0123456789abcdef";

// Which bytes a JSON string must escape: quote, backslash and the control characters.
constexpr std::array<bool, 256> kNeedsEscape = [] {
  std::array<bool, 256> table{};
  for (int c = 0; c < 0x20; ++c) table[static_cast<size_t>(c)] = true;
  table['"'] = true;
  table['\\'] = true;
  return table;
}();

void appendInt(std::string& out, int64_t value) {
  char digits[24];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
  (void)error;  // 24 characters always hold an int64
  out.append(digits, end);
}

void appendQuoted(std::string& out, std::string_view plain) {
  out += '"';
  out += plain;
  out += '"';
}

void appendCapitalized(std::string& out, std::string_view word) {
  const size_t start = out.size();
  out += word;
  if (out[start] >= 'a' && out[start] <= 'z') out[start] = static_cast<char>(out[start] - 32);
}

// Days since 1970-01-01 to a civil date (proleptic Gregorian).
void civilFromDays(int64_t days, int64_t& year, int& month, int& day) {
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  year = yoe + era * 400 + (month <= 2 ? 1 : 0);
}

// `value` right-aligned in `width` characters, filled with `fill`.
void appendPadded(std::string& out, int64_t value, int width, char fill = '0') {
  char digits[24];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
  (void)error;
  for (auto n = end - digits; n < width; ++n) out += fill;
  out.append(digits, end);
}

}  // namespace

TranscriptGenerator::TranscriptGenerator(uint64_t seed) : random_(seed) {}

// ---------------------------------------------------------------------------------------------
// Sessions and files

void TranscriptGenerator::beginSession(const Options& options) {
  options_ = options;
  if (options_.models.empty()) options_.models = {"claude-opus-4-6"};
  options_.minReplyLines = std::max(1, options_.minReplyLines);
  options_.maxReplyLines = std::max(options_.minReplyLines, options_.maxReplyLines);
  stats_ = {};
  sessionId_ = options_.sessionId.empty() ? newUuid() : options_.sessionId;
  slug_.clear();
  for (int i = 0; i < 3; ++i) {
    if (i > 0) slug_ += '-';
    slug_ += pick(kIdentifierWords);
  }
  parentUuid_.clear();
  lastAssistantUuid_.clear();
  openToolUses_.clear();
  recentAssistantLines_.clear();
  clockMillis_ = options_.startUnixMillis;
  contextTokens_ = 0;
  oneHourCache_ = random_.chance(options_.oneHourCacheChance);
  reply_ = {};

  // A reply of k lines takes k assistant lines plus the other lines that slip between them;
  // the chance of starting a reply on a free line is set so assistant lines make up their share.
  const double linesPerReply = (options_.minReplyLines + options_.maxReplyLines) / 2.0;
  const double adjacency = std::clamp(options_.replyAdjacency, 0.05, 1.0);
  const double between = (linesPerReply - 1) * (1 - adjacency) / adjacency;
  const double share = std::clamp(options_.assistantShare, 0.01, 0.95);
  const double gap = std::max(0.0, linesPerReply / share - linesPerReply - between);
  replyStartChance_ = 1 / (1 + gap);
}

TranscriptGenerator::Stats TranscriptGenerator::writeTranscript(const std::filesystem::path& path,
                                                                uint64_t targetBytes,
                                                                const Options& options) {
  beginSession(options);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    throw std::filesystem::filesystem_error("Cannot create transcript", path,
                                            std::error_code(errno, std::generic_category()));
  }
  constexpr size_t kFlushBytes = 1 << 20;
  std::string out;
  out.reserve(kFlushBytes + 128 * 1024);
  bool ok = true;
  auto flush = [&] {
    if (!out.empty() && std::fwrite(out.data(), 1, out.size(), file) != out.size()) ok = false;
    out.clear();
  };
  while (ok && stats_.bytes < targetBytes) {
    appendNextLine(out);
    if (out.size() >= kFlushBytes) flush();
  }
  while (ok && replyOpen()) appendAssistantLine(out);  // the last reply gets its final count
  flush();
  const int error = ok ? 0 : errno;
  if (std::fclose(file) != 0 || !ok) {
    throw std::filesystem::filesystem_error(
        "Cannot write transcript", path,
        std::error_code(ok ? errno : error, std::generic_category()));
  }
  return stats_;
}

TranscriptGenerator::LineKind TranscriptGenerator::appendNextLine(std::string& out) {
  // A session opens as the tool writes it: sometimes a file-history snapshot, then the user's
  // first prompt, then the first reply.
  if (stats_.lines == 0 && random_.chance(0.5)) {
    appendFileHistorySnapshotLine(out);
    return LineKind::fileHistorySnapshot;
  }
  if (stats_.userPromptLines == 0) {
    appendUserPromptLine(out);
    return LineKind::userPrompt;
  }
  if (stats_.replies == 0) {
    appendAssistantLine(out);
    return LineKind::assistant;
  }

  if (replyOpen() && random_.chance(options_.replyAdjacency)) {
    appendAssistantLine(out);
    return LineKind::assistant;
  }
  if (!replyOpen()) {
    if (!recentAssistantLines_.empty() && random_.chance(options_.repeatShare)) {
      appendRepeatedAssistantLine(out);
      return LineKind::repeatedAssistant;
    }
    if (random_.chance(replyStartChance_)) {
      appendAssistantLine(out);
      return LineKind::assistant;
    }
  }

  // A line that is not part of a reply: user lines or one of the rarer kinds.
  const double userShare = std::max(0.0, 1 - options_.assistantShare - options_.otherShare);
  const double draw = random_.unit() * (userShare + options_.otherShare);
  if (draw < userShare * options_.toolResultShare) {
    appendToolResultLine(out, toolResultSize());
    return LineKind::toolResult;
  }
  if (draw < userShare) {
    appendUserPromptLine(out);
    return LineKind::userPrompt;
  }
  const uint64_t other = random_.below(100);
  if (other < 60) {
    appendProgressLine(out);
    return LineKind::progress;
  }
  if (other < 75) {
    appendFileHistorySnapshotLine(out);
    return LineKind::fileHistorySnapshot;
  }
  if (other < 87) {
    appendSystemLine(out);
    return LineKind::system;
  }
  if (other < 95) {
    appendSummaryLine(out);
    return LineKind::summary;
  }
  appendQueueOperationLine(out);
  return LineKind::queueOperation;
}

// ---------------------------------------------------------------------------------------------
// Line builders

void TranscriptGenerator::appendHeader(std::string& out, bool withSlug) {
  out += "{\"parentUuid\":";
  if (parentUuid_.empty()) {
    out += "null";
  } else {
    appendQuoted(out, parentUuid_);
  }
  out += options_.isSidechain ? ",\"isSidechain\":true" : ",\"isSidechain\":false";
  out += ",\"userType\":\"external\",\"cwd\":";
  appendJsonString(out, options_.cwd);
  out += ",\"sessionId\":";
  appendQuoted(out, sessionId_);
  out += ",\"version\":";
  appendJsonString(out, options_.version);
  out += ",\"gitBranch\":";
  appendJsonString(out, options_.gitBranch);
  if (withSlug) {
    out += ",\"slug\":";
    appendQuoted(out, slug_);
  }
  out += ',';
}

void TranscriptGenerator::appendTail(std::string& out, std::string_view uuid) {
  out += "\"uuid\":";
  appendQuoted(out, uuid);
  out += ",\"timestamp\":\"";
  appendTimestamp(out, clockMillis_);
  out += '"';
}

void TranscriptGenerator::finishLine(std::string& out, size_t lineStart) {
  out += '\n';
  stats_.bytes += out.size() - lineStart;
  ++stats_.lines;
}

void TranscriptGenerator::appendUserPromptLine(std::string& out) {
  const size_t start = out.size();
  advanceClock(3'000, 600'000);
  const std::string uuid = newUuid();
  appendHeader(out, stats_.lines > 2);
  scratch_.clear();
  const auto size = static_cast<size_t>(
      std::exp(std::log(40.0) + (std::log(4000.0) - std::log(40.0)) * std::pow(random_.unit(), 2)));
  appendProse(scratch_, size, random_.chance(0.3));
  out += "\"type\":\"user\",\"message\":{\"role\":\"user\",\"content\":";
  if (random_.chance(0.3)) {
    out += "[{\"type\":\"text\",\"text\":";
    appendJsonString(out, scratch_);
    out += "}]";
  } else {
    appendJsonString(out, scratch_);
  }
  out += "},";
  appendTail(out, uuid);
  out += ",\"thinkingMetadata\":{\"maxThinkingTokens\":31999},\"todos\":[],\"permissionMode\":";
  out += random_.chance(0.7) ? "\"default\"" : "\"acceptEdits\"";
  out += '}';
  parentUuid_ = uuid;
  ++stats_.userPromptLines;
  finishLine(out, start);
}

void TranscriptGenerator::appendToolResultLine(std::string& out, size_t targetBytes) {
  const size_t start = out.size();
  advanceClock(50, 20'000);
  const std::string uuid = newUuid();
  std::string toolUseId;
  if (!openToolUses_.empty()) {
    toolUseId = std::move(openToolUses_.front());
    openToolUses_.pop_front();
  } else {
    toolUseId = newBase62Id("toolu_01", 22);
  }
  if (lastAssistantUuid_.empty()) lastAssistantUuid_ = newUuid();

  appendHeader(out, stats_.lines > 2);
  out += "\"type\":\"user\",\"message\":{\"role\":\"user\",\"content\":[{\"tool_use_id\":";
  appendQuoted(out, toolUseId);
  out += ",\"type\":\"tool_result\",\"content\":";

  // The fixed fields take about 700 bytes; the text is written twice (the result the model
  // sees and the tool's own record of it) and grows a little when escaped.
  constexpr size_t kFixed = 700;
  const size_t body = targetBytes > kFixed + 64 ? (targetBytes - kFixed) * 10 / 21 : 32;
  const uint64_t kind = random_.below(100);
  if (kind < 40) {
    // A file read: numbered lines for the model, the plain file for the record. The numbers
    // add about a fifth to the text the model sees.
    scratch_.clear();
    appendCodeText(scratch_, body * 5 / 6);
    numbered_.clear();
    int64_t lineNumber = 0;
    for (size_t from = 0; from < scratch_.size();) {
      size_t feed = scratch_.find('\n', from);
      if (feed == std::string::npos) feed = scratch_.size();
      appendPadded(numbered_, ++lineNumber, 6, ' ');
      numbered_ += "→";
      numbered_.append(scratch_, from, feed - from);
      numbered_ += '\n';
      from = feed + 1;
    }
    appendJsonString(out, numbered_);
    out += "}]},";
    appendTail(out, uuid);
    out += ",\"toolUseResult\":{\"type\":\"text\",\"file\":{\"filePath\":";
    std::string path;
    appendPath(path);
    appendJsonString(out, path);
    out += ",\"content\":";
    appendJsonString(out, scratch_);
    out += ",\"numLines\":";
    appendInt(out, lineNumber);
    out += ",\"startLine\":1,\"totalLines\":";
    appendInt(out, lineNumber);
    out += "}}";
  } else if (kind < 85) {
    // A shell command's output, once as the result and once as its stdout.
    scratch_.clear();
    appendShellText(scratch_, body);
    appendJsonString(out, scratch_);
    out += ",\"is_error\":false}]},";
    appendTail(out, uuid);
    out += ",\"toolUseResult\":{\"stdout\":";
    appendJsonString(out, scratch_);
    out += ",\"stderr\":\"\",\"interrupted\":false,\"isImage\":false,\"noOutputExpected\":false}";
  } else if (kind < 97) {
    // A file search: the matching paths, as text and as a list.
    std::vector<std::string> paths;
    size_t written = 0;
    while (written < body || paths.empty()) {
      paths.emplace_back();
      appendPath(paths.back());
      written += paths.back().size() + 1;
    }
    scratch_ = "Found ";
    appendInt(scratch_, static_cast<int64_t>(paths.size()));
    scratch_ += " files\n";
    for (const auto& path : paths) (scratch_ += path) += '\n';
    appendJsonString(out, scratch_);
    out += "}]},";
    appendTail(out, uuid);
    out += ",\"toolUseResult\":{\"mode\":\"files_with_matches\",\"filenames\":[";
    for (size_t i = 0; i < paths.size(); ++i) {
      if (i > 0) out += ',';
      appendJsonString(out, paths[i]);
    }
    out += "],\"numFiles\":";
    appendInt(out, static_cast<int64_t>(paths.size()));
    out += '}';
  } else {
    // The user turned the call down.
    out +=
        "\"The user declined this tool call, so nothing was changed. Wait for the user's next "
        "instruction before going on.\",\"is_error\":true}]},";
    appendTail(out, uuid);
    out += ",\"toolUseResult\":\"Declined by the user\"";
  }
  out += ",\"sourceToolAssistantUUID\":";
  appendQuoted(out, lastAssistantUuid_);
  out += '}';
  parentUuid_ = uuid;
  ++stats_.toolResultLines;
  finishLine(out, start);
}

void TranscriptGenerator::startReply() {
  Reply& r = reply_;
  r.messageId = newBase62Id("msg_01", 22);
  r.requestId = newBase62Id("req_011C", 20);
  const auto& models = options_.models;
  r.model = models.size() == 1 || random_.chance(options_.mainModelShare)
                ? models[0]
                : models[1 + random_.below(models.size() - 1)];

  if (contextTokens_ == 0) {
    // The first call of a session (or after a compaction) writes the whole prompt to the cache.
    r.cacheRead = random_.chance(0.5) ? 0 : random_.between(10'000, 20'000);
    r.cacheWrite = random_.between(6'000, 30'000);
  } else {
    r.cacheRead = contextTokens_;
    r.cacheWrite =
        random_.chance(0.25) ? random_.between(1'000, 20'000) : random_.between(0, 1'500);
  }
  contextTokens_ = r.cacheRead + r.cacheWrite + random_.between(0, 400);
  if (contextTokens_ > 170'000) contextTokens_ = 0;
  r.inputTokens = random_.chance(0.9) ? random_.between(1, 12) : random_.between(50, 4'000);
  r.finalOutput = static_cast<int64_t>(
      std::exp(std::log(8.0) + (std::log(4000.0) - std::log(8.0)) * std::pow(random_.unit(), 1.5)));
  r.outputSoFar = 0;

  const int lines =
      static_cast<int>(random_.between(options_.minReplyLines, options_.maxReplyLines));
  r.blocks.clear();
  if (lines > 1 && random_.chance(0.45)) r.blocks.push_back(Block::thinking);
  if (static_cast<int>(r.blocks.size()) < lines) {
    r.blocks.push_back(random_.chance(0.8) || lines == 1 ? Block::text : Block::toolUse);
  }
  while (static_cast<int>(r.blocks.size()) < lines) r.blocks.push_back(Block::toolUse);
  r.next = 0;
  r.linesLeft = lines;
  ++stats_.replies;
}

void TranscriptGenerator::appendAssistantLine(std::string& out) {
  if (!replyOpen()) startReply();
  Reply& r = reply_;
  const size_t start = out.size();
  advanceClock(150, 8'000);
  const std::string uuid = newUuid();
  const Block block = r.blocks[r.next++];
  const bool last = --r.linesLeft == 0;

  // Output tokens grow over the reply's lines; only its last line holds the final count.
  if (last) {
    r.outputSoFar = r.finalOutput;
  } else if (r.outputSoFar == 0) {
    r.outputSoFar =
        random_.between(1, std::max<int64_t>(1, std::min<int64_t>(30, r.finalOutput - 1)));
  } else if (random_.chance(0.5)) {
    r.outputSoFar = random_.between(r.outputSoFar, std::max(r.outputSoFar, r.finalOutput - 1));
  }

  appendHeader(out, stats_.lines > 2);
  out += "\"message\":{\"model\":";
  appendJsonString(out, r.model);
  out += ",\"id\":";
  appendQuoted(out, r.messageId);
  out += ",\"type\":\"message\",\"role\":\"assistant\",\"content\":[";
  appendContentBlock(out, block);
  out += "],\"stop_reason\":";
  out += !last ? "null" : block == Block::toolUse ? "\"tool_use\"" : "\"end_turn\"";
  out += ",\"stop_sequence\":null,";
  appendUsage(out, r.outputSoFar);
  out += "},\"requestId\":";
  appendQuoted(out, r.requestId);
  out += ",\"type\":\"assistant\",";
  appendTail(out, uuid);
  out += '}';
  parentUuid_ = uuid;
  lastAssistantUuid_ = uuid;
  ++stats_.assistantLines;
  if (last) stats_.outputTokens += static_cast<uint64_t>(r.finalOutput);
  finishLine(out, start);

  recentAssistantLines_.emplace_back(out, start);
  if (recentAssistantLines_.size() > 8) recentAssistantLines_.pop_front();
}

void TranscriptGenerator::appendUsage(std::string& out, int64_t outputTokens) {
  const Reply& r = reply_;
  out += "\"usage\":{\"input_tokens\":";
  appendInt(out, r.inputTokens);
  out += ",\"cache_creation_input_tokens\":";
  appendInt(out, r.cacheWrite);
  out += ",\"cache_read_input_tokens\":";
  appendInt(out, r.cacheRead);
  out += ",\"cache_creation\":{\"ephemeral_5m_input_tokens\":";
  appendInt(out, oneHourCache_ ? 0 : r.cacheWrite);
  out += ",\"ephemeral_1h_input_tokens\":";
  appendInt(out, oneHourCache_ ? r.cacheWrite : 0);
  out += "},\"output_tokens\":";
  appendInt(out, outputTokens);
  out += ",\"service_tier\":\"standard\"";
  if (!options_.inferenceGeo.empty()) {
    out += ",\"inference_geo\":";
    appendJsonString(out, options_.inferenceGeo);
  }
  out += '}';
}

void TranscriptGenerator::appendContentBlock(std::string& out, Block block) {
  scratch_.clear();
  switch (block) {
    case Block::thinking: {
      appendProse(scratch_, static_cast<size_t>(random_.between(80, 2'500)), false);
      out += "{\"type\":\"thinking\",\"thinking\":";
      appendJsonString(out, scratch_);
      out += ",\"signature\":\"";
      const auto length = random_.between(200, 1'200);
      for (int64_t i = 0; i < length; ++i) out += kBase64[random_.below(kBase64.size())];
      out += "=\"}";
      return;
    }
    case Block::text:
      appendProse(scratch_, static_cast<size_t>(random_.between(30, 2'500)), true);
      out += "{\"type\":\"text\",\"text\":";
      appendJsonString(out, scratch_);
      out += '}';
      return;
    case Block::toolUse: {
      const std::string id = newBase62Id("toolu_01", 22);
      const std::string_view tool = pick(kToolNames);
      out += "{\"type\":\"tool_use\",\"id\":";
      appendQuoted(out, id);
      out += ",\"name\":";
      appendQuoted(out, tool);
      out += ",\"input\":{";
      std::string path;
      appendPath(path);
      if (tool == "Bash") {
        appendShellLine(scratch_);
        scratch_.pop_back();
        out += "\"command\":";
        appendJsonString(out, scratch_);
        scratch_.clear();
        appendSentence(scratch_);
        out += ",\"description\":";
        appendJsonString(out, scratch_);
      } else if (tool == "Read") {
        out += "\"file_path\":";
        appendJsonString(out, path);
      } else if (tool == "Edit") {
        out += "\"file_path\":";
        appendJsonString(out, path);
        appendCodeText(scratch_, static_cast<size_t>(random_.between(40, 1'200)));
        out += ",\"old_string\":";
        appendJsonString(out, scratch_);
        scratch_.clear();
        appendCodeText(scratch_, static_cast<size_t>(random_.between(40, 1'500)));
        out += ",\"new_string\":";
        appendJsonString(out, scratch_);
      } else {
        appendIdentifier(scratch_);
        out += "\"pattern\":";
        appendJsonString(out, scratch_);
        out += ",\"path\":";
        appendJsonString(out, options_.cwd);
        out += ",\"output_mode\":\"files_with_matches\"";
      }
      out += "},\"caller\":{\"type\":\"direct\"}}";
      openToolUses_.push_back(id);
      if (openToolUses_.size() > 8) openToolUses_.pop_front();
      return;
    }
  }
}

void TranscriptGenerator::appendRepeatedAssistantLine(std::string& out) {
  if (recentAssistantLines_.empty()) {
    appendAssistantLine(out);
    return;
  }
  const std::string& line = recentAssistantLines_[random_.below(recentAssistantLines_.size())];
  out += line;
  stats_.bytes += line.size();
  ++stats_.lines;
  ++stats_.assistantLines;
  ++stats_.repeatedLines;
}

void TranscriptGenerator::appendProgressLine(std::string& out) {
  const size_t start = out.size();
  advanceClock(10, 2'000);
  const std::string uuid = newUuid();
  const std::string toolUseId =
      openToolUses_.empty() ? newBase62Id("toolu_01", 22) : openToolUses_.back();
  appendHeader(out, stats_.lines > 2);
  out += "\"type\":\"progress\",\"data\":{";
  if (random_.chance(0.5)) {
    const std::string_view event = pick(kHookEvents);
    out += "\"type\":\"hook_progress\",\"hookEvent\":";
    appendQuoted(out, event);
    out += ",\"hookName\":\"";
    out += event;
    out += ':';
    out += pick(kToolNames);
    out += "\",\"command\":";
    scratch_ = "$HOME/.config/hooks/";
    appendIdentifier(scratch_);
    scratch_ += ".sh --quiet";
    appendJsonString(out, scratch_);
    out += "},\"parentToolUseID\":";
    appendQuoted(out, toolUseId);
    out += ",\"toolUseID\":";
    appendQuoted(out, toolUseId);
  } else {
    scratch_.clear();
    const auto lines = random_.between(1, 4);
    for (int64_t i = 0; i < lines; ++i) appendShellLine(scratch_);
    out += "\"type\":\"bash_progress\",\"output\":";
    appendJsonString(out, scratch_);
    out += ",\"fullOutput\":";
    appendJsonString(out, scratch_);
    out += ",\"elapsedTimeSeconds\":";
    appendInt(out, random_.between(1, 90));
    out += ",\"totalLines\":";
    appendInt(out, lines);
    out += ",\"timeoutMs\":120000},\"toolUseID\":\"bash-progress-";
    appendInt(out, random_.between(0, 20));
    out += "\",\"parentToolUseID\":";
    appendQuoted(out, toolUseId);
  }
  out += ',';
  appendTail(out, uuid);
  out += '}';
  parentUuid_ = uuid;
  ++stats_.otherLines;
  finishLine(out, start);
}

void TranscriptGenerator::appendSystemLine(std::string& out) {
  const size_t start = out.size();
  advanceClock(10, 1'000);
  const std::string uuid = newUuid();
  appendHeader(out, stats_.lines > 2);
  out += "\"type\":\"system\",\"subtype\":";
  const uint64_t kind = random_.below(4);
  if (kind == 0) {
    out += "\"turn_duration\",\"durationMs\":";
    appendInt(out, random_.between(2'000, 600'000));
    out += ',';
  } else if (kind == 1) {
    out += "\"local_command\",\"content\":";
    scratch_ = "<command-name>/";
    scratch_ += pick(kIdentifierWords);
    scratch_ += "</command-name>\n            <command-args></command-args>";
    appendJsonString(out, scratch_);
    out += ",\"level\":\"info\",";
  } else if (kind == 2) {
    out += "\"stop_hook_summary\",\"hookCount\":2,\"hookInfos\":[{\"command\":";
    scratch_ = "$HOME/.config/hooks/";
    appendIdentifier(scratch_);
    scratch_ += ".sh";
    appendJsonString(out, scratch_);
    out +=
        "},{\"command\":\"${PLUGIN_ROOT}/hooks/on-stop.sh\"}],\"hookErrors\":[],"
        "\"preventedContinuation\":false,\"stopReason\":\"\",\"hasOutput\":true,"
        "\"level\":\"suggestion\",";
  } else {
    out +=
        "\"compact_boundary\",\"content\":\"Conversation compacted\",\"level\":\"info\","
        "\"compactMetadata\":{\"trigger\":\"auto\",\"preTokens\":";
    appendInt(out, contextTokens_);
    out += "},";
    contextTokens_ = 0;
  }
  out += "\"timestamp\":\"";
  appendTimestamp(out, clockMillis_);
  out += "\",\"uuid\":";
  appendQuoted(out, uuid);
  out += ",\"isMeta\":false}";
  parentUuid_ = uuid;
  ++stats_.otherLines;
  finishLine(out, start);
}

void TranscriptGenerator::appendSummaryLine(std::string& out) {
  const size_t start = out.size();
  scratch_.clear();
  appendSentence(scratch_);
  out += "{\"type\":\"summary\",\"summary\":";
  appendJsonString(out, scratch_);
  out += ",\"leafUuid\":";
  appendQuoted(out, parentUuid_.empty() ? newUuid() : parentUuid_);
  out += '}';
  ++stats_.otherLines;
  finishLine(out, start);
}

void TranscriptGenerator::appendFileHistorySnapshotLine(std::string& out) {
  const size_t start = out.size();
  const std::string messageId = newUuid();
  out += "{\"type\":\"file-history-snapshot\",\"messageId\":";
  appendQuoted(out, messageId);
  out += ",\"snapshot\":{\"messageId\":";
  appendQuoted(out, messageId);
  out += ",\"trackedFileBackups\":{";
  const auto files = random_.between(0, 4);
  for (int64_t i = 0; i < files; ++i) {
    if (i > 0) out += ',';
    std::string path;
    appendPath(path);
    appendJsonString(out, path);
    out += ":{\"backupFileName\":";
    if (random_.chance(0.3)) {
      out += "null";
    } else {
      out += '"';
      for (int j = 0; j < 16; ++j) out += kHex[random_.below(16)];
      out += "@v";
      appendInt(out, random_.between(1, 6));
      out += '"';
    }
    out += ",\"version\":";
    appendInt(out, random_.between(1, 6));
    out += ",\"backupTime\":\"";
    appendTimestamp(out, clockMillis_ - random_.between(0, 60'000));
    out += "\"}";
  }
  out += "},\"timestamp\":\"";
  appendTimestamp(out, clockMillis_);
  out += "\"},\"isSnapshotUpdate\":";
  out += random_.chance(0.5) ? "true" : "false";
  out += '}';
  ++stats_.otherLines;
  finishLine(out, start);
}

void TranscriptGenerator::appendQueueOperationLine(std::string& out) {
  const size_t start = out.size();
  advanceClock(10, 1'000);
  const bool enqueue = random_.chance(0.5);
  out += "{\"type\":\"queue-operation\",\"operation\":";
  out += enqueue ? "\"enqueue\"" : "\"remove\"";
  out += ",\"timestamp\":\"";
  appendTimestamp(out, clockMillis_);
  out += "\",\"sessionId\":";
  appendQuoted(out, sessionId_);
  if (enqueue) {
    scratch_.clear();
    appendSentence(scratch_);
    out += ",\"content\":";
    appendJsonString(out, scratch_);
  }
  out += '}';
  ++stats_.otherLines;
  finishLine(out, start);
}

// ---------------------------------------------------------------------------------------------
// Small pieces

void TranscriptGenerator::appendJsonString(std::string& out, std::string_view raw) {
  out += '"';
  size_t run = 0;  // start of the bytes not yet copied
  for (size_t i = 0; i < raw.size(); ++i) {
    const auto c = static_cast<unsigned char>(raw[i]);
    if (!kNeedsEscape[c]) continue;
    out.append(raw, run, i - run);
    run = i + 1;
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += "\\u00";
        out += kHex[c >> 4];
        out += kHex[c & 15];
    }
  }
  out.append(raw, run, raw.size() - run);
  out += '"';
}

void TranscriptGenerator::appendTimestamp(std::string& out, int64_t unixMillis) {
  const int64_t days = (unixMillis >= 0 ? unixMillis : unixMillis - 86'399'999) / 86'400'000;
  const int64_t ofDay = unixMillis - days * 86'400'000;
  int64_t year = 0;
  int month = 0, day = 0;
  civilFromDays(days, year, month, day);
  appendPadded(out, year, 4);
  out += '-';
  appendPadded(out, month, 2);
  out += '-';
  appendPadded(out, day, 2);
  out += 'T';
  appendPadded(out, ofDay / 3'600'000, 2);
  out += ':';
  appendPadded(out, ofDay / 60'000 % 60, 2);
  out += ':';
  appendPadded(out, ofDay / 1'000 % 60, 2);
  out += '.';
  appendPadded(out, ofDay % 1'000, 3);
  out += 'Z';
}

void TranscriptGenerator::advanceClock(int64_t minMillis, int64_t maxMillis) {
  clockMillis_ += random_.between(minMillis, maxMillis);
}

std::string TranscriptGenerator::newUuid() {
  // Version 4 layout: 8-4-4-4-12 hex digits, version nibble 4, variant 8..b.
  std::string uuid(36, '-');
  uint64_t bits = random_.next();
  for (size_t i = 0, used = 0; i < 36; ++i) {
    if (i == 8 || i == 13 || i == 18 || i == 23) continue;
    if (used == 16) {
      bits = random_.next();
      used = 0;
    }
    uuid[i] = kHex[bits & 15];
    bits >>= 4;
    ++used;
  }
  uuid[14] = '4';
  uuid[19] = kHex[8 + random_.below(4)];
  return uuid;
}

std::string TranscriptGenerator::newBase62Id(std::string_view prefix, size_t length) {
  std::string id(prefix);
  for (size_t i = 0; i < length; ++i) id += kBase62[random_.below(kBase62.size())];
  return id;
}

std::string_view TranscriptGenerator::pick(const std::vector<std::string_view>& words) {
  return words[random_.below(words.size())];
}

size_t TranscriptGenerator::toolResultSize() {
  // Log-uniform between the bounds, with the draw raised to a power to favour small results:
  // most are a few kilobytes, a long tail reaches the upper bound.
  const double low =
      std::log(static_cast<double>(std::max<size_t>(1, options_.minToolResultBytes)));
  const double high = std::log(
      static_cast<double>(std::max(options_.minToolResultBytes, options_.maxToolResultBytes)));
  return static_cast<size_t>(
      std::exp(low + (high - low) * std::pow(random_.unit(), options_.sizeSkew)));
}

// ---------------------------------------------------------------------------------------------
// Raw text

void TranscriptGenerator::appendCodeText(std::string& raw, size_t bytes) {
  const size_t end = raw.size() + bytes;
  while (raw.size() < end) appendCodeLine(raw);
}

void TranscriptGenerator::appendShellText(std::string& raw, size_t bytes) {
  const size_t end = raw.size() + bytes;
  while (raw.size() < end) appendShellLine(raw);
}

void TranscriptGenerator::appendProse(std::string& raw, size_t bytes, bool markdown) {
  const size_t end = raw.size() + bytes;
  while (raw.size() < end) {
    const uint64_t kind = markdown ? random_.below(10) : 0;
    if (kind == 1) {
      raw += "- ";
      appendSentence(raw);
      raw += '\n';
    } else if (kind == 2) {
      raw += "**";
      appendCapitalized(raw, pick(kProseWords));
      raw += "**: ";
      appendSentence(raw);
      raw += '\n';
    } else if (kind == 3) {
      raw += "\n```";
      raw += pick(kExtensions).substr(1);
      raw += '\n';
      for (auto n = random_.between(2, 8); n > 0; --n) appendCodeLine(raw);
      raw += "```\n\n";
    } else {
      appendSentence(raw);
      raw += random_.chance(0.2) ? "\n\n" : " ";
    }
  }
}

void TranscriptGenerator::appendSentence(std::string& raw) {
  const auto words = random_.between(5, 14);
  for (int64_t i = 0; i < words; ++i) {
    if (i > 0) raw += ' ';
    const uint64_t kind = random_.below(100);
    if (kind < 2) {
      raw += pick(kUnicodeFragments);
    } else if (kind < 8) {
      raw += '`';
      appendIdentifier(raw);
      raw += '`';
    } else if (kind < 9) {
      raw += '"';
      raw += pick(kProseWords);
      raw += ' ';
      raw += pick(kProseWords);
      raw += '"';
    } else if (i == 0) {
      appendCapitalized(raw, pick(kProseWords));
    } else {
      raw += pick(kProseWords);
    }
  }
  const uint64_t end = random_.below(10);
  raw += end < 7 ? "." : end < 9 ? ":" : "!";
}

void TranscriptGenerator::appendIdentifier(std::string& raw) {
  const uint64_t kind = random_.below(10);
  raw += pick(kIdentifierWords);
  if (kind < 3) {
    raw += '_';
    raw += pick(kIdentifierWords);
  } else if (kind < 6) {
    appendCapitalized(raw, pick(kIdentifierWords));
  }
}

void TranscriptGenerator::appendPath(std::string& raw) {
  raw += options_.cwd;
  raw += '/';
  raw += pick(kDirectories);
  raw += '/';
  raw += pick(kIdentifierWords);
  raw += '_';
  raw += pick(kIdentifierWords);
  raw += pick(kExtensions);
}

void TranscriptGenerator::appendNumber(std::string& raw, int64_t low, int64_t high) {
  appendInt(raw, random_.between(low, high));
}

void TranscriptGenerator::appendCodeLine(std::string& raw) {
  if (random_.chance(0.02)) {
    raw.append(static_cast<size_t>(random_.between(1, 2)), '\t');
  } else {
    raw.append(static_cast<size_t>(2 * random_.between(0, 4)), ' ');
  }
  // Most lines are plain code; quotes, backslashes and non-ASCII text come in now and then,
  // about as often as in real tool output.
  switch (random_.below(32)) {
    case 0:
      raw += "const auto ";
      appendIdentifier(raw);
      raw += " = ";
      raw += pick(kIdentifierWords);
      raw += '.';
      appendIdentifier(raw);
      raw += '(';
      raw += pick(kIdentifierWords);
      raw += ", \"";
      raw += pick(kProseWords);
      raw += ' ';
      raw += pick(kProseWords);
      raw += "\");";
      break;
    case 1:
      raw += "if (";
      appendIdentifier(raw);
      raw += " == nullptr) return ";
      raw += pick(kIdentifierWords);
      raw += ';';
      break;
    case 2:
      raw += "// ";
      appendSentence(raw);
      break;
    case 3:
      raw += '}';
      break;
    case 4:
      raw += "for (size_t i = 0; i < ";
      appendIdentifier(raw);
      raw += ".size(); ++i) {";
      break;
    case 5:
      appendIdentifier(raw);
      raw += " := ";
      appendIdentifier(raw);
      raw += "(\"";
      raw += pick(kIdentifierWords);
      raw += "\")";
      break;
    case 6:
      raw += "throw std::runtime_error(\"cannot ";
      raw += pick(kProseWords);
      raw += " \\\"\" + ";
      appendIdentifier(raw);
      raw += " + \"\\\"\");";
      break;
    case 7:
      break;  // a blank line
    case 8:
      raw += "std::printf(\"%s\\t%d\\n\", ";
      appendIdentifier(raw);
      raw += ", ";
      appendNumber(raw, 0, 4096);
      raw += ");";
      break;
    case 9:
      raw += "# ";
      raw += pick(kUnicodeFragments);
      raw += " の ";
      appendIdentifier(raw);
      raw += " を更新する";
      break;
    case 10:
      raw += "return {";
      appendIdentifier(raw);
      raw += ", ";
      appendNumber(raw, 0, 100'000);
      raw += "};";
      break;
    case 11:
      raw += "#include <";
      raw += pick(kIdentifierWords);
      raw += '/';
      appendCapitalized(raw, pick(kIdentifierWords));
      raw += ".hpp>";
      break;
    case 12:
      raw += '"';
      appendIdentifier(raw);
      raw += "\": \"";
      raw += pick(kProseWords);
      raw += ' ';
      raw += pick(kUnicodeFragments);
      raw += "\",";
      break;
    case 13:
      appendCapitalized(raw, pick(kIdentifierWords));
      raw += ' ';
      appendIdentifier(raw);
      raw += "(const ";
      appendCapitalized(raw, pick(kIdentifierWords));
      raw += "& ";
      raw += pick(kIdentifierWords);
      raw += ") {";
      break;
    case 14:
    case 15:
    case 16:
      raw += "} else {";
      break;
    case 17:
    case 18:
    case 19:
      appendIdentifier(raw);
      raw += ".push_back(";
      appendIdentifier(raw);
      raw += ");";
      break;
    case 20:
    case 21:
    case 22:
      raw += "return ";
      appendIdentifier(raw);
      raw += ';';
      break;
    case 23:
    case 24:
    case 25:
      raw += "auto ";
      appendIdentifier(raw);
      raw += " = std::move(";
      appendIdentifier(raw);
      raw += ");";
      break;
    case 26:
    case 27:
    case 28:
      appendIdentifier(raw);
      raw += " += ";
      appendIdentifier(raw);
      raw += ".size() * ";
      appendNumber(raw, 2, 64);
      raw += ';';
      break;
    default:
      appendIdentifier(raw);
      raw += '.';
      appendIdentifier(raw);
      raw += '(';
      appendIdentifier(raw);
      raw += ", ";
      appendIdentifier(raw);
      raw += ");";
      break;
  }
  raw += '\n';
}

void TranscriptGenerator::appendShellLine(std::string& raw) {
  switch (random_.below(24)) {
    case 0:
      raw += "[ RUN      ] ";
      appendCapitalized(raw, pick(kIdentifierWords));
      raw += "Test.";
      appendCapitalized(raw, pick(kProseWords));
      appendCapitalized(raw, pick(kIdentifierWords));
      break;
    case 1:
      raw += "[       OK ] ";
      appendCapitalized(raw, pick(kIdentifierWords));
      raw += "Test.";
      appendCapitalized(raw, pick(kProseWords));
      raw += " (";
      appendNumber(raw, 0, 900);
      raw += " ms)";
      break;
    case 2:
      raw += "\x1b[32m✓\x1b[0m ";
      appendSentence(raw);
      raw += " \x1b[2m(";
      appendNumber(raw, 1, 900);
      raw += "ms)\x1b[22m";
      break;
    case 3:
      appendPath(raw);
      raw += ':';
      appendNumber(raw, 1, 900);
      raw += ':';
      appendNumber(raw, 1, 80);
      raw += ": warning: unused variable '";
      appendIdentifier(raw);
      raw += "' [-Wunused-variable]";
      break;
    case 4:
      for (int i = 0; i < 7; ++i) raw += kHex[random_.below(16)];
      raw += ' ';
      appendSentence(raw);
      break;
    case 5:
      appendIdentifier(raw);
      raw += '\t';
      appendNumber(raw, 0, 99'999);
      raw += '\t';
      appendNumber(raw, 0, 999);
      raw += '\t';
      appendPath(raw);
      break;
    case 6:
      raw += "-rw-r--r--  1 dev  dev  ";
      appendNumber(raw, 100, 90'000);
      raw += " Jan ";
      appendNumber(raw, 1, 28);
      raw += " 12:";
      appendPadded(raw, random_.between(0, 59), 2);
      raw += ' ';
      appendIdentifier(raw);
      raw += pick(kExtensions);
      break;
    case 7:
      raw += "{\"level\":\"info\",\"msg\":\"";
      appendSentence(raw);
      raw += "\",\"";
      raw += pick(kIdentifierWords);
      raw += "\":";
      appendNumber(raw, 0, 1'000'000);
      raw += '}';
      break;
    case 8:
      raw += pick(kEmoji);
      raw += ' ';
      appendSentence(raw);
      break;
    case 9:
      raw += ' ';
      appendPath(raw);
      raw += " | ";
      appendNumber(raw, 1, 300);
      raw += " ++++++--";
      break;
    case 10:
      raw += "FAIL ";
      appendPath(raw);
      raw += " › ";
      appendSentence(raw);
      break;
    case 11:
      raw += "   Compiling ";
      appendIdentifier(raw);
      raw += " v0.";
      appendNumber(raw, 1, 40);
      raw += '.';
      appendNumber(raw, 0, 9);
      raw += " (C:\\work\\";
      raw += pick(kIdentifierWords);
      raw += ')';
      break;
    case 12:
    case 13:
    case 14:
    case 15:
      appendPath(raw);
      break;
    case 16:
    case 17:
    case 18:
    case 19:
      raw += "ok   ";
      appendIdentifier(raw);
      raw += '/';
      appendIdentifier(raw);
      raw += "   ";
      appendNumber(raw, 1, 999);
      raw += "ms";
      break;
    default:
      raw += "  ";
      appendSentence(raw);
      break;
  }
  raw += '\n';
}

}  // namespace brimlog
