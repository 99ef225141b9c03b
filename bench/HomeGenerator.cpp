#include "HomeGenerator.hpp"

#include <date/date.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "ingest/ToolLocations.hpp"
#include "platform/Json.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// The values a template's {{name}} placeholders are filled with.
using Fields = std::map<std::string, std::string, std::less<>>;

// Lines of a Claude Code transcript (2.1 versions), in the tool's own key order. Every line of a
// session starts with the same fields; `agent` is empty outside subagent transcripts.
const std::string kClaudeHead =
    R"({"parentUuid":{{parent}},"isSidechain":{{sidechain}},"userType":"external","cwd":"{{cwd}}",)"
    R"("sessionId":"{{session}}","version":"2.1.39","gitBranch":"{{branch}}",{{agent}})";
const std::string kPrompt =
    kClaudeHead +
    R"("type":"user","message":{"role":"user","content":"{{text}}"},"uuid":"{{uuid}}",)"
    R"("timestamp":"{{ts}}","permissionMode":"default"})";
const std::string kAssistant =
    kClaudeHead +
    R"("message":{"model":"{{model}}","id":"{{msg}}","type":"message","role":"assistant",)"
    R"("content":[{{block}}],"stop_reason":null,"stop_sequence":null,"usage":{"input_tokens":{{in}},)"
    R"("cache_creation_input_tokens":{{cw}},"cache_read_input_tokens":{{cr}},"cache_creation":{)"
    R"("ephemeral_5m_input_tokens":{{cw5m}},"ephemeral_1h_input_tokens":{{cw1h}}},)"
    R"("output_tokens":{{out}},"service_tier":"standard","inference_geo":"not_available"}},)"
    R"("requestId":"{{req}}","type":"assistant","uuid":"{{uuid}}","timestamp":"{{ts}}"})";
const std::string kThinkingBlock =
    R"({"type":"thinking","thinking":"{{text}}","signature":"{{blob}}"})";
const std::string kTextBlock = R"({"type":"text","text":"{{text}}"})";
const std::string kToolUseBlock =
    R"({"type":"tool_use","id":"{{tool}}","name":"Bash","input":{"command":"{{command}}"},)"
    R"("caller":{"type":"direct"}})";
const std::string kToolResult =
    kClaudeHead +
    R"("slug":"{{slug}}","type":"user","message":{"role":"user","content":[{"tool_use_id":)"
    R"("{{tool}}","type":"tool_result","content":"{{text}}","is_error":false}]},"uuid":"{{uuid}}",)"
    R"("timestamp":"{{ts}}","toolUseResult":{"stdout":"{{text}}","stderr":"","interrupted":false,)"
    R"("isImage":false},"sourceToolAssistantUUID":"{{assistant}}"})";
const std::string kTurnDuration =
    kClaudeHead +
    R"("slug":"{{slug}}","type":"system","subtype":"turn_duration","durationMs":{{duration}},)"
    R"("timestamp":"{{ts}}","uuid":"{{uuid}}","isMeta":false})";
const std::string kSummary = R"({"type":"summary","summary":"{{command}}","leafUuid":"{{uuid}}"})";

// Lines of a Codex session log.
const std::string kCodexMeta =
    R"({"timestamp":"{{ts}}","type":"session_meta","payload":{"id":"{{session}}","timestamp":)"
    R"("{{ts}}","cwd":"{{cwd}}","originator":"codex_cli_rs","cli_version":"0.104.0","source":)"
    R"("cli","model_provider":"openai","base_instructions":{"text":"{{text}}"},"git":{)"
    R"("commit_hash":"{{hash}}","branch":"main"}}})";
const std::string kCodexTurn =
    R"({"timestamp":"{{ts}}","type":"turn_context","payload":{"turn_id":"{{turn}}","cwd":)"
    R"("{{cwd}}","approval_policy":"on-request","sandbox_policy":{"type":"workspace-write",)"
    R"("network_access":false},"model":"{{model}}","effort":"medium","summary":"auto"}})";
