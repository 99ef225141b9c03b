// Writes an OpenCode (or Kilo) home for the benchmarks: one database in WAL mode, shaped like the
// tool's own (its tables and indexes, user and assistant messages, text, reasoning and tool parts
// around each step's step-finish part), with the traps a reader must get right: forked sessions
// whose messages are copies (Kilo's with their cost zeroed), replies whose reasoning is inside
// the output (older builds) or beside it (newer ones), replies of older builds with no step parts,
// a model with no list price and a cost of its own, the newest builds' second message table, and
// the JSON files of the builds before the database, left in place when their messages moved in.

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "SplitMix64.hpp"
#include "ToolHomeWriters.hpp"
#include "model/ProviderID.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSchema =
    "PRAGMA journal_mode = WAL; PRAGMA synchronous = OFF;"
    "CREATE TABLE project (id TEXT PRIMARY KEY, worktree TEXT NOT NULL, time_created INTEGER "
    "NOT NULL, time_updated INTEGER NOT NULL);"
    "CREATE TABLE session (id TEXT PRIMARY KEY, project_id TEXT NOT NULL, parent_id TEXT, "
    "slug TEXT NOT NULL, directory TEXT NOT NULL, title TEXT NOT NULL, version TEXT NOT NULL, "
    "cost REAL NOT NULL DEFAULT 0, tokens_input INTEGER NOT NULL DEFAULT 0, "
    "tokens_output INTEGER NOT NULL DEFAULT 0, time_created INTEGER NOT NULL, "
    "time_updated INTEGER NOT NULL);"
    "CREATE INDEX session_project_idx ON session (project_id);"
    "CREATE TABLE message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL, time_created INTEGER "
    "NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL);"
    "CREATE INDEX message_session_time_created_id_idx ON message (session_id, time_created, id);"
    "CREATE TABLE part (id TEXT PRIMARY KEY, message_id TEXT NOT NULL, session_id TEXT NOT NULL, "
    "time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL);"
    "CREATE INDEX part_message_id_id_idx ON part (message_id, id);"
    "CREATE INDEX part_session_idx ON part (session_id);"
    "CREATE TABLE session_message (id TEXT PRIMARY KEY, session_id TEXT NOT NULL, type TEXT NOT "
    "NULL, time_created INTEGER NOT NULL, time_updated INTEGER NOT NULL, data TEXT NOT NULL);";

struct Model {
  const char* provider;
  const char* model;
  bool cacheWrites;     // the provider reports cache writes (Anthropic)
  bool reasons;         // it reports reasoning tokens
  double costPerToken;  // what the tool records per token; 0 where it has no price
};
constexpr Model kModels[] = {{"anthropic", "claude-sonnet-4-5", true, false, 6e-6},
                             {"openai", "gpt-5", false, true, 4e-6},
                             {"opencode", "big-pickle", false, false, 1e-6}};

