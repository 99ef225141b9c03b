#include "HomeGenerator.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numbers>
#include <numeric>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "SplitMix64.hpp"
#include "TranscriptGenerator.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kDayMillis = 86'400'000;
// With its default line mix, a TranscriptGenerator session advances its clock by about 8 ms per
// byte written (a 200 MiB session spans 19 days). A small session varies far more: a few prompts
// can each wait up to ten minutes. Sessions are placed so that even a slow one ends before the
// window does.
constexpr double kSessionMillisPerByte = 9.0;
constexpr int64_t kSessionMarginMillis = 4 * 3'600'000;
// Copies of a file's last finished replies kept for a session that resumes it.
constexpr size_t kKeptReplies = 6;

constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kBase62 =
    "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
constexpr std::string_view kBase64 =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

const std::vector<std::string_view> kProjectWords = {
    "harbor", "ledger", "atlas",   "beacon",  "cinder", "delta",    "ember",  "fjord",  "glacier",
    "helix",  "iris",   "juniper", "kestrel", "lumen",  "meridian", "nimbus", "orchid", "pylon",
    "quartz", "raven",  "sable",   "tundra",  "umber",  "vertex",   "willow", "yarrow", "zephyr"};
const std::vector<std::string_view> kProjectSuffixes = {"",     "-api", "-web",   "-cli",
                                                        "-app", "-ios", "-infra", "-docs"};
const std::vector<std::string_view> kFillerWords = {
    "the",   "parser", "returns", "cursor", "offset", "batch",   "commit",  "test",   "passes",
    "fails", "update", "config",  "schema", "index",  "request", "session", "tokens", "cache",
    "build", "error",  "value",   "first",  "then",   "check",   "line",    "file",   "window",
    "limit", "quota",  "worker",  "queue",  "reader", "writer",  "store",   "model",  "reply"};
const std::vector<std::string_view> kCodexModels = {"gpt-5.3-codex", "gpt-5.3-codex",
                                                    "gpt-5.3-codex", "gpt-5.5"};
const std::vector<std::string_view> kGrokModels = {"grok-code-fast-1", "grok-4-fast-reasoning"};

std::string_view pick(SplitMix64& random, const std::vector<std::string_view>& words) {
  return words[random.below(words.size())];
}

std::string hexDigits(SplitMix64& random, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += kHex[random.below(16)];
  return text;
}

// Version 4 layout: 8-4-4-4-12 hex digits, version nibble 4, variant 8..b.
std::string uuid4(SplitMix64& random) {
  std::string id = hexDigits(random, 8) + '-' + hexDigits(random, 4) + "-4" + hexDigits(random, 3) +
                   '-' + kHex[8 + random.below(4)] + hexDigits(random, 3) + '-' +
                   hexDigits(random, 12);
  return id;
}

// Version 7 layout, as Codex names its sessions: the first 48 bits are the creation time in
// milliseconds.
std::string uuid7(SplitMix64& random, int64_t unixMillis) {
  std::string time;
  for (int shift = 44; shift >= 0; shift -= 4) {
    time += kHex[static_cast<size_t>(unixMillis >> shift) & 15];
  }
  return time.substr(0, 8) + '-' + time.substr(8, 4) + "-7" + hexDigits(random, 3) + '-' +
         kHex[8 + random.below(4)] + hexDigits(random, 3) + '-' + hexDigits(random, 12);
}

std::string timestamp(int64_t unixMillis) {
  std::string text;
  TranscriptGenerator::appendTimestamp(text, unixMillis);
  return text;
}

void appendInt(std::string& out, int64_t value) { out += std::to_string(value); }

// A standard normal draw (Box-Muller), from two uniform draws.
double normal(SplitMix64& random) {
  const double u = 1.0 - random.unit();  // in (0, 1]
  const double v = random.unit();
  return std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * std::numbers::pi * v);
}

