// Qwen Code chat logs for the benchmarks: sessions of JSON-lines records as the tool writes them
// (`<home>/.qwen/projects/<folder>/chats/<session>.jsonl`), with the traps a count must pass:
// branched sessions that copy their parent's records under the same uuids, archived sessions,
// sessions where older versions kept them (`tmp/<hash>/chats/`), UI telemetry repeating each
// call's counts, sidecars beside the sessions (one of JSON lines), and providers that count
// reasoning inside the completion or beside it.

#include <date/date.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "ToolHomeWriters.hpp"
#include "platform/Json.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kDayMillis = 86'400'000;
constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kWords[] = {"parser", "cursor", "offset", "batch", "commit", "schema",
                                       "index",  "tokens", "cache",  "build", "error",  "window",
                                       "worker", "queue",  "reader", "store", "model",  "reply",
                                       "日本語", "café",   "→",      "✅",     "harbor", "quartz"};

std::string uuid4(SplitMix64& random) {
  const uint64_t a = random.next(), b = random.next();
  return fmt::format("{:08x}-{:04x}-4{:03x}-{:x}{:03x}-{:012x}", a >> 32, (a >> 16) & 0xffff,
                     a & 0xfff, 8 + (b >> 62), (b >> 48) & 0xfff, b & 0xffffffffffff);
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

// Escaped text of about `bytes` bytes: source lines, shell output with colours, prose.
std::string text(SplitMix64& random, int64_t bytes) {
  std::string raw;
  while (static_cast<int64_t>(raw.size()) < bytes) {
    const std::string_view a = kWords[random.below(std::size(kWords))];
    const std::string_view b = kWords[random.below(std::size(kWords))];
    switch (random.below(3)) {
      case 0:
        raw += fmt::format("{:>6}\tconst {}_{} = load(\"{}\");\n", random.below(900), a, b, a);
        break;
      case 1:
        raw += fmt::format("\x1b[32m✓\x1b[0m {} › {} ({} ms)\n", a, b, random.below(2000));
        break;
      default:
        raw += fmt::format("The {} now keeps its {} in C:\\src\\{}.\n", a, b, a);
    }
  }
  const std::string escaped = Json(raw).dump();
  return escaped.substr(1, escaped.size() - 2);
}

// Writes a whole file, replacing it; returns its size.
uint64_t saveFile(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  const std::unique_ptr<std::FILE, Close> file{std::fopen(path.c_str(), "wb")};
  if (!file || std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() ||
      std::fflush(file.get()) != 0) {
    throw fs::filesystem_error("Cannot write file", path,
                               std::error_code(errno, std::generic_category()));
  }
  return bytes.size();
}

// One session's records, each a line; the model calls among them are counted in `totals`.
class QwenSession {
 public:
  QwenSession(SplitMix64& random, ToolTotals& totals, std::string id, std::string cwd,
              int64_t clock, int64_t end)
      : random_(random),
        totals_(totals),
        id_(std::move(id)),
        cwd_(std::move(cwd)),
        clock_(clock),
        end_(end) {}

  // Writes turns until the session holds about `bytes`.
  void grow(uint64_t bytes) {
    while (out_.size() < bytes) turn();
  }

  // A branch of this session: its records so far, copied under the same uuids into a session of
  // its own, marked with where they came from.
  QwenSession branch(std::string id) const {
    QwenSession copy{random_, totals_, std::move(id), cwd_, clock_, end_};
    const std::string from = fmt::format(R"("sessionId":"{}")", id_);
    const std::string to = fmt::format(R"("sessionId":"{}")", copy.id_);
    for (size_t start = 0; start < out_.size();) {
      const size_t end = out_.find('\n', start);
      std::string line = out_.substr(start, end - start);
      const size_t at = line.find(from);
      line.replace(at, from.size(), to);
      const std::string uuid = line.substr(9, 36);  // {"uuid":"…
      line.pop_back();
      copy.out_ += fmt::format(R"({},"forkedFrom":{{"sessionId":"{}","messageUuid":"{}"}}}})", line,
                               id_, uuid);
      copy.out_ += '\n';
      start = end + 1;
    }
    copy.parent_ = parent_;
    copy.context_ = context_;
    return copy;
  }

  const std::string& bytes() const { return out_; }

 private:
  // A record with the fields every record starts with, then `rest`; it becomes the parent of the
  // next record.
  void record(std::string_view type, std::string_view rest) {
    clock_ = std::min(end_, clock_ + random_.between(200, 20'000));
    const std::string uuid = uuid4(random_);
    fmt::format_to(std::back_inserter(out_),
                   R"({{"uuid":"{}","parentUuid":{},"sessionId":"{}","timestamp":"{}",)"
                   R"("type":"{}","cwd":"{}","version":"0.14.5","gitBranch":"main",{}}})"
                   "\n",
                   uuid, parent_, id_, timestamp(clock_), type, cwd_, rest);
    parent_ = '"' + uuid + '"';
  }

  void turn() {
    clock_ = std::min(end_, clock_ + random_.between(5'000, 600'000));
    record("user", fmt::format(R"("provenance":"real_user","message":{{"role":"user","parts":)"
                               R"([{{"text":"{}"}}]}})",
                               text(random_, skewed(random_, 40, 1'500))));
    for (bool toolCall = true; toolCall;) {
      toolCall = random_.chance(0.75);
      call(toolCall);
      if (!toolCall) break;
      const std::string output = text(random_, skewed(random_, 256, 25'000));
      record("tool_result",
             fmt::format(R"("provenance":"tool_result","message":{{"role":"user","parts":[{{)"
                         R"("functionResponse":{{"id":"{}","name":"run_shell_command","response":)"
                         R"({{"output":"{}"}}}}}}]}},"toolCallResult":{{"callId":"{}","status":)"
                         R"("success","resultDisplay":"{}"}})",
                         callId_, output, callId_, output));
    }
    if (random_.chance(0.05)) {
      record("system", R"("subtype":"slash_command","systemPayload":{"phase":"invocation",)"
                       R"("rawCommand":"/stats"})");
    }
  }

  // One model call: the conversation so far is sent again, most of it from the cache.
  void call(bool toolCall) {
    const bool flash = random_.chance(0.2);
    const int64_t cached = context_ == 0 ? 0 : random_.between(context_ * 3 / 4, context_);
    const int64_t prompt = context_ + random_.between(500, 12'000);
    context_ = prompt + random_.between(20, 3'000);
    if (context_ > 200'000) context_ = random_.between(15'000, 30'000);  // compressed
    const int64_t output = random_.between(12, 3'000);
    const int64_t thoughts = random_.chance(0.4) ? random_.between(0, output) : 0;
    // Most providers are OpenAI-compatible and count reasoning inside the completion; Gemini
    // counts it beside the candidates.
    const bool beside = random_.chance(0.1);
    const int64_t candidates = beside ? output - thoughts : output;
    const int64_t total = prompt + candidates + (beside ? thoughts : 0);
    ++totals_.replies;
    totals_.tokens += TokenCounts{prompt - cached, cached, 0, 0, output, thoughts};

    std::string parts;
    if (thoughts > 0) {
      parts += fmt::format(R"({{"text":"{}","thought":true}},)",
                           text(random_, skewed(random_, 100, 3'000)));
    }
    if (toolCall) {
      callId_ = "call_" + uuid4(random_).substr(0, 24);
      parts += fmt::format(R"({{"functionCall":{{"id":"{}","name":"run_shell_command","args":)"
                           R"({{"command":"rg -n {}"}}}}}})",
                           callId_, kWords[random_.below(std::size(kWords))]);
    } else {
      parts += fmt::format(R"({{"text":"{}"}})", text(random_, skewed(random_, 40, 2'000)));
    }
    const std::string_view model = flash ? "qwen3-coder-flash" : "qwen3-coder-plus";
    record("assistant",
           fmt::format(R"("provenance":"assistant_output","model":"{}","message":{{"role":)"
                       R"("model","parts":[{}]}},"usageMetadata":{{"promptTokenCount":{},)"
                       R"("candidatesTokenCount":{},"cachedContentTokenCount":{},)"
                       R"("thoughtsTokenCount":{},"totalTokenCount":{}}},)"
                       R"("contextWindowSize":1000000)",
                       model, parts, prompt, candidates, cached, thoughts, total));
    // The UI telemetry of the same call, replayed on resume: it must add nothing.
    record("system",
           fmt::format(R"("subtype":"ui_telemetry","systemPayload":{{"uiEvent":{{"event.name":)"
                       R"("qwen-code.api_response","model":"{}","input_token_count":{},)"
                       R"("output_token_count":{},"cached_content_token_count":{},)"
                       R"("thoughts_token_count":{},"total_token_count":{}}}}})",
                       model, prompt, candidates, cached, thoughts, total));
  }

  SplitMix64& random_;
  ToolTotals& totals_;
  std::string id_, cwd_;
  int64_t clock_, end_;
  std::string parent_ = "null";
  std::string callId_;
  int64_t context_ = 0;
  std::string out_;
};

// As the tool names a project's folder: every character but letters and digits becomes "-".
std::string folderOf(std::string cwd) {
  for (char& c : cwd) {
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '-';
  }
  return cwd;
}

ToolTotals writeQwenHome(const fs::path& home, uint64_t bytes, uint64_t seed, int64_t endDay) {
  SplitMix64 random{seed};
  ToolTotals totals;
  const fs::path qwen = home / ".qwen";
  const int64_t windowStart = (endDay - 29) * kDayMillis;
  const int64_t windowEnd = (endDay + 1) * kDayMillis - 1;
  std::vector<std::string> projects;
  for (int i = 0; i < 12; ++i) {
    projects.push_back(fmt::format("/home/dev/code/{}-{}", kWords[i], i));
  }

  // About 100 kB a session on average, log-normal, as chat lengths are.
  const size_t count = std::max<size_t>(4, static_cast<size_t>(bytes / 100'000));
  std::vector<double> sizes(count);
  double sum = 0;
  for (double& size : sizes) {
    const double u = 1.0 - random.unit(), v = random.unit();
    size = std::exp(1.6 * std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * 3.141592653589793 * v));
    sum += size;
  }
  // Branches and sidecars take their share of the bytes too: sessions stop once all are written.
  uint64_t written = 0;
  for (size_t i = 0; i < count && written < bytes; ++i) {
    const auto size =
        static_cast<uint64_t>(std::max(2'000.0, sizes[i] / sum * static_cast<double>(bytes)));
    const std::string& cwd = projects[static_cast<size_t>(static_cast<double>(projects.size()) *
                                                          std::pow(random.unit(), 2.0))];
    const fs::path chats = qwen / "projects" / folderOf(cwd) / "chats";
    const int64_t start = windowStart + random.between(0, 28) * kDayMillis +
                          random.between(7 * 3'600'000, 20 * 3'600'000);
    const std::string id = uuid4(random);
    QwenSession session{random, totals, id, cwd, start, windowEnd};
    session.grow(size);

    // Where the session lies: most in the chats folder, some archived, a few where older
    // versions kept them.
    fs::path path = chats / (id + ".jsonl");
    if (random.chance(0.1)) {
      path = chats / "archive" / (id + ".jsonl");
    } else if (random.chance(0.05)) {
      path = qwen / "tmp" / std::string(64, kHex[i % 16]) / "chats" / (id + ".jsonl");
    }
    if (random.chance(0.08)) {
      // Branched once it was under way: the copy goes on on its own.
      const std::string branchId = uuid4(random);
      QwenSession branch = session.branch(branchId);
      branch.grow(session.bytes().size() + size / 4);
      written += saveFile(chats / (branchId + ".jsonl"), branch.bytes());
    }
    written += saveFile(path, session.bytes());
    if (random.chance(0.3)) {
      written +=
          saveFile(chats / (id + ".runtime.json"),
                   fmt::format(R"({{"pid":{},"workDir":"{}"}})", random.between(1000, 90000), cwd));
      written += saveFile(chats / (id + ".ledger.jsonl"),
                          fmt::format(R"({{"promptId":"{}","state":"completed","timestamp":"{}"}})"
                                      "\n",
                                      uuid4(random), timestamp(start)));
    }
  }
  return totals;
}

}  // namespace

constinit extern const ToolHomeWriterEntry qwenHomeWriter{"qwen", &writeQwenHome};

}  // namespace brimlog