class Database {
 public:
  explicit Database(const fs::path& path) {
    fs::create_directories(path.parent_path());
    fs::remove(path);
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) fail("open");
    exec(kSchema);
    exec("BEGIN");
    for (const char* table : {"session", "message", "part", "session_message"}) {
      const std::string sql =
          std::string("INSERT INTO ") + table +
          (std::string(table) == "session"
               ? " (id, project_id, slug, directory, title, version, time_created, time_updated) "
                 "VALUES (?1, 'prj', ?2, ?3, ?4, '1.14.3', ?5, ?5)"
           : std::string(table) == "message" ? " VALUES (?1, ?2, ?3, ?4, ?5)"
           : std::string(table) == "part"    ? " VALUES (?1, ?2, ?3, ?4, ?4, ?5)"
                                             : " VALUES (?1, ?2, 'assistant', ?3, ?3, ?4)");
      sqlite3_stmt* statement = nullptr;
      if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        fail("prepare");
      }
      statements_.push_back(statement);
    }
  }
  ~Database() {
    for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
    sqlite3_close(db_);
  }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void exec(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail("write");
  }
  void commit() { exec("COMMIT; BEGIN"); }

  void session(const std::string& id, const std::string& directory, const std::string& title,
               int64_t time) {
    run(0, {id, id.substr(4, 8), directory, title}, time);
  }
  void message(const std::string& id, const std::string& session, int64_t created, int64_t updated,
               const std::string& data) {
    sqlite3_stmt* s = statements_[1];
    bind(s, 1, id);
    bind(s, 2, session);
    sqlite3_bind_int64(s, 3, created);
    sqlite3_bind_int64(s, 4, updated);
    bind(s, 5, data);
    step(s);
  }
  // The newest builds' second table of messages, with counts of its own.
  void sessionMessage(const std::string& id, const std::string& session, int64_t time,
                      const std::string& data) {
    sqlite3_stmt* s = statements_[3];
    bind(s, 1, id);
    bind(s, 2, session);
    sqlite3_bind_int64(s, 3, time);
    bind(s, 4, data);
    step(s);
  }
  void part(const std::string& id, const std::string& message, const std::string& session,
            int64_t time, const std::string& data) {
    sqlite3_stmt* s = statements_[2];
    bind(s, 1, id);
    bind(s, 2, message);
    bind(s, 3, session);
    sqlite3_bind_int64(s, 4, time);
    bind(s, 5, data);
    step(s);
  }

 private:
  void run(size_t index, const std::vector<std::string>& texts, int64_t time) {
    sqlite3_stmt* s = statements_[index];
    for (size_t i = 0; i < texts.size(); ++i) bind(s, static_cast<int>(i + 1), texts[i]);
    sqlite3_bind_int64(s, static_cast<int>(texts.size() + 1), time);
    step(s);
  }
  static void bind(sqlite3_stmt* s, int index, const std::string& text) {
    sqlite3_bind_text(s, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
  }
  void step(sqlite3_stmt* s) {
    if (sqlite3_step(s) != SQLITE_DONE) fail("insert");
    sqlite3_reset(s);
  }
  [[noreturn]] void fail(const char* doing) {
    throw std::runtime_error(fmt::format("cannot {} the database: {}", doing, sqlite3_errmsg(db_)));
  }

  sqlite3* db_ = nullptr;
  std::vector<sqlite3_stmt*> statements_;
};

// One stored part or message, to copy into a fork.
struct Row {
  std::string id, message;
  int64_t created, updated;
  std::string data;
  bool isMessage;
};

class Writer {
 public:
  Writer(ProviderID tool, uint64_t seed) : tool_(tool), random_(seed) {
    for (int i = 0; i < 4096; ++i) {
      const uint64_t r = random_.below(32);
      text_ += r < 5 ? ' ' : static_cast<char>('a' + r - 5);
    }
  }