// Text that looks like tool output and prose, for the Codex and Grok files.
void appendFiller(std::string& raw, SplitMix64& random, size_t bytes) {
  const size_t end = raw.size() + bytes;
  while (raw.size() < end) {
    switch (random.below(4)) {
      case 0:
        raw += "src/";
        raw += pick(random, kFillerWords);
        raw += '_';
        raw += pick(random, kFillerWords);
        raw += ".rs:";
        raw += std::to_string(random.between(1, 900));
        raw += ": ";
        break;
      case 1:
        raw += "  \"";
        raw += pick(random, kFillerWords);
        raw += "\": ";
        break;
      default:
        break;
    }
    for (auto words = random.between(4, 12); words > 0; --words) {
      raw += pick(random, kFillerWords);
      raw += ' ';
    }
    raw += random.chance(0.1) ? "→ ✓\n" : "\n";
  }
}

// Writes a file through a buffer of about a megabyte; throws filesystem_error naming the file.
class FileWriter {
 public:
  explicit FileWriter(const fs::path& path) : path_(path), file_(std::fopen(path.c_str(), "wb")) {
    if (file_ == nullptr) fail("Cannot create file", errno);
    buffer_.reserve(kFlushBytes + 256 * 1024);
  }
  FileWriter(const FileWriter&) = delete;
  FileWriter& operator=(const FileWriter&) = delete;
  ~FileWriter() {
    if (file_ != nullptr) std::fclose(file_);
  }

  std::string& buffer() { return buffer_; }
  uint64_t bytes() const { return written_ + buffer_.size(); }

  void flushIfFull() {
    if (buffer_.size() >= kFlushBytes) flush();
  }

  void close() {
    flush();
    std::FILE* file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0) fail("Cannot write file", errno);
  }

 private:
  static constexpr size_t kFlushBytes = 1 << 20;

  void flush() {
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_) != buffer_.size()) {
      fail("Cannot write file", errno);
    }
    written_ += buffer_.size();
    buffer_.clear();
  }

  [[noreturn]] void fail(const char* what, int error) const {
    throw fs::filesystem_error(what, path_, std::error_code(error, std::generic_category()));
  }

  fs::path path_;
  std::FILE* file_;
  std::string buffer_;
  uint64_t written_ = 0;
};

struct Project {
  std::string cwd;
  std::string folder;  // the cwd with '/' and '.' turned into '-', as Claude Code names it
};

struct ClaudeFile {
  size_t project = 0;
  std::optional<size_t> parent;      // set for a subagent transcript
  std::optional<size_t> resumeFrom;  // set for a session that resumes an earlier one
  uint64_t bytes = 0;
  int64_t startMillis = 0;
  uint64_t seed = 0;
  std::string sessionId;
  std::string agentId;
  bool keepReplies = false;  // another session resumes this one
};

// Log-normal sizes scaled to `total`, each clamped to the bounds.
std::vector<uint64_t> heavyTailedSizes(SplitMix64& random, size_t count, uint64_t total,
                                       const HomeGenerator::Options& options) {
  std::vector<double> raw(count);
  for (double& value : raw) value = std::exp(options.sizeSigma * normal(random));
  const auto low = static_cast<double>(options.minFileBytes);
  const auto high = static_cast<double>(std::max(options.minFileBytes, options.maxFileBytes));
  double scale = static_cast<double>(total) / std::accumulate(raw.begin(), raw.end(), 0.0);
  std::vector<uint64_t> sizes(count);
  for (int round = 0; round < 60; ++round) {
    double sum = 0;
    for (size_t i = 0; i < count; ++i) {
      const double size = std::clamp(raw[i] * scale, low, high);
      sizes[i] = static_cast<uint64_t>(size);
      sum += size;
    }
    if (std::abs(sum - static_cast<double>(total)) < 1e-4 * static_cast<double>(total)) break;
    scale *= static_cast<double>(total) / sum;
  }
  return sizes;
}

int64_t clampStart(int64_t start, uint64_t bytes, int64_t windowStart, int64_t windowEnd) {
  const auto duration = static_cast<int64_t>(static_cast<double>(bytes) * kSessionMillisPerByte) +
                        kSessionMarginMillis;
  return std::max(windowStart, std::min(start, windowEnd - duration));
}