const std::string kCodexUserMessage =
    R"({"timestamp":"{{ts}}","type":"event_msg","payload":{"type":"user_message","message":)"
    R"("{{text}}","images":[]}})";
const std::string kCodexReasoning =
    R"({"timestamp":"{{ts}}","type":"response_item","payload":{"type":"reasoning","summary":[],)"
    R"("content":null,"encrypted_content":"{{blob}}"}})";
const std::string kCodexCallOutput =
    R"({"timestamp":"{{ts}}","type":"response_item","payload":{"type":"function_call_output",)"
    R"("call_id":"{{call}}","output":"{{text}}"}})";
const std::string kCodexNoCount =
    R"({"timestamp":"{{ts}}","type":"event_msg","payload":{"type":"token_count","info":null,)"
    R"("rate_limits":null}})";
const std::string kCodexCount =
    R"({"timestamp":"{{ts}}","type":"event_msg","payload":{"type":"token_count","info":{)"
    R"("total_token_usage":{{total}},"last_token_usage":{{last}},"model_context_window":258400},)"
    R"("rate_limits":{"limit_id":"codex","primary":{"used_percent":{{primary}},"window_minutes":)"
    R"(300,"resets_at":{{primaryReset}}},"secondary":{"used_percent":{{secondary}},)"
    R"("window_minutes":10080,"resets_at":{{secondaryReset}}},"credits":null,"plan_type":"plus"}}})";
const std::string kCodexUsage =
    R"({"input_tokens":{{in}},"cached_input_tokens":{{cr}},"output_tokens":{{out}},)"
    R"("reasoning_output_tokens":{{reasoning}},"total_tokens":{{sum}}})";

// A Grok Build session document, its turns, and one model's usage in a turn.
const std::string kGrokSession =
    R"({"sessionId":"{{session}}","cwd":"{{cwd}}","createdAt":"{{ts}}","turns":[{{turns}}]})";
const std::string kGrokTurn =
    R"({"turnNumber":{{turn}},"startedAt":"{{ts}}","prompt":"{{command}}","response":"{{text}}")"
    R"({{ended}},"modelUsage":{{usage}}})";
const std::string kGrokUsage =
    R"("{{model}}":{"inputTokens":{{in}},"cachedReadTokens":{{cr}},"cacheCreationTokens":{{cw}},)"
    R"("outputTokens":{{out}},"reasoningTokens":{{reasoning}},"costUsdTicks":{{ticks}}})";

constexpr int64_t kDayMillis = 86'400'000;
// How far a transcript's clock runs per byte written, about: sessions start early enough to end
// inside the window (and a clock never passes the window's end).
constexpr int64_t kMillisPerByte = 12;

const std::vector<std::string_view> kWords = {
    "parser", "cursor", "offset", "batch",  "commit", "schema", "index",  "request", "session",
    "tokens", "cache",  "build",  "error",  "value",  "check",  "line",   "window",  "limit",
    "worker", "queue",  "reader", "writer", "store",  "model",  "reply",  "report",  "config",
    "harbor", "ledger", "atlas",  "beacon", "cinder", "ember",  "fjord",  "helix",   "lumen",
    "orchid", "quartz", "raven",  "tundra", "vertex", "willow", "zephyr", "meridian"};
const std::vector<std::string_view> kUnicodeWords = {"café", "naïve", "日本語", "テスト",
                                                     "→",    "✅",     "🚀",      "über"};
constexpr std::string_view kBase62 =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Appends `pattern` with each {{name}} replaced by the value of that name in `fields`.
void fillIn(std::string& out, std::string_view pattern, const Fields& fields) {
  for (size_t open; (open = pattern.find("{{")) != std::string_view::npos;) {
    const size_t close = pattern.find("}}", open + 2);
    const std::string_view name = pattern.substr(open + 2, close - open - 2);
    const auto value = fields.find(name);
    if (value == fields.end()) throw std::logic_error(fmt::format("no value for {{{{{}}}}}", name));
    out.append(pattern.substr(0, open)).append(value->second);
    pattern.remove_prefix(close + 2);
  }
  out += pattern;
}