  ToolTotals write(const fs::path& data, uint64_t bytes, int64_t endDay) {
    const fs::path path = data / (std::string(tool_.rawValue()) + ".db");
    Database db{path};
    // Bytes an exchange and its parts take, about: spreads the replies over the 30 days.
    start_ = (endDay - 29) * kDayMs;
    spacing_ = std::max<int64_t>(1, 30 * kDayMs / static_cast<int64_t>(bytes / 9'000 + 1));
    uint64_t written = 0;
    for (int64_t sessionNumber = 0; written < bytes; ++sessionNumber) {
      const std::string session = fmt::format("ses_{:012}", sessionNumber);
      const std::string directory = fmt::format("/home/dev/src/project{}", sessionNumber % 7);
      const int64_t sessionStart = timeOf(next_);
      db.session(session, directory, "Fix the build", sessionStart);
      std::vector<Row> rows;
      const int64_t messages = random_.between(2, 16);
      for (int64_t m = 0; m < messages && written < bytes; ++m) {
        written += exchange(db, session, directory, rows, totals_);
      }
      // The oldest sessions are also in the JSON files of the builds before the database, which
      // the move into the database left in place: the same messages under the same ids.
      if (written < bytes / 20) writeJson(data, session, rows);
      // A fork of one session in eight: every message and part copied under new ids.
      if (random_.chance(0.125)) {
        const std::string fork = session + "_fork";
        db.session(fork, directory, "Fix the build (fork #1)", sessionStart + 1);
        for (Row row : rows) {
          // Kilo zeroes a copy's cost; OpenCode keeps it.
          if (const auto cost = row.data.find("\"cost\":");
              tool_ == ProviderID::kilo && row.isMessage && cost != std::string::npos) {
            row.data.replace(cost, row.data.find(',', cost) - cost, "\"cost\":0");
          }
          if (row.isMessage) {
            db.message(row.id + "f", fork, row.created, row.updated, row.data);
          } else {
            db.part(row.id + "f", row.message + "f", fork, row.created, row.data);
          }
          written += row.data.size();
        }
      }
      if (sessionNumber % 64 == 63) db.commit();
    }
    db.exec("COMMIT");
    return totals_;
  }

 private:
  std::string text(size_t length) {
    const size_t from = random_.below(text_.size() - 64);
    std::string out;
    while (out.size() < length)
      out += text_.substr(from, std::min(length - out.size(), text_.size() - from));
    return out;
  }

  static void writeFile(const fs::path& path, const std::string& bytes) {
    fs::create_directories(path.parent_path());
    std::ofstream out{path, std::ios::binary};
    out << bytes;
    if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
  }

  // One JSON file a message (storage/message/<session>/) and a part (storage/part/<message>/),
  // each holding its ids beside the data the database keeps.
  static void writeJson(const fs::path& data, const std::string& session,
                        const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      const std::string ids = row.isMessage
                                  ? fmt::format(R"({{"id":"{}","sessionID":"{}",)", row.id, session)
                                  : fmt::format(R"({{"id":"{}","messageID":"{}","sessionID":"{}",)",
                                                row.id, row.message, session);
      const fs::path path = row.isMessage
                                ? data / "storage/message" / session / (row.id + ".json")
                                : data / "storage/part" / row.message / (row.id + ".json");
      writeFile(path, ids + row.data.substr(1));
    }
  }

  std::string id(const char* prefix) { return fmt::format("{}_{:016x}", prefix, random_.next()); }

  // A user message and the assistant's reply; returns the bytes written.
  uint64_t exchange(Database& db, const std::string& session, const std::string& directory,
                    std::vector<Row>& rows, ToolTotals& totals) {
    uint64_t bytes = 0;
    const int64_t created = timeOf(next_++);
    const auto add = [&](Row row) {
      bytes += row.data.size();
      if (row.isMessage) {
        db.message(row.id, session, row.created, row.updated, row.data);
      } else {
        db.part(row.id, row.message, session, row.created, row.data);
      }
      rows.push_back(std::move(row));
    };
    const std::string user = id("msg");
    add({user, "", created - 500, created - 500,
         fmt::format(R"({{"role":"user","time":{{"created":{}}},"agent":"build",)"
                     R"("model":{{"providerID":"anthropic","modelID":"claude-sonnet-4-5"}}}})",
                     created - 500),
         true});
    add({id("prt"), user, created - 500, created - 500,
         fmt::format(R"({{"type":"text","text":"{}"}})", text(random_.between(80, 1200))), false});

    const Model& model = kModels[random_.below(10) < 6 ? 0 : random_.below(10) < 7 ? 1 : 2];
    const std::string reply = id("msg");
    const bool stepParts = !random_.chance(0.05);  // older builds: usage on the message alone
    const int64_t steps = stepParts ? random_.between(1, 4) : 1;
    double cost = 0;
    std::string lastTokens;
    for (int64_t s = 0; s < steps; ++s) {
      TokenCounts counts;
      counts.uncachedInput = random_.between(5, 4000);
      counts.cacheRead = random_.between(0, 60'000);
      counts.cacheWrite5m = model.cacheWrites ? random_.between(0, 3000) : 0;
      counts.output = random_.between(20, 3000);
      counts.reasoning = model.reasons ? random_.between(0, counts.output) : 0;
      // Newer builds keep reasoning out of `output` and inside `total`; older ones the reverse.
      const bool apart = random_.chance(0.5);
      const int64_t storedOutput = apart ? counts.output - counts.reasoning : counts.output;
      const int64_t total = counts.uncachedInput + counts.cacheRead + counts.cacheWrite5m +
                            storedOutput + (apart ? counts.reasoning : 0);
      lastTokens = fmt::format(
          R"({{"total":{},"input":{},"output":{},"reasoning":{},"cache":{{"read":{},"write":{}}}}})",
          total, counts.uncachedInput, storedOutput, counts.reasoning, counts.cacheRead,
          counts.cacheWrite5m);
      const double stepCost = static_cast<double>(counts.processed()) * model.costPerToken;
      cost += stepCost;
      totals.tokens += counts;
      if (!stepParts) break;
      const int64_t at = created + 1000 * (s + 1);
      add({id("prt"), reply, at, at, R"({"type":"step-start","snapshot":"4b825dc6"})", false});
      if (model.reasons && random_.chance(0.5)) {
        add({id("prt"), reply, at, at,
             fmt::format(R"({{"type":"reasoning","text":"{}","time":{{"start":{},"end":{}}}}})",
                         text(random_.between(100, 1500)), at, at + 1),
             false});
      }
      if (s + 1 < steps) {
        add({id("prt"), reply, at, at,
             fmt::format(
                 R"({{"type":"tool","callID":"call_{}","tool":"bash","state":{{)"
                 R"("status":"completed","input":{{"command":"make test"}},"output":"{}",)"
                 R"("title":"make test","metadata":{{}},"time":{{"start":{},"end":{}}}}}}})",
                 s, text(random_.between(200, 6000)), at, at + 1),
             false});
      } else {
        add({id("prt"), reply, at, at,
             fmt::format(R"({{"type":"text","text":"{}"}})", text(random_.between(200, 2500))),
             false});
      }
      add({id("prt"), reply, at, at,
           fmt::format(R"({{"type":"step-finish","reason":"tool-calls","snapshot":"4b825dc6",)"
                       R"("cost":{},"tokens":{}}})",
                       stepCost, lastTokens),
           false});
    }
    ++totals.replies;
    db.sessionMessage(reply + "_v2", session, created,
                      fmt::format(R"({{"type":"assistant","tokens":{}}})", lastTokens));
    const int64_t completed = created + 1000 * (steps + 1);
    add({reply, "", created, completed,
         fmt::format(R"({{"role":"assistant","parentID":"{}","providerID":"{}","modelID":"{}",)"
                     R"("mode":"build","agent":"build","path":{{"cwd":"{}","root":"{}"}},)"
                     R"("time":{{"created":{},"completed":{}}},"cost":{},"finish":"stop",)"
                     R"("tokens":{}}})",
                     user, model.provider, model.model, directory, directory, created, completed,
                     cost, lastTokens),
         true});
    return bytes;
  }

  // The creation time of the n-th exchange, within the 30 days; no two share one (past the end,
  // the times start over a millisecond later).
  int64_t timeOf(int64_t n) const {
    const int64_t span = 30 * kDayMs, at = n * spacing_;
    return start_ + at % span + at / span;
  }

  static constexpr int64_t kDayMs = 86'400'000;

  ProviderID tool_;
  SplitMix64 random_;
  std::string text_;
  ToolTotals totals_;
  int64_t next_ = 0;
  int64_t start_ = 0, spacing_ = 1;
};

ToolTotals writeHome(ProviderID tool, const fs::path& home, uint64_t bytes, uint64_t seed,
                     int64_t endDay) {
  return Writer{tool, seed}.write(home / ".local/share" / std::string(tool.rawValue()), bytes,
                                  endDay);
}

}  // namespace

ToolTotals writeOpenCodeHome(const fs::path& home, uint64_t bytes, uint64_t seed, int64_t endDay) {
  return writeHome(ProviderID::opencode, home, bytes, seed, endDay);
}

ToolTotals writeKiloHome(const fs::path& home, uint64_t bytes, uint64_t seed, int64_t endDay) {
  return writeHome(ProviderID::kilo, home, bytes, seed, endDay);
}

}  // namespace brimlog