// One Codex rollout: session meta, then turns of user message, reasoning, tool calls with their
// output and token_count events (sometimes written twice, as the tool does), and a final answer.
class CodexWriter {
 public:
  CodexWriter(SplitMix64& random, HomeGenerator::Stats& stats) : random_(random), stats_(stats) {}

  // The instant of the last line written.
  int64_t clock() const { return clock_; }

  void write(const fs::path& path, uint64_t targetBytes, int64_t startMillis,
             const std::string& sessionId, const std::string& cwd) {
    FileWriter file{path};
    out_ = &file.buffer();
    clock_ = startMillis;
    model_ = pick(random_, kCodexModels);
    total_ = {};
    context_ = 0;

    begin("session_meta");
    *out_ += "{\"id\":\"" + sessionId + "\",\"timestamp\":\"" + timestamp(clock_) + "\",\"cwd\":";
    TranscriptGenerator::appendJsonString(*out_, cwd);
    *out_ +=
        ",\"originator\":\"codex_cli_rs\",\"cli_version\":\"0.104.0\",\"source\":\"cli\","
        "\"model_provider\":\"openai\",\"base_instructions\":{\"text\":";
    text(6'000, 14'000);
    *out_ +=
        "},\"git\":{\"commit_hash\":\"" + hexDigits(random_, 40) + "\",\"branch\":\"main\"}}}\n";
    ++stats_.lines;

    do {
      turn();
      file.flushIfFull();
    } while (file.bytes() < targetBytes);
    file.close();
    stats_.bytes += file.bytes();
  }

 private:
  struct Usage {
    int64_t input = 0, cached = 0, output = 0, reasoning = 0;
  };

  void begin(std::string_view type) {
    *out_ += "{\"timestamp\":\"" + timestamp(clock_) + "\",\"type\":\"";
    *out_ += type;
    *out_ += "\",\"payload\":";
  }

  void text(size_t low, size_t high) {
    scratch_.clear();
    appendFiller(scratch_, random_,
                 static_cast<size_t>(
                     random_.between(static_cast<int64_t>(low), static_cast<int64_t>(high))));
    TranscriptGenerator::appendJsonString(*out_, scratch_);
  }