// The fields of a usage object as Codex and Grok log it: their input counts the cached tokens too.
Fields tokenFields(const TokenCounts& t) {
  return {{"in", std::to_string(t.uncachedInput + t.cacheRead)},
          {"cr", std::to_string(t.cacheRead)},
          {"cw", std::to_string(t.cacheWrite5m)},
          {"out", std::to_string(t.output)},
          {"reasoning", std::to_string(t.reasoning)},
          {"sum", std::to_string(t.processed())}};
}

std::string_view pick(SplitMix64& random, const std::vector<std::string_view>& words) {
  return words[random.below(words.size())];
}

std::string letters(SplitMix64& random, std::string_view alphabet, size_t count) {
  std::string text(count, ' ');
  for (char& c : text) c = alphabet[random.below(alphabet.size())];
  return text;
}

std::string words(SplitMix64& random, int count) {
  std::string text(pick(random, kWords));
  while (--count > 0) (text += ' ') += pick(random, kWords);
  return text;
}

std::string uuid4(SplitMix64& random) {
  const uint64_t a = random.next(), b = random.next();
  return fmt::format("{:08x}-{:04x}-4{:03x}-{:x}{:03x}-{:012x}", a >> 32, (a >> 16) & 0xffff,
                     a & 0xfff, 8 + (b >> 62), (b >> 48) & 0xfff, b & 0xffffffffffff);
}

// Version 7, as Codex names its sessions: the first 48 bits are the creation time in ms.
std::string uuid7(SplitMix64& random, int64_t unixMillis) {
  const auto time = static_cast<uint64_t>(unixMillis);
  const uint64_t b = random.next();
  return fmt::format("{:08x}-{:04x}-7{:03x}-{:x}{:03x}-{:012x}", time >> 16, time & 0xffff,
                     b & 0xfff, 8 + (b >> 62), (b >> 12) & 0xfff, (b >> 14) & 0xffffffffffff);
}

std::string timestamp(int64_t unixMillis) {
  using namespace std::chrono;
  return date::format("%FT%TZ", sys_time<milliseconds>{milliseconds{unixMillis}});
}

// Between `low` and `high`, small values far more likely.
int64_t skewed(SplitMix64& random, int64_t low, int64_t high) {
  const double span = std::log(static_cast<double>(high) / static_cast<double>(low));
  return static_cast<int64_t>(static_cast<double>(low) *
                              std::exp(span * std::pow(random.unit(), 1.6)));
}

double normal(SplitMix64& random) {  // Box-Muller
  const double u = 1.0 - random.unit(), v = random.unit();
  return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * std::numbers::pi * v);
}

// Lines of tool output and prose, escaped for a JSON string: numbered source lines as a file
// read shows them, shell output with terminal colours, prose with UTF-8, Windows paths.
const std::vector<std::string>& textPool() {
  static const std::vector<std::string> pool = [] {
    SplitMix64 random{0x7e47};
    std::vector<std::string> lines;
    for (int i = 0; i < 512; ++i) {
      std::string_view w[4];  // drawn one by one: the order of a call's arguments is unspecified
      for (auto& word : w) word = pick(random, kWords);
      const uint64_t n = random.below(2000);
      const std::string raw =
          i % 4 == 0   ? fmt::format("{:>6}→  const {}_{} = {}(\"{}\", {});\t// {}", i + 1, w[0],
                                     w[1], w[2], w[3], n, w[0])
          : i % 4 == 1 ? fmt::format("\x1b[32m✓\x1b[0m {} › {} ({} ms)", w[0], w[1], n)
          : i % 4 == 2 ? fmt::format("The {} {} {} {} now {}.", w[0], w[1],
                                     pick(random, kUnicodeWords), w[2], w[3])
                       : fmt::format("C:\\src\\{}\\{}.ts\t{} KB", w[0], w[1], n);
      const std::string escaped = Json(raw + '\n').dump();
      lines.push_back(escaped.substr(1, escaped.size() - 2));
    }
    return lines;
  }();
  return pool;
}

