// Writes a Gemini CLI home for benchmarks: sessions under .gemini/tmp/<project>/chats/ as the
// CLI leaves them, with what a pass must count once.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "ToolHomeWriters.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class GeminiHome {
 public:
  GeminiHome(const fs::path& home, uint64_t seed, int64_t endDay)
      : gemini_(home / ".gemini"), random_(seed), endDay_(endDay) {}

  ToolTotals write(uint64_t bytes) {
    const size_t projects = 24;
    std::string registry;
    for (size_t i = 0; i < projects; ++i) {
      const std::string slug = fmt::format("project-{}", i);
      slugs_.push_back(slug);
      registry += fmt::format("{}\"/home/dev/src/{}\": \"{}\"", i ? ",\n    " : "    ", slug, slug);
      put(gemini_ / "tmp" / slug / ".project_root", "/home/dev/src/" + slug);
      // Beside the chats: the CLI's own log of prompts, which is no session.
      put(gemini_ / "tmp" / slug / "logs.json",
          R"([{"sessionId":"x","messageId":0,"type":"user","message":"hi"}])");
    }
    put(gemini_ / "projects.json", "{\n  \"projects\": {\n" + registry + "\n  }\n}\n");
    put(gemini_ / "settings.json", "{}\n");
    while (written_ < bytes) session();
    return totals_;
  }

 private:
  std::string hex(size_t digits) {
    std::string text;
    while (text.size() < digits) text += fmt::format("{:016x}", random_.next());
    return text.substr(0, digits);
  }

  std::string uuid() {
    const std::string h = hex(32);
    return fmt::format("{}-{}-4{}-8{}-{}", h.substr(0, 8), h.substr(8, 4), h.substr(13, 3),
                       h.substr(17, 3), h.substr(20, 12));
  }

  // Prose with the escapes JSON text carries.
  std::string text(size_t length) {
    static constexpr std::string_view kWords[] = {
        "the",  "function",   "returns", "a",    "value", "\\n", "file",  "test",
        "when", "\\\"ok\\\"", "error",   "path", "line",  "\\t", "parse", "update"};
    std::string out;
    while (out.size() < length) {
      out += kWords[random_.below(std::size(kWords))];
      out += ' ';
    }
    return out;
  }

  std::string stamp() {
    const auto at = std::chrono::sys_seconds{std::chrono::seconds{seconds_}};
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", at, random_.below(1000));
  }

  void put(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
    if (!out)
      throw fs::filesystem_error("cannot write", path, std::make_error_code(std::errc::io_error));
    written_ += bytes.size();
  }

  void session() {
    static constexpr std::string_view kModels[] = {"gemini-2.5-pro", "gemini-2.5-flash",
                                                   "gemini-3-pro-preview"};
    const std::string& slug = slugs_[random_.below(slugs_.size())];
    const std::string id = uuid();
    seconds_ = (endDay_ - random_.between(0, 29)) * 86400 + random_.between(0, 70'000);
    const std::string started = stamp();
    // Sizes spread from a few kilobytes to over half a megabyte, most near the low end.
    const auto target = static_cast<size_t>(4000 * std::pow(100.0, random_.unit()));
    const double kind = random_.unit();
    const bool legacy = kind < 0.08;
    const bool subagent = !legacy && kind < 0.23;
    const fs::path chats = gemini_ / "tmp" / slug / "chats";

    std::vector<std::string> lines;  // JSON lines, or the document's messages
    std::vector<std::string> kept;   // the conversation's messages, for a checkpoint
    lines.push_back(fmt::format(
        R"({{"sessionId":"{}","projectHash":"{}","startTime":"{}","lastUpdated":"{}","kind":"{}"{}}})",
        id, hex(64), started, started, subagent ? "subagent" : "main",
        subagent ? fmt::format(R"(,"directories":["/home/dev/src/{}"])", slug) : ""));
    size_t size = lines.back().size();
    for (int turn = 0; size < target; ++turn) {
      seconds_ += random_.between(5, 120);
      const std::string u =
          fmt::format(R"({{"id":"{}","timestamp":"{}","type":"user","content":[{{"text":"{}"}}]}})",
                      uuid(), stamp(), text(random_.between(40, 1500)));
      lines.push_back(u);
      kept.push_back(u);
      lines.push_back(fmt::format(R"({{"$set":{{"lastUpdated":"{}"}}}})", stamp()));
      seconds_ += random_.between(2, 60);
      const std::string replyId = uuid();
      const std::string model{kModels[random_.below(std::size(kModels))]};
      const int64_t input = random_.between(2'000, 200'000);
      const int64_t cached = random_.chance(0.7) ? random_.between(0, input) : 0;
      const int64_t output = random_.between(5, 3'000);
      const int64_t thoughts = random_.chance(0.6) ? random_.between(0, 2'000) : 0;
      const int64_t tool = random_.chance(0.1) ? random_.between(10, 500) : 0;
      const std::string tokens = fmt::format(
          R"("tokens":{{"input":{},"output":{},"cached":{},"thoughts":{},"tool":{},"total":{}}},)",
          input, output, cached, thoughts, tool, input + output + thoughts + tool);
      const std::string when = stamp();
      const std::string content = text(random_.between(20, 3000));
      // The model's thought summaries, when it thought.
      std::string thought;
      if (thoughts > 0) {
        thought = fmt::format(R"({{"subject":"Planning","description":"{}","timestamp":"{}"}})",
                              text(random_.between(100, 1500)), when);
      }
      auto record = [&](bool counted, const std::string& extra) {
        return fmt::format(
            R"({{"id":"{}","timestamp":"{}","type":"gemini","content":"{}","thoughts":[{}],{}"model":"{}"{}}})",
            replyId, when, content, thought, counted ? tokens : "", model, extra);
      };
      // Written first without its counts, then with them, then with its tool's result.
      if (!legacy) lines.push_back(record(false, ""));
      std::string last = record(true, "");
      lines.push_back(last);
      if (random_.chance(0.5)) {
        last = record(
            true,
            fmt::format(
                R"(,"toolCalls":[{{"id":"read_file-{}","name":"read_file","status":"success","result":[{{"functionResponse":{{"response":{{"output":"{}"}}}}}}]}}])",
                turn, text(random_.between(200, 12000))));
        lines.push_back(last);
      }
      kept.push_back(last);
      totals_.replies += 1;
      totals_.tokens +=
          TokenCounts{input - cached + tool, cached, 0, 0, output + thoughts, thoughts};
      // Now and then the user rewinds past a reply: it was billed all the same.
      if (!legacy && random_.chance(0.03)) {
        lines.push_back(fmt::format(R"({{"$rewindTo":"{}"}})", replyId));
      }
      size = 0;
      for (const std::string& line : lines) size += line.size() + 1;
    }

    if (legacy) {
      // The older form: one pretty-printed document; half were resumed into a JSON-lines copy
      // under the same name with an "l", which repeats every message.
      std::string messages;
      for (size_t i = 0; i < kept.size(); ++i) messages += (i ? ",\n    " : "    ") + kept[i];
      const std::string name = fmt::format("session-{}-{}", started.substr(0, 16), id.substr(0, 8));
      std::string file = name;
      for (char& c : file) c = c == ':' ? '-' : c;
      put(chats / (file + ".json"),
          fmt::format("{{\n  \"sessionId\": \"{}\",\n  \"projectHash\": \"{}\",\n  \"startTime\": "
                      "\"{}\",\n  \"lastUpdated\": \"{}\",\n  \"messages\": [\n{}\n  ]\n}}",
                      id, hex(64), started, stamp(), messages));
      if (random_.chance(0.5)) {
        std::string copy = lines.front() + "\n";
        for (const std::string& m : kept) copy += m + "\n";
        copy += fmt::format(R"({{"$set":{{"sessionId":"{}"}}}})", id) + "\n";
        put(chats / (file + ".jsonl"), copy);
      }
      return;
    }
    // Some conversations end with a checkpoint that writes every message again.
    if (kept.size() < 40 && random_.chance(0.15)) {
      std::string all;
      for (const std::string& m : kept) all += (all.empty() ? "" : ",") + m;
      lines.push_back(R"({"$set":{"messages":[)" + all + "]}}");
    }
    std::string body;
    for (const std::string& line : lines) body += line + "\n";
    std::string file = fmt::format("session-{}-{}.jsonl", started.substr(0, 16), id.substr(0, 8));
    for (char& c : file) c = c == ':' ? '-' : c;
    // A subagent's session lies in its parent session's folder, beside its siblings'.
    std::string& parent = parents_[slug];
    if (!subagent || parent.empty()) parent = subagent ? uuid() : id;
    const fs::path path = subagent ? chats / parent / (id + ".jsonl") : chats / file;
    put(path, body);
    // An upgrade copied some project folders named by their path's hash to their new names,
    // leaving the old copies.
    if (!subagent && random_.chance(0.03)) put(gemini_ / "tmp" / hex(64) / "chats" / file, body);
  }

  fs::path gemini_;
  SplitMix64 random_;
  int64_t endDay_;
  int64_t seconds_ = 0;
  uint64_t written_ = 0;
  std::vector<std::string> slugs_;
  std::map<std::string, std::string> parents_;  // by project: its latest main session
  ToolTotals totals_;
};

}  // namespace

ToolTotals writeGeminiHome(const fs::path& home, uint64_t bytes, uint64_t seed, int64_t endDay) {
  return GeminiHome{home, seed, endDay}.write(bytes);
}

}  // namespace brimlog