  void turn() {
    clock_ += random_.between(20'000, 900'000);
    begin("turn_context");
    *out_ += "{\"turn_id\":\"" + uuid7(random_, clock_) +
             "\",\"approval_policy\":\"on-request\",\"sandbox_policy\":{\"type\":"
             "\"workspace-write\",\"network_access\":false},\"model\":\"";
    *out_ += model_;
    *out_ += "\",\"effort\":\"medium\",\"summary\":\"auto\"}}\n";
    begin("event_msg");
    *out_ += "{\"type\":\"user_message\",\"message\":";
    text(40, 1'500);
    *out_ += ",\"images\":[]}}\n";
    stats_.lines += 2;

    for (auto calls = random_.between(1, 8); calls > 0; --calls) {
      clock_ += random_.between(2'000, 40'000);
      begin("response_item");
      *out_ += "{\"type\":\"reasoning\",\"summary\":[{\"type\":\"summary_text\",\"text\":";
      text(60, 400);
      *out_ += "}],\"content\":null,\"encrypted_content\":\"gAAAAA";
      for (auto n = random_.between(800, 4'000); n > 0; --n) *out_ += kBase64[random_.below(64)];
      *out_ += "\"}}\n";
      tokenCount();
      const std::string callId = "call_" + base62(24);
      begin("response_item");
      *out_ += "{\"type\":\"function_call\",\"name\":\"shell\",\"arguments\":";
      TranscriptGenerator::appendJsonString(*out_, "{\"command\":[\"bash\",\"-lc\",\"rg -n " +
                                                       std::string(pick(random_, kFillerWords)) +
                                                       " src\"],\"workdir\":\"/Users/dev/code\"}");
      *out_ += ",\"call_id\":\"" + callId + "\"}}\n";
      clock_ += random_.between(100, 20'000);
      // The output is a JSON document of its own, carried as a string.
      std::string inner = "{\"output\":";
      scratch_.clear();
      appendFiller(
          scratch_, random_,
          static_cast<size_t>(std::exp(std::log(200.0) + std::log(150.0) * random_.unit())));
      TranscriptGenerator::appendJsonString(inner, scratch_);
      inner += ",\"metadata\":{\"exit_code\":0,\"duration_seconds\":0.";
      inner += std::to_string(random_.between(1, 9));
      inner += "}}";
      begin("response_item");
      *out_ += "{\"type\":\"function_call_output\",\"call_id\":\"" + callId + "\",\"output\":";
      TranscriptGenerator::appendJsonString(*out_, inner);
      *out_ += "}}\n";
      stats_.lines += 3;
    }
    clock_ += random_.between(2'000, 30'000);
    begin("response_item");
    *out_ +=
        "{\"type\":\"message\",\"role\":\"assistant\",\"content\":[{\"type\":\"output_text\","
        "\"text\":";
    text(200, 3'000);
    *out_ += "}]}}\n";
    begin("event_msg");
    *out_ += "{\"type\":\"agent_message\",\"message\":\"Done.\"}}\n";
    stats_.lines += 2;
    tokenCount();
  }

  void tokenCount() {
    Usage last;
    // Each call sends the conversation so far, most of it cached; the tool compacts the
    // conversation when it nears the model's window.
    last.cached = context_ == 0 ? 0 : random_.between(context_ * 3 / 4, context_);
    last.input = context_ + random_.between(500, 12'000);
    context_ = last.input + random_.between(20, 3'000);
    if (context_ > 220'000) context_ = random_.between(15'000, 30'000);
    last.output = random_.between(20, 3'000);
    last.reasoning = random_.between(0, last.output);
    total_.input += last.input;
    total_.cached += last.cached;
    total_.output += last.output;
    total_.reasoning += last.reasoning;
    ++stats_.codexCalls;
    // The tool often writes the same count twice in a row.
    for (int copies = random_.chance(0.3) ? 2 : 1; copies > 0; --copies) {
      begin("event_msg");
      *out_ += "{\"type\":\"token_count\",\"info\":{\"total_token_usage\":";
      usage(total_);
      *out_ += ",\"last_token_usage\":";
      usage(last);
      *out_ +=
          ",\"model_context_window\":258400},\"rate_limits\":{\"limit_id\":\"codex\","
          "\"primary\":{\"used_percent\":";
      appendInt(*out_, random_.between(0, 90));
      *out_ += ".0,\"window_minutes\":300,\"resets_at\":";
      appendInt(*out_, clock_ / 1000 + random_.between(60, 18'000));
      *out_ += "},\"secondary\":{\"used_percent\":";
      appendInt(*out_, random_.between(0, 90));
      *out_ += ".0,\"window_minutes\":10080,\"resets_at\":";
      appendInt(*out_, clock_ / 1000 + random_.between(3'600, 604'800));
      *out_ += "},\"plan_type\":\"plus\"}}}\n";
      ++stats_.lines;
      ++stats_.codexTokenCounts;
    }
  }

  void usage(const Usage& u) {
    *out_ += "{\"input_tokens\":";
    appendInt(*out_, u.input);
    *out_ += ",\"cached_input_tokens\":";
    appendInt(*out_, u.cached);
    *out_ += ",\"output_tokens\":";
    appendInt(*out_, u.output);
    *out_ += ",\"reasoning_output_tokens\":";
    appendInt(*out_, u.reasoning);
    *out_ += ",\"total_tokens\":";
    appendInt(*out_, u.input + u.output);
    *out_ += '}';
  }

  std::string base62(size_t length) {
    std::string id;
    for (size_t i = 0; i < length; ++i) id += kBase62[random_.below(kBase62.size())];
    return id;
  }

  SplitMix64& random_;
  HomeGenerator::Stats& stats_;
  std::string* out_ = nullptr;
  std::string scratch_;
  std::string_view model_;
  int64_t clock_ = 0;
  Usage total_;
  int64_t context_ = 0;
};

// One Grok Build session document: its turns with prompt, answer and per-model usage. The last
// turn of some sessions is still running (no `endedAt`).
int64_t writeGrok(const fs::path& path, uint64_t targetBytes, int64_t startMillis,
                  const std::string& sessionId, const std::string& cwd, SplitMix64& random,
                  HomeGenerator::Stats& stats) {
  FileWriter file{path};
  std::string& out = file.buffer();
  int64_t clock = startMillis;
  out += "{\"sessionId\":\"" + sessionId + "\",\"cwd\":";
  TranscriptGenerator::appendJsonString(out, cwd);
  out += ",\"createdAt\":\"" + timestamp(clock) + "\",\"turns\":[";
  const bool lastRunning = random.chance(0.3);
  std::string raw;
  for (int64_t turn = 1; turn == 1 || file.bytes() < targetBytes; ++turn) {
    if (turn > 1) out += ',';
    clock += random.between(30'000, 1'200'000);
    out += "{\"turnNumber\":";
    appendInt(out, turn);
    out += ",\"startedAt\":\"" + timestamp(clock) + "\",\"prompt\":";
    raw.clear();
    appendFiller(raw, random, static_cast<size_t>(random.between(40, 1'200)));
    TranscriptGenerator::appendJsonString(out, raw);
    out += ",\"response\":";
    raw.clear();
    appendFiller(raw, random, static_cast<size_t>(random.between(300, 12'000)));
    TranscriptGenerator::appendJsonString(out, raw);
    clock += random.between(5'000, 300'000);
    const bool running = lastRunning && file.bytes() + 4'000 >= targetBytes;
    if (!running) out += ",\"endedAt\":\"" + timestamp(clock) + "\"";
    out += ",\"modelUsage\":{";
    const size_t models = random.chance(0.2) ? 2 : 1;
    for (size_t m = 0; m < models; ++m) {
      if (m > 0) out += ',';
      out += '"';
      out += kGrokModels[m];
      const int64_t input = random.between(2'000, 90'000);
      const int64_t cached = random.between(0, input);
      const int64_t output = random.between(50, 6'000);
      out += "\":{\"inputTokens\":";
      appendInt(out, input);
      out += ",\"cachedReadTokens\":";
      appendInt(out, cached);
      out += ",\"cacheCreationTokens\":0,\"outputTokens\":";
      appendInt(out, output);
      out += ",\"reasoningTokens\":";
      appendInt(out, random.between(0, output));
      out += ",\"costUsdTicks\":";
      appendInt(out, (input - cached) * 2'000 + cached * 500 + output * 15'000);
      out += '}';
    }
    out += "}}";
    ++stats.grokTurns;
    if (!running) stats.grokModelUsages += models;
    file.flushIfFull();
    if (running) break;
  }
  out += "]}\n";
  ++stats.lines;
  file.close();
  stats.bytes += file.bytes();
  return clock;
}

uint64_t percentile(const std::vector<uint64_t>& sorted, double fraction) {
  if (sorted.empty()) return 0;
  const auto index = static_cast<size_t>(fraction * static_cast<double>(sorted.size() - 1));
  return sorted[index];
}

}  // namespace

HomeGenerator::HomeGenerator(uint64_t seed) : seed_(seed) {}

std::optional<int64_t> HomeGenerator::dayNumber(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  auto digits = [&](size_t from, size_t count) -> std::optional<int> {
    int value = 0;
    for (size_t i = from; i < from + count; ++i) {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      value = value * 10 + (text[i] - '0');
    }
    return value;
  };
  const auto year = digits(0, 4), month = digits(5, 2), day = digits(8, 2);
  if (!year || !month || !day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year{*year},
                                         std::chrono::month{static_cast<unsigned>(*month)},
                                         std::chrono::day{static_cast<unsigned>(*day)}};
  if (!date.ok()) return std::nullopt;
  return std::chrono::sys_days{date}.time_since_epoch().count();
}

int64_t HomeGenerator::today() {
  return std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now())
      .time_since_epoch()
      .count();
}

HomeGenerator::Stats HomeGenerator::write(const fs::path& home, const Options& options) {
  if (options.claudeFiles == 0 || options.projects == 0 || options.days <= 0) {
    throw std::invalid_argument("A home needs at least one Claude file, project and day");
  }
  SplitMix64 random{seed_};
  Stats stats;
  stats.firstMillis = std::numeric_limits<int64_t>::max();
  const int64_t windowStart = (options.endDay - options.days + 1) * kDayMillis;
  const int64_t windowEnd = (options.endDay + 1) * kDayMillis - 1;
  auto randomStart = [&] {
    const int64_t day = options.endDay - options.days + 1 + random.between(0, options.days - 1);
    return day * kDayMillis + random.between(7 * 3'600'000, 23 * 3'600'000);
  };

  // Projects, named the way Claude Code names their folders.
  std::vector<Project> projects;
  std::vector<double> weights;
  std::set<std::string> names;
  for (size_t i = 0; i < options.projects; ++i) {
    std::string name =
        std::string(pick(random, kProjectWords)) + std::string(pick(random, kProjectSuffixes));
    if (!names.insert(name).second) name += "-" + std::to_string(i);
    Project project{"/Users/dev/code/" + name, {}};
    project.folder = project.cwd;
    std::replace(project.folder.begin(), project.folder.end(), '/', '-');
    std::replace(project.folder.begin(), project.folder.end(), '.', '-');
    projects.push_back(std::move(project));
    weights.push_back(1.0 / std::pow(static_cast<double>(i + 1), 0.9));
  }
  const double weightSum = std::accumulate(weights.begin(), weights.end(), 0.0);

  // The Claude files: project, kind, parent or resumed session.
  std::vector<ClaudeFile> files(options.claudeFiles);
  std::vector<std::vector<size_t>> mainSessions(projects.size());
  for (size_t i = 0; i < files.size(); ++i) {
    ClaudeFile& file = files[i];
    double draw = random.unit() * weightSum;
    while (file.project + 1 < projects.size() && draw >= weights[file.project]) {
      draw -= weights[file.project++];
    }
    file.seed = random.next();
    const std::vector<size_t>& earlier = mainSessions[file.project];
    if (!earlier.empty() && random.chance(options.subagentShare)) {
      file.parent = earlier[random.below(earlier.size())];
      file.sessionId = files[*file.parent].sessionId;
      file.agentId = "a" + hexDigits(random, 6);
      continue;
    }
    file.sessionId = uuid4(random);
    if (!earlier.empty() && random.chance(options.resumedShare)) {
      file.resumeFrom = earlier.back();
      files[earlier.back()].keepReplies = true;
    }
    mainSessions[file.project].push_back(i);
  }

  // Codex and Grok take their share of the bytes first, log-uniform between their bounds (about
  // 1% of a 1 GB home), scaled down to a tenth of the home when they would take more; the Claude
  // files share the rest.
  auto logUniform = [&](uint64_t low, uint64_t high) {
    const double a = std::log(static_cast<double>(std::max<uint64_t>(1, low)));
    const double b = std::log(static_cast<double>(std::max(low, high)));
    return std::exp(a + (b - a) * random.unit());
  };
  std::vector<double> codexDraws, grokDraws;
  double otherBytes = 0;
  for (size_t i = 0; i < options.codexFiles; ++i) {
    codexDraws.push_back(logUniform(options.codexMinFileBytes, options.codexMaxFileBytes));
    otherBytes += codexDraws.back();
  }
  for (size_t i = 0; i < options.grokFiles; ++i) {
    grokDraws.push_back(logUniform(options.grokMinFileBytes, options.grokMaxFileBytes));
    otherBytes += grokDraws.back();
  }
  const double scale =
      std::min(1.0, 0.1 * static_cast<double>(options.totalBytes) / std::max(1.0, otherBytes));
  std::vector<uint64_t> codexSizes, grokSizes;
  for (double draw : codexDraws) codexSizes.push_back(static_cast<uint64_t>(scale * draw));
  for (double draw : grokDraws) grokSizes.push_back(static_cast<uint64_t>(scale * draw));

  // Codex rollouts, the last ones archived, and Grok sessions.
  CodexWriter codex{random, stats};
  for (size_t i = 0; i < codexSizes.size(); ++i) {
    const int64_t start = clampStart(randomStart(), codexSizes[i] * 2, windowStart, windowEnd);
    const std::string when = timestamp(start);
    const std::string id = uuid7(random, start);
    std::string name = "rollout-" + when.substr(0, 19) + "-" + id + ".jsonl";
    std::replace(name.begin() + 19, name.end(), ':', '-');
    fs::path dir = home / ".codex";
    dir = i + 3 >= codexSizes.size() && codexSizes.size() > 3
              ? dir / "archived_sessions"
              : dir / "sessions" / when.substr(0, 4) / when.substr(5, 2) / when.substr(8, 2);
    fs::create_directories(dir);
    codex.write(dir / name, codexSizes[i], start, id, projects[random.below(projects.size())].cwd);
    stats.firstMillis = std::min(stats.firstMillis, start);
    stats.lastMillis = std::max(stats.lastMillis, codex.clock());
    ++stats.codexFiles;
  }
  for (uint64_t bytes : grokSizes) {
    const int64_t start = clampStart(randomStart(), bytes * 40, windowStart, windowEnd);
    const fs::path dir = home / ".grok" / "sessions";
    fs::create_directories(dir);
    const std::string id = uuid4(random);
    const int64_t end = writeGrok(dir / (id + ".json"), bytes, start, id,
                                  projects[random.below(projects.size())].cwd, random, stats);
    stats.firstMillis = std::min(stats.firstMillis, start);
    stats.lastMillis = std::max(stats.lastMillis, end);
    ++stats.grokFiles;
  }

  const uint64_t claudeBytes =
      options.totalBytes > stats.bytes ? options.totalBytes - stats.bytes : options.totalBytes / 2;
  // A subagent bigger than its parent swaps sizes with it: subagents do a part of their
  // session's work.
  std::vector<uint64_t> sizes = heavyTailedSizes(random, files.size(), claudeBytes, options);
  for (size_t i = 0; i < files.size(); ++i) files[i].bytes = sizes[i];
  for (ClaudeFile& file : files) {
    if (file.parent && file.bytes > files[*file.parent].bytes) {
      std::swap(file.bytes, files[*file.parent].bytes);
    }
  }

  // Start times: main sessions anywhere in the window, resumed ones after the session they
  // resume, subagents while their parent runs.
  for (ClaudeFile& file : files) {
    int64_t start = 0;
    if (file.parent) {
      const ClaudeFile& parent = files[*file.parent];
      const auto parentLength =
          static_cast<int64_t>(static_cast<double>(parent.bytes) * kSessionMillisPerByte);
      start = parent.startMillis + random.between(0, std::max<int64_t>(1, parentLength));
    } else if (file.resumeFrom) {
      const ClaudeFile& source = files[*file.resumeFrom];
      start = source.startMillis +
              static_cast<int64_t>(static_cast<double>(source.bytes) * kSessionMillisPerByte) +
              random.between(600'000, 3 * kDayMillis);
    } else {
      start = randomStart();
    }
    file.startMillis = clampStart(start, file.bytes, windowStart, windowEnd);
  }

  // Claude transcripts.
  std::vector<std::vector<std::string>> kept(files.size());
  std::vector<bool> projectUsed(projects.size());
  int64_t surplus = 0;
  for (size_t i = 0; i < files.size(); ++i) {
    const ClaudeFile& plan = files[i];
    const Project& project = projects[plan.project];
    fs::path dir = home / ".claude" / "projects" / project.folder;
    fs::path path = dir / (plan.sessionId + ".jsonl");
    if (plan.parent) {
      dir = dir / plan.sessionId / "subagents";
      path = dir / ("agent-" + plan.agentId + ".jsonl");
    }
    fs::create_directories(dir);
    projectUsed[plan.project] = true;

    TranscriptGenerator generator{plan.seed};
    TranscriptGenerator::Options session;
    session.sessionId = plan.sessionId;
    session.cwd = project.cwd;
    session.isSidechain = plan.parent.has_value();
    session.startUnixMillis = plan.startMillis;
    SplitMix64 local{plan.seed ^ 0x5bd1e995};
    if (local.chance(0.3)) session.gitBranch = "feature/" + std::string(pick(local, kFillerWords));
    if (plan.parent) session.models = {"claude-haiku-4-5-20251001", "claude-sonnet-4-5-20250929"};

    FileWriter file{path};
    std::string& out = file.buffer();
    if (plan.resumeFrom) {
      // The tool opens a resumed session with the earlier session's last replies.
      const std::vector<std::string>& copies = kept[*plan.resumeFrom];
      const size_t count = std::min<size_t>(copies.size(), 2 + local.below(kKeptReplies - 1));
      for (size_t c = copies.size() - count; c < copies.size(); ++c) out += copies[c];
      stats.copiedLines += count;
      stats.assistantLines += count;
      stats.lines += count;
      ++stats.resumedFiles;
    }
    // A session overshoots its target by up to a line, and small ones by more (a prompt and a
    // whole first reply), so the surplus so far is taken off the next file's target.
    const auto copied = static_cast<int64_t>(out.size());
    const auto planned = static_cast<int64_t>(plan.bytes);
    const int64_t target =
        std::max<int64_t>(1'000, planned - copied - std::clamp<int64_t>(surplus, 0, planned / 2));
    std::vector<std::string>* keep = plan.keepReplies ? &kept[i] : nullptr;
    auto remember = [&](size_t lineStart) {
      if (keep == nullptr || generator.replyOpen()) return;
      keep->emplace_back(out, lineStart);
      if (keep->size() > kKeptReplies) keep->erase(keep->begin());
    };
    generator.beginSession(session);
    while (generator.stats().bytes < static_cast<uint64_t>(target)) {
      const size_t lineStart = out.size();
      if (generator.appendNextLine(out) == TranscriptGenerator::LineKind::assistant) {
        remember(lineStart);
      }
      file.flushIfFull();
    }
    while (generator.replyOpen()) {
      const size_t lineStart = out.size();
      generator.appendAssistantLine(out);
      remember(lineStart);
    }
    file.close();

    const TranscriptGenerator::Stats& written = generator.stats();
    stats.lines += written.lines;
    stats.assistantLines += written.assistantLines;
    stats.replies += written.replies;
    stats.repeatedLines += written.repeatedLines;
    surplus += static_cast<int64_t>(file.bytes()) - planned;
    sizes[i] = file.bytes();
    stats.bytes += file.bytes();
    stats.claudeBytes += file.bytes();
    ++stats.claudeFiles;
    if (plan.parent) ++stats.subagentFiles;
    stats.firstMillis = std::min(stats.firstMillis, plan.startMillis);
    stats.lastMillis = std::max(stats.lastMillis, generator.clockMillis());
  }
  stats.projects = static_cast<uint64_t>(std::count(projectUsed.begin(), projectUsed.end(), true));

  stats.files = stats.claudeFiles + stats.codexFiles + stats.grokFiles;
  std::sort(sizes.begin(), sizes.end());
  stats.medianFileBytes = percentile(sizes, 0.5);
  stats.p90FileBytes = percentile(sizes, 0.9);
  stats.p99FileBytes = percentile(sizes, 0.99);
  stats.largestFileBytes = sizes.back();
  const size_t top = std::max<size_t>(1, sizes.size() / 100);
  const uint64_t topBytes =
      std::accumulate(sizes.end() - static_cast<ptrdiff_t>(top), sizes.end(), uint64_t{0});
  stats.top1PercentShare =
      static_cast<double>(topBytes) / static_cast<double>(std::max<uint64_t>(1, stats.claudeBytes));
  return stats;
}

}  // namespace brimlog