// Escaped text of about `bytes` bytes, from the pool.
void poolText(SplitMix64& random, std::string& out, int64_t bytes) {
  const auto& pool = textPool();
  out.clear();
  while (static_cast<int64_t>(out.size()) < bytes) out += pool[random.below(pool.size())];
}

// Writes a whole file, replacing it; throws filesystem_error naming the file and the reason.
void saveFile(const fs::path& path, const std::string& bytes, HomeGenerator::Stats& stats) {
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  const std::unique_ptr<std::FILE, Close> file{std::fopen(path.c_str(), "wb")};
  if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
      std::fflush(file.get()) != 0) {
    throw fs::filesystem_error("Cannot write file", path,
                               std::error_code(errno, std::generic_category()));
  }
  ++stats.files;
  stats.bytes += bytes.size();
  stats.largestFileBytes = std::max<uint64_t>(stats.largestFileBytes, bytes.size());
}

// Fills templates into the lines of one file, with a clock that never passes `end`.
class LogWriter {
 public:
  LogWriter(SplitMix64& random, HomeGenerator::Stats& stats, int64_t start, int64_t end)
      : random_(random), stats_(stats), clock_(start), end_(end) {}

 protected:
  void set(const std::string& name, int64_t value) { fields_[name] = std::to_string(value); }
  void text(int64_t bytes) { poolText(random_, fields_["text"], bytes); }
  void advance(int64_t low, int64_t high) {
    clock_ = std::min(end_, clock_ + random_.between(low, high));
  }
  // Appends one line with a fresh uuid and the clock's time, and makes it the parent of the next
  // line; returns where it starts.
  size_t line(std::string_view pattern) {
    fields_["uuid"] = uuid4(random_);
    fields_["ts"] = timestamp(clock_);
    const size_t start = out_.size();
    fillIn(out_, pattern, fields_);
    out_ += '\n';
    fields_["parent"] = '"' + fields_["uuid"] + '"';
    ++stats_.lines;
    return start;
  }

  SplitMix64& random_;
  HomeGenerator::Stats& stats_;
  int64_t clock_;
  int64_t end_;
  Fields fields_;
  std::string out_;
};

struct ClaudeSession {
  std::string id;
  std::string cwd;
  std::string agentId;  // set for a subagent transcript
  int64_t startMillis = 0;
};

// A Claude Code session: prompts, replies streamed over 1–3 lines, tool calls and their results,
// system lines. Some replies are written again verbatim, and some assistant lines have no usage
// (the tool's own "<synthetic>" notes).
class ClaudeWriter : LogWriter {
 public:
  ClaudeWriter(SplitMix64& random, HomeGenerator::Stats& stats, const ClaudeSession& session,
               int64_t end)
      : LogWriter(random, stats, session.startMillis, end) {
    const bool subagent = !session.agentId.empty();
    fields_ = {{"parent", "null"},
               {"sidechain", subagent ? "true" : "false"},
               {"cwd", session.cwd},
               {"session", session.id},
               {"branch", random.chance(0.3) ? "feature/" + words(random, 1) : "main"},
               {"agent", subagent ? "\"agentId\":\"" + session.agentId + "\"," : ""},
               {"slug", words(random, 3)},
               {"command", words(random, 6)}};
    std::replace(fields_["slug"].begin(), fields_["slug"].end(), ' ', '-');
    if (subagent) models_ = {"claude-haiku-4-5-20251001", "claude-sonnet-4-5-20250929"};
    oneHourCache_ = random.chance(0.3);
  }

  void write(const fs::path& path, uint64_t targetBytes) {
    if (random_.chance(0.1)) line(kSummary);
    prompt();
    do {
      const bool toolCall = reply();
      if (random_.chance(0.01)) synthetic();
      if (random_.chance(0.02)) {  // a recent reply's last line, written once more
        out_ += finals_[random_.below(finals_.size())];
        ++stats_.lines, ++stats_.assistantLines, ++stats_.repeatedLines;
      }
      if (toolCall) {
        advance(100, 30'000);
        text(skewed(random_, 256, 25'000));  // written twice: for the model and in toolUseResult
        line(kToolResult);
      } else {
        set("duration", random_.between(2'000, 400'000));
        line(kTurnDuration);
        prompt();
      }
    } while (out_.size() < targetBytes);
    saveFile(path, out_, stats_);
  }

 private:
  void prompt() {
    advance(5'000, 600'000);
    text(skewed(random_, 40, 1'500));
    line(kPrompt);
  }

  // One reply over 1–3 lines sharing its ids, one content block each; only the last line has the
  // final output count. Returns whether it ends with a tool call.
  bool reply() {
    fields_["model"] = pick(random_, models_);
    fields_["msg"] = "msg_01" + letters(random_, kBase62, 22);
    fields_["req"] = "req_011C" + letters(random_, kBase62, 20);
    const int64_t input = random_.between(1, 12), cacheRead = context_;
    const int64_t cacheWrite = skewed(random_, 150, 8'000);
    const int64_t cacheWrite5m = oneHourCache_ ? 0 : cacheWrite,
                  output = skewed(random_, 12, 3'000);
    const TokenCounts tokens{input, cacheRead, cacheWrite5m, cacheWrite - cacheWrite5m, output, 0};
    context_ += cacheWrite;
    if (context_ > 180'000) context_ = random_.between(15'000, 40'000);  // compacted
    set("in", input), set("cr", cacheRead), set("cw", cacheWrite);
    set("cw5m", tokens.cacheWrite5m), set("cw1h", tokens.cacheWrite1h);

    const bool toolCall = random_.chance(0.75);
    const auto count = random_.between(1, 3);
    for (int64_t i = 0; i < count; ++i) {
      const bool last = i + 1 == count;
      std::string& block = fields_["block"];
      block.clear();
      if (last && toolCall) {
        fields_["tool"] = "toolu_01" + letters(random_, kBase62, 22);
        fields_["command"] = "rg -n " + words(random_, 2);
        fillIn(block, kToolUseBlock, fields_);
      } else if (i == 0 && count > 1) {
        fields_["blob"] = letters(random_, kBase64, static_cast<size_t>(skewed(random_, 200, 900)));
        text(skewed(random_, 100, 3'000));
        fillIn(block, kThinkingBlock, fields_);
      } else {
        text(skewed(random_, 40, 2'000));
        fillIn(block, kTextBlock, fields_);
      }
      set("out", last ? tokens.output : std::min(tokens.output, random_.between(1, 30)));
      advance(200, 15'000);
      const size_t start = line(kAssistant);
      ++stats_.assistantLines;
      if (last) finals_.emplace_back(out_, start);
      if (finals_.size() > 4) finals_.pop_front();
    }
    fields_["assistant"] = fields_["uuid"];
    ++stats_.claude.replies;
    stats_.claude.tokens += tokens;
    return toolCall;
  }

  void synthetic() {
    fields_["msg"] = uuid4(random_);
    for (const char* name : {"in", "cr", "cw", "cw5m", "cw1h", "out"}) set(name, 0);
    fields_["block"] = R"({"type":"text","text":"No response requested."})";
    const std::string model = std::exchange(fields_["model"], "<synthetic>");
    line(kAssistant);
    fields_["model"] = model;
  }

  std::vector<std::string_view> models_ = {"claude-opus-4-6", "claude-opus-4-6", "claude-opus-4-6",
                                           "claude-haiku-4-5-20251001",
                                           "claude-sonnet-4-5-20250929"};
  bool oneHourCache_ = false;
  int64_t context_ = 0;
  std::deque<std::string> finals_;  // the last lines of recent replies
};

// A Codex session log: its meta line, then turns of context (with the model), the user's
// message, and model calls with reasoning and tool output. Each call logs the cumulative token
// totals, often twice, with the rate limits.
class CodexWriter : LogWriter {
 public:
  CodexWriter(SplitMix64& random, HomeGenerator::Stats& stats, int64_t start, int64_t end,
              const std::string& session, const std::string& cwd)
      : LogWriter(random, stats, start, end) {
    fields_ = {{"session", session},
               {"cwd", cwd},
               {"hash", letters(random, "0123456789abcdef", 40)},
               {"model", random.chance(0.7) ? "gpt-5.3-codex" : "gpt-5.5"}};
  }

  void write(const fs::path& path, uint64_t targetBytes) {
    text(random_.between(4'000, 12'000));
    line(kCodexMeta);
    line(kCodexNoCount);
    do {
      advance(20'000, 900'000);
      fields_["turn"] = uuid7(random_, clock_);
      line(kCodexTurn);
      text(skewed(random_, 40, 1'500));
      line(kCodexUserMessage);
      for (auto calls = random_.between(1, 6); calls > 0; --calls) {
        advance(2'000, 40'000);
        fields_["blob"] = "gAAAAA" + letters(random_, kBase64, random_.between(800, 4'000));
        line(kCodexReasoning);
        tokenCount();
        advance(100, 20'000);
        fields_["call"] = "call_" + letters(random_, kBase62, 24);
        text(skewed(random_, 200, 30'000));
        line(kCodexCallOutput);
      }
    } while (out_.size() < targetBytes);
    saveFile(path, out_, stats_);
  }

 private:
  // One model call: the conversation so far is sent again, most of it from the cache.
  void tokenCount() {
    const int64_t cached = context_ == 0 ? 0 : random_.between(context_ * 3 / 4, context_);
    const int64_t input = context_ + random_.between(500, 12'000);
    context_ = input + random_.between(20, 3'000);
    if (context_ > 220'000) context_ = random_.between(15'000, 30'000);  // compacted
    const int64_t output = random_.between(20, 3'000), reasoning = random_.between(0, output);
    const TokenCounts last{input - cached, cached, 0, 0, output, reasoning};
    total_ += last;
    ++stats_.codex.replies;
    stats_.codex.tokens += last;

    for (auto [name, tokens] : {std::pair{"total", total_}, std::pair{"last", last}}) {
      fields_[name].clear();
      fillIn(fields_[name], kCodexUsage, tokenFields(tokens));
    }
    fields_["primary"] = fmt::format("{}.0", random_.between(0, 90));
    fields_["secondary"] = fmt::format("{}.0", random_.between(0, 90));
    set("primaryReset", clock_ / 1000 + random_.between(60, 18'000));
    set("secondaryReset", clock_ / 1000 + random_.between(3'600, 604'800));
    for (int copies = random_.chance(0.3) ? 2 : 1; copies > 0; --copies) {
      line(kCodexCount);
      ++stats_.codexTokenCounts;
    }
  }

  int64_t context_ = 0;
  TokenCounts total_;
};

// A Grok Build session document: turns with prompt, answer and per-model usage. The last turn of
// some sessions is still running (no `endedAt`), so it does not count yet.
void writeGrok(SplitMix64& random, HomeGenerator::Stats& stats, const fs::path& path,
               uint64_t targetBytes, int64_t clock, int64_t end, const std::string& cwd) {
  const std::string created = timestamp(clock);
  Fields fields{{"session", uuid4(random)}, {"cwd", cwd}};
  std::string& turns = fields["turns"];
  const bool lastRunning = random.chance(0.3);
  for (int64_t turn = 1; turn == 1 || turns.size() < targetBytes; ++turn) {
    const bool running = lastRunning && turns.size() + 8'000 >= targetBytes;
    clock = std::min(end, clock + random.between(30'000, 1'200'000));
    fields["turn"] = std::to_string(turn);
    fields["ts"] = timestamp(clock);
    fields["command"] = words(random, 12);
    poolText(random, fields["text"], random.between(300, 12'000));
    clock = std::min(end, clock + random.between(5'000, 300'000));
    fields["ended"] = running ? "" : ",\"endedAt\":\"" + timestamp(clock) + "\"";
    std::string& usage = fields["usage"] = "{";
    for (const char* model : {"grok-code-fast-1", "grok-4-fast-reasoning"}) {
      if (usage.size() > 1 && random.chance(0.8)) break;
      const int64_t input = random.between(2'000, 90'000), cached = random.between(0, input);
      const int64_t output = random.between(50, 6'000), written = random.between(0, 2'000);
      const TokenCounts tokens{input - cached,           cached, written, 0, output,
                               random.between(0, output)};
      Fields values = tokenFields(tokens);
      values["model"] = model;
      values["ticks"] = std::to_string(tokens.processed() * 3'000);
      if (usage.size() > 1) usage += ',';
      fillIn(usage, kGrokUsage, values);
      if (!running) {
        ++stats.grok.replies;
        stats.grok.tokens += tokens;
      }
    }
    usage += '}';
    if (turn > 1) turns += ',';
    fillIn(turns, kGrokTurn, fields);
    if (running) break;
  }
  fields["ts"] = created;
  std::string document;
  fillIn(document, kGrokSession, fields);
  saveFile(path, document + '\n', stats);
  ++stats.lines, ++stats.grokFiles;
}

std::string folderOf(std::string cwd) {  // as Claude Code names a project's folder
  std::replace(cwd.begin(), cwd.end(), '/', '-');
  std::replace(cwd.begin(), cwd.end(), '.', '-');
  return cwd;
}

}  // namespace

HomeGenerator::HomeGenerator(uint64_t seed) : random_(seed) {}

HomeGenerator::Stats HomeGenerator::writeTranscript(const fs::path& path, uint64_t bytes) {
  Stats stats;
  const ClaudeSession session{uuid4(random_), "/home/dev/code/harbor-api", "",
                              1'767'225'600'000};  // 2026-01-01T00:00:00Z
  ClaudeWriter{random_, stats, session, std::numeric_limits<int64_t>::max() / 2}.write(path, bytes);
  stats.claudeFiles = 1;
  return stats;
}

HomeGenerator::Stats HomeGenerator::write(const fs::path& home, const Options& options) {
  if (options.claudeFiles == 0 || options.projects == 0 || options.days <= 0) {
    throw std::invalid_argument("A home needs at least one Claude transcript, project and day");
  }
  // Each tool's first log folder at its default place.
  const ToolLocations where = ToolLocations::resolve(home, {});
  auto logRoot = [&where](ProviderID tool) { return where.places(tool).logFolders.front().root; };
  const int64_t windowStart = (options.endDay - options.days + 1) * kDayMillis;
  const int64_t windowEnd = (options.endDay + 1) * kDayMillis - 1;
  // A start in the window (or soon after `after`), early enough for `bytes` to end in it.
  const auto startFor = [&](uint64_t bytes, std::optional<int64_t> after = std::nullopt) {
    int64_t start =
        after ? *after : windowStart + random_.between(0, options.days - 1) * kDayMillis;
    start +=
        after ? random_.between(60'000, 3'600'000) : random_.between(7 * 3'600'000, 23 * 3'600'000);
    return std::max(windowStart,
                    std::min(start, windowEnd - static_cast<int64_t>(bytes) * kMillisPerByte));
  };
  std::vector<std::string> projects;
  for (size_t i = 0; i < options.projects; ++i) {
    const size_t round = i / kWords.size();
    projects.push_back(fmt::format("/home/dev/code/{}{}", kWords[i % kWords.size()],
                                   round == 0 ? "" : fmt::format("-{}", round + 1)));
  }
  Stats stats;

  // Codex and Grok take about 1% of the bytes, the transcripts the rest.
  const auto total = static_cast<double>(options.totalBytes);
  for (size_t i = 0; i < options.codexFiles; ++i) {
    const auto bytes = static_cast<uint64_t>(std::max(
        20'000.0,
        total * 0.008 / static_cast<double>(options.codexFiles) * std::exp(0.7 * normal(random_))));
    const int64_t start = startFor(bytes);
    const std::string id = uuid7(random_, start), when = timestamp(start);
    std::string name = "rollout-" + when.substr(0, 19) + "-" + id + ".jsonl";
    std::replace(name.begin(), name.end(), ':', '-');
    const fs::path dir =
        logRoot(ProviderID::codex) / when.substr(0, 4) / when.substr(5, 2) / when.substr(8, 2);
    fs::create_directories(dir);
    const std::string& cwd = projects[random_.below(projects.size())];
    CodexWriter{random_, stats, start, windowEnd, id, cwd}.write(dir / name, bytes);
    ++stats.codexFiles;
  }
  fs::create_directories(logRoot(ProviderID::grok));
  for (size_t i = 0; i < options.grokFiles; ++i) {
    const auto bytes = static_cast<uint64_t>(std::max(
        3'000.0,
        total * 0.0005 / static_cast<double>(options.grokFiles) * std::exp(0.5 * normal(random_))));
    const fs::path path = logRoot(ProviderID::grok) / (uuid4(random_) + ".json");
    const int64_t start = startFor(bytes * 40);
    writeGrok(random_, stats, path, bytes, start, windowEnd,
              projects[random_.below(projects.size())]);
  }

  // Log-normal transcript sizes, clamped, scaled so that together they make the rest.
  const double claudeBytes = std::max(total / 2, total - static_cast<double>(stats.bytes));
  std::vector<double> sizes(options.claudeFiles);
  for (double& size : sizes) size = std::exp(options.sizeSigma * normal(random_));
  const auto low = static_cast<double>(options.minFileBytes);
  const auto high = static_cast<double>(std::max(options.minFileBytes, options.maxFileBytes));
  for (int round = 0; round < 60; ++round) {
    double sum = 0;
    for (const double size : sizes) sum += std::clamp(size, low, high);
    if (std::abs(sum - claudeBytes) < 1e-4 * claudeBytes) break;
    for (double& size : sizes) size *= claudeBytes / sum;
  }

  // Projects are picked with skewed weights, so a few hold most sessions. A subagent's transcript
  // sits in a folder named after the session it belongs to, whose id it carries.
  std::vector<ClaudeSession> sessions;
  for (const double size : sizes) {
    const auto bytes = static_cast<uint64_t>(std::clamp(size, low, high));
    ClaudeSession session;
    fs::path path;
    if (!sessions.empty() && random_.chance(options.subagentShare)) {
      session = sessions[random_.below(sessions.size())];
      session.agentId = "a" + letters(random_, "0123456789abcdef", 6);
      session.startMillis = startFor(bytes, session.startMillis);
      path = logRoot(ProviderID::claude) / folderOf(session.cwd) / session.id / "subagents" /
             ("agent-" + session.agentId + ".jsonl");
      ++stats.subagentFiles;
    } else {
      const auto project =
          static_cast<size_t>(static_cast<double>(projects.size()) * std::pow(random_.unit(), 2.5));
      session = {uuid4(random_), projects[project], "", startFor(bytes)};
      sessions.push_back(session);
      path = logRoot(ProviderID::claude) / folderOf(session.cwd) / (session.id + ".jsonl");
    }
    fs::create_directories(path.parent_path());
    ClaudeWriter{random_, stats, session, windowEnd}.write(path, bytes);
    ++stats.claudeFiles;
  }
  return stats;
}

}  // namespace brimlog
